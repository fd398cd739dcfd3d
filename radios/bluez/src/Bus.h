// One connection to the message bus, without waiting: calls with a limit of their own, and signals.
//
// Threads: the radio's own thread. Handlers run there, never from inside the operation that was
// given them.
// Lifetime: a call's handler is called exactly once, also when the connection is lost, but not any
// more after `close`.
// Errors: nothing is thrown. A call that cannot be made is answered with an error.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "BusLibrary.h"
#include "BusThread.h"
#include "Errors.h"

namespace kestrin::bluez {

inline constexpr char kDaemonName[] = "org.bluez";
inline constexpr char kBusName[] = "org.freedesktop.DBus";

/// One method call. The limit is set on purpose for each: some answers of the daemon take far
/// longer than the bus library's usual 25 seconds.
struct Call {
  std::string destination = kDaemonName;
  std::string path;
  std::string interface;
  std::string method;
  Time limit = std::chrono::seconds(30);
  std::function<void(sdbus::MethodCall&)> arguments;
};

class Bus final : public PollSource {
 public:
  using Reply = std::function<void(const std::optional<CallError>&, sdbus::MethodReply&)>;
  using SignalHandler = std::function<void(sdbus::Message&)>;

  /// `lost` is called when the connection has ended by itself.
  Bus(BusThread& thread, std::function<void()> lost);
  ~Bus() override;

  /// Connects to the bus at `address`, or to the system bus; returns why it could not.
  std::optional<CallError> open(const std::optional<std::string>& address);
  void close();
  [[nodiscard]] bool isOpen() const noexcept { return connection_ != nullptr; }
  /// Returns whether the bus took the match.
  bool subscribe(const std::string& match, SignalHandler handler);
  void call(const Call& call, Reply reply);

  std::optional<Wait> wait() noexcept override;
  void process() noexcept override;

 private:
  struct Pending {
    std::unique_ptr<sdbus::IProxy> proxy;
    Reply reply;
    std::optional<TimerQueue::Id> limit;
  };
  void answer(std::uint64_t number, const std::optional<CallError>& error,
              sdbus::MethodReply& reply);
  void answerLater(std::uint64_t number, CallError error);
  void loseConnection();

  BusThread& thread_;
  const std::function<void()> lost_;
  std::unique_ptr<sdbus::IConnection> connection_;
  std::map<std::uint64_t, Pending> pending_;
  // A proxy must not be destroyed inside its own reply, so it waits here until the round is over.
  std::vector<std::unique_ptr<sdbus::IProxy>> answered_;
  std::uint64_t nextNumber_ = 1;
  bool broken_ = false;
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

/// The values of a message, absent when they are not of those types.
template <typename... Values>
std::optional<std::tuple<Values...>> readMessage(sdbus::Message& message) noexcept {
  try {
    std::tuple<Values...> values;
    message >> values;
    return values;
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

}  // namespace kestrin::bluez
