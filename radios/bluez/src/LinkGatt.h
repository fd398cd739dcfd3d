// The attributes of one link: answers to discoveries, and a queue of requests that are carried out
// one after another in the order in which they were made. Every request ends in `answer`.
//
// Threads: the radio's own thread; events are posted to the run loop of the central manager that
// made the link.
// Lifetime: from the link's first evidence to its end.
// Errors: told with the event that answers the request; a failed write is told to nobody, and the
// queue goes on. What is unanswered when the link ends is answered with an error.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Daemon.h"
#include "KestrinBLESDK/platform/RunLoop.h"
#include "LinkLine.h"
#include "NotificationStream.h"
#include "Peripheral.h"

namespace kestrin::bluez {

class LinkGatt final : public std::enable_shared_from_this<LinkGatt> {
 public:
  struct Setup {
    std::shared_ptr<LinkLine> line;
    std::shared_ptr<Peripheral> peripheral;
    std::weak_ptr<RunLoop> loop;
    /// A notification descriptor has hung up: the link is gone, whatever the daemon says.
    std::function<void()> hungUp;
  };

  /// From now on, until `close`, the line's requests are carried out.
  static std::shared_ptr<LinkGatt> open(Daemon& daemon, Setup setup);
  LinkGatt(Daemon& daemon, Setup setup);
  ~LinkGatt();

  /// The daemon has found every service and characteristic.
  void setResolved();
  [[nodiscard]] bool isResolved() const noexcept { return resolved_; }
  /// A characteristic's `Value` has changed on the bus.
  void valueChanged(const std::string& path, const std::vector<std::uint8_t>& value);
  /// Another property of a characteristic has changed.
  void characteristicChanged(const std::string& path);
  /// The link has ended: answers what is unanswered with `reason` and ends the subscriptions.
  void close(const NSError& reason);

 private:
  /// How a characteristic's notified values come.
  struct Subscription {
    std::shared_ptr<Characteristic> characteristic;
    std::unique_ptr<NotificationStream> stream;  ///< Null: they come as signals.
    std::uint64_t number = 0;
    bool isShared = false;  ///< The signals are there because another program asked for them.
  };
  using Answer =
      std::function<void(LinkGatt&, const std::optional<CallError>&, sdbus::MethodReply&)>;

  void carryOut(LinkRequest request);
  void discoverServices(LinkRequest request);
  void answerServices(const LinkRequest& request);
  void discoverCharacteristics(const LinkRequest& request);
  void enqueue(LinkRequest request);
  void startNext();
  void start(const LinkRequest& request);
  void read();
  void finishRead(const std::optional<CallError>& error, sdbus::MethodReply& reply);
  void write(const LinkRequest& request);
  void subscribe(const LinkRequest& request);
  void acquired(const std::optional<CallError>& error, sdbus::MethodReply& reply);
  void openStream(int descriptor);
  void streamEnded(const std::string& path, std::uint64_t number);
  void subscribeBySignal(bool othersDo);
  void unsubscribe(const LinkRequest& request);
  /// Calls a method for the running request; when `answer` has ended that, the next one starts.
  void call(const std::string& method, std::function<void(sdbus::MethodCall&)> arguments,
            Answer answer);

  /// The running request has ended.
  void end(const std::optional<NSError>& error);
  /// Reports the end of a request, whatever has ended it, after `found` has run on the
  /// application's side.
  void answer(const LinkRequest& request, const std::optional<NSError>& error,
              std::function<void(Peripheral&)> found = {});
  void postValue(const std::shared_ptr<Characteristic>& characteristic, const NSData& value);

  Daemon& daemon_;
  const Setup setup_;
  bool resolved_ = false;
  bool closed_ = false;
  std::vector<LinkRequest> discoveries_;  // Unanswered ones.
  std::map<std::string, std::shared_ptr<Service>> services_;
  std::map<std::string, std::shared_ptr<Characteristic>> characteristics_;
  std::map<std::string, Subscription> subscriptions_;
  std::deque<LinkRequest> requests_;
  std::optional<LinkRequest> running_;
  std::vector<NSData> heldBack_;  // Signalled values while that characteristic is being read.
  std::uint64_t nextSubscription_ = 1;
};

}  // namespace kestrin::bluez
