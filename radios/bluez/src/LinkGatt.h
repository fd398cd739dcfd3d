// The attributes of one link: answers to discoveries, and a queue of requests that are carried out
// one after another in the order in which they were made.
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
#include "NotificationStream.h"
#include "Peripheral.h"

namespace kestrin::bluez {

class LinkGatt final : public std::enable_shared_from_this<LinkGatt> {
 public:
  using UUIDs = std::optional<std::vector<CBUUID>>;
  struct Setup {
    LinkAddress address;
    std::shared_ptr<Peripheral> peripheral;
    std::weak_ptr<RunLoop> loop;
    /// A notification descriptor has hung up: the link is gone, whatever the daemon says.
    std::function<void()> hungUp;
  };

  /// `thread` is shared, since a notification stream's thread posts to it.
  LinkGatt(std::weak_ptr<BusThread> thread, Daemon& daemon, Setup setup);
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

  void discoverServices(const UUIDs& wanted);
  void discoverCharacteristics(const UUIDs& wanted, const std::shared_ptr<Service>& service);
  void read(const std::shared_ptr<Characteristic>& characteristic);
  void setNotify(bool enabled, const std::shared_ptr<Characteristic>& characteristic);
  void write(const NSData& value, const std::shared_ptr<Characteristic>& characteristic,
             CBCharacteristicWriteType type);

 private:
  /// `takeOver` subscribes once more, unasked, where another program's subscription was shared.
  enum class Kind { read, subscribe, takeOver, unsubscribe, write };
  struct Request {
    Kind kind = Kind::read;
    std::shared_ptr<Characteristic> characteristic;
    NSData value;
    CBCharacteristicWriteType type = CBCharacteristicWriteType::CBCharacteristicWriteWithResponse;
  };
  /// How a characteristic's notified values come.
  struct Subscription {
    std::shared_ptr<Characteristic> characteristic;
    std::unique_ptr<NotificationStream> stream;  ///< Null: they come as signals.
    std::uint64_t number = 0;
    bool isShared = false;  ///< The signals are there because another program asked for them.
  };
  using Answer =
      std::function<void(LinkGatt&, const std::optional<CallError>&, sdbus::MethodReply&)>;

  void answerServices(const UUIDs& wanted);
  void enqueue(Request request);
  void startNext();
  void start(const Request& request);
  void finished();
  void startRead(const Request& request);
  void finishRead(const std::shared_ptr<Characteristic>& characteristic,
                  const std::optional<CallError>& error, sdbus::MethodReply& reply);
  void startWrite(const Request& request);
  void subscribe(const Request& request);
  void acquired(const Request& request, const std::optional<CallError>& error,
                sdbus::MethodReply& reply);
  void subscribeBySignal(const Request& request, bool othersDo);
  void answerSubscribe(const Request& request, const std::optional<NSError>& error);
  void unsubscribe(const std::shared_ptr<Characteristic>& characteristic);
  void openStream(const Request& request, int descriptor);
  void streamEnded(const std::string& path, std::uint64_t number);
  void call(const std::shared_ptr<Characteristic>& characteristic, const std::string& method,
            std::function<void(sdbus::MethodCall&)> arguments, Answer answer);

  void postValue(const std::shared_ptr<Characteristic>& characteristic, const NSData& value);
  void postReadError(const std::shared_ptr<Characteristic>& characteristic, const NSError& error);
  void postState(const std::shared_ptr<Characteristic>& characteristic,
                 const std::optional<NSError>& error);
  void refuse(const Request& request, const NSError& reason);

  const std::weak_ptr<BusThread> thread_;
  Daemon& daemon_;
  const Setup setup_;
  bool resolved_ = false;
  bool closed_ = false;
  std::vector<UUIDs> discoveries_;  // Unanswered ones.
  std::map<std::string, std::shared_ptr<Service>> services_;
  std::map<std::string, std::shared_ptr<Characteristic>> characteristics_;
  std::map<std::string, Subscription> subscriptions_;
  std::deque<Request> requests_;
  std::optional<Request> running_;
  std::vector<NSData> heldBack_;  // Signalled values while that characteristic is being read.
  std::uint64_t nextSubscription_ = 1;
};

}  // namespace kestrin::bluez
