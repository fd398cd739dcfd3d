// The one discovery session that this process has on an adapter. The daemon counts sessions per bus
// connection, so all central managers and all searches share it.
//
// Threads: the radio's own thread. Lifetime: what calls back is held weakly.
// Errors: a session that cannot be started is tried again with a growing pause as long as it is
// wanted; a refusal is reported.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "Daemon.h"

namespace kestrin::bluez {

class Discovery final : public std::enable_shared_from_this<Discovery> {
 public:
  struct Events {
    /// The session is on; what has a signal strength now has been seen.
    std::function<void()> started;
    /// The daemon or the bus refuses it.
    std::function<void()> refused;
  };

  Discovery(BusThread& thread, Daemon& daemon, std::string adapter, Events events);

  /// Whether somebody wants the session: scans of central managers and searches for a device.
  void setScans(bool wanted);
  void addSearch(std::uint64_t link);
  void removeSearch(std::uint64_t link);
  /// The adapter's power, or the adapter or the daemon itself, has changed.
  void adapterChanged();
  [[nodiscard]] bool isOn() const noexcept { return state_ == State::on; }
  /// Forgets the session without a word to the daemon.
  void forget();

 private:
  enum class State { off, starting, on, stopping, pausing };

  void update();
  void start();
  void started(const std::optional<CallError>& error);
  void stop();
  void call(const std::string& method, std::function<void(sdbus::MethodCall&)> arguments,
            std::function<void(Discovery&, const std::optional<CallError>&)> then);
  [[nodiscard]] bool wanted() const { return scans_ || !searches_.empty(); }
  [[nodiscard]] bool powered() const;

  BusThread& thread_;
  Daemon& daemon_;
  const std::string adapter_;
  const Events events_;
  State state_ = State::off;
  bool scans_ = false;
  std::set<std::uint64_t> searches_;
  std::uint64_t session_ = 0;  // Replies to an earlier session's calls are not heard.
  GrowingPause pause_{std::chrono::milliseconds(500), std::chrono::seconds(8)};
  std::optional<TimerQueue::Id> retry_;
};

}  // namespace kestrin::bluez
