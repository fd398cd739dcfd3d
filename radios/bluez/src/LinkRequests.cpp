// The queue of a link's requests: reads, writes and subscriptions. The other operations of
// `LinkGatt` are in LinkGatt.cpp.
//
// Threads: the radio's own thread. Lifetime: as the link's. Errors: see LinkGatt.h.
#include <utility>

#include "Errors.h"
#include "LinkGatt.h"
#include "Posting.h"
#include "ValueInbox.h"

namespace kestrin::bluez {
namespace {

constexpr char kCharacteristicInterface[] = "org.bluez.GattCharacteristic1";
// A peer may take 30 s to answer an attribute request (Bluetooth Core, Vol 3, Part F, 3.3.3), and a
// second one may stand before this.
constexpr Time kRequestLimit = std::chrono::seconds(65);

using CallOptions = std::map<std::string, sdbus::Variant>;

/// Where a stream's values go.
struct Delivery {
  Delivery(std::weak_ptr<RunLoop> itsLoop, std::shared_ptr<Peripheral> itsPeripheral,
           std::shared_ptr<Characteristic> itsCharacteristic)
      : loop(std::move(itsLoop)),
        peripheral(std::move(itsPeripheral)),
        characteristic(std::move(itsCharacteristic)) {}
  ValueInbox inbox;
  const std::weak_ptr<RunLoop> loop;
  const std::shared_ptr<Peripheral> peripheral;
  const std::shared_ptr<Characteristic> characteristic;
};

/// Has the main run loop take what is there. Of all that a task may hold one pointer costs least.
void post(const std::shared_ptr<Delivery>& delivery) {
  postTo(delivery->loop, [delivery] {
    const Values& values = delivery->inbox.take();
    for (std::size_t i = 0; i < values.size(); ++i) {
      delivery->peripheral->deliverValue(delivery->characteristic, NSData(values[i]));
    }
  });
}

void writeNoOptions(sdbus::MethodCall& call) { call << CallOptions{}; }

/// Whether values may still come by signal when the daemon gives no descriptor.
bool mayFallBack(const CallError& error) {
  return isDaemonError(error, "NotSupported") || isDaemonError(error, "NotPermitted") ||
         isDaemonError(error, "InProgress") ||
         error.name == "org.freedesktop.DBus.Error.UnknownMethod";
}

}  // namespace

void LinkGatt::enqueue(LinkRequest request) {
  requests_.push_back(std::move(request));
  startNext();
}

void LinkGatt::startNext() {
  while (!running_ && !requests_.empty() && !closed_) {
    running_ = std::move(requests_.front());
    requests_.pop_front();
    start(*running_);
  }
}

void LinkGatt::end(const std::optional<NSError>& error) {
  answer(*running_, error);
  running_.reset();
}

void LinkGatt::start(const LinkRequest& request) {
  switch (request.kind) {
    case LinkRequest::Kind::read:
      read();
      break;
    case LinkRequest::Kind::subscribe:
    case LinkRequest::Kind::takeOver:
      subscribe(request);
      break;
    case LinkRequest::Kind::unsubscribe:
      unsubscribe(request);
      break;
    case LinkRequest::Kind::write:
      write(request);
      break;
    case LinkRequest::Kind::discoverServices:
    case LinkRequest::Kind::discoverCharacteristics:
      break;
  }
}

void LinkGatt::call(const std::string& method, std::function<void(sdbus::MethodCall&)> arguments,
                    Answer answer) {
  daemon_.call(running_->characteristic->path(), kCharacteristicInterface, method, kRequestLimit,
               std::move(arguments),
               [weak = weak_from_this(), answer = std::move(answer)](
                   const std::optional<CallError>& error, sdbus::MethodReply& reply) {
                 const auto self = weak.lock();
                 if (!self || self->closed_) return;
                 answer(*self, error, reply);
                 self->startNext();
               });
}

void LinkGatt::read() {
  call("ReadValue", writeNoOptions,
       [](LinkGatt& self, const std::optional<CallError>& error, sdbus::MethodReply& reply) {
         self.finishRead(error, reply);
       });
}

// The daemon also signals a value that was read, before it answers the read. Where notified values
// come as signals too, those that came meanwhile were held back: the last one that equals the
// answer is the read's own.
void LinkGatt::finishRead(const std::optional<CallError>& error, sdbus::MethodReply& reply) {
  const auto bytes = error ? std::nullopt : readMessage<std::vector<std::uint8_t>>(reply);
  const std::optional<NSData> value =
      bytes ? std::optional(NSData(std::get<0>(*bytes))) : std::nullopt;
  auto notified = std::exchange(heldBack_, {});
  if (value) {
    const auto own = std::find(notified.rbegin(), notified.rend(), *value);
    if (own != notified.rend()) notified.erase(std::next(own).base());
  }
  for (const auto& one : notified) postValue(running_->characteristic, one);
  if (value) {
    postValue(running_->characteristic, *value);
    end(std::nullopt);
  } else {
    end(errorOf(error.value_or(CallError{"", "the daemon answered without a value"})));
  }
}

void LinkGatt::valueChanged(const std::string& path, const std::vector<std::uint8_t>& value) {
  const auto found = subscriptions_.find(path);
  if (found == subscriptions_.end() || found->second.stream) return;
  if (running_ && running_->kind == LinkRequest::Kind::read &&
      running_->characteristic->path() == path) {
    heldBack_.emplace_back(value);
  } else {
    postValue(found->second.characteristic, NSData(value));
  }
}

void LinkGatt::write(const LinkRequest& request) {
  const bool withResponse =
      request.type == CBCharacteristicWriteType::CBCharacteristicWriteWithResponse;
  call(
      "WriteValue",
      [value = request.value, withResponse](sdbus::MethodCall& call) {
        const std::string type = withResponse ? "request" : "command";
        call << std::vector<std::uint8_t>(value.begin(), value.end())
             << CallOptions{{"type", sdbus::Variant(type)}};
      },
      [](LinkGatt& self, const std::optional<CallError>&, sdbus::MethodReply&) {
        self.end(std::nullopt);
      });
}

void LinkGatt::subscribe(const LinkRequest& request) {
  if (subscriptions_.contains(request.characteristic->path())) {
    end(std::nullopt);
    return;
  }
  call("AcquireNotify", writeNoOptions,
       [](LinkGatt& self, const std::optional<CallError>& error, sdbus::MethodReply& reply) {
         self.acquired(error, reply);
       });
}

void LinkGatt::acquired(const std::optional<CallError>& error, sdbus::MethodReply& reply) {
  if (error && mayFallBack(*error)) {
    subscribeBySignal(isDaemonError(*error, "InProgress"));
    return;
  }
  auto descriptor = error ? std::nullopt : readMessage<sdbus::UnixFd, std::uint16_t>(reply);
  if (descriptor && std::get<0>(*descriptor).isValid()) {
    openStream(std::get<0>(*descriptor).release());
  } else {
    end(errorOf(error.value_or(CallError{"", "the daemon answered without a descriptor"})));
  }
}

void LinkGatt::openStream(int descriptor) {
  const auto characteristic = running_->characteristic;
  const auto number = nextSubscription_++;
  const auto delivery = std::make_shared<Delivery>(setup_.loop, setup_.peripheral, characteristic);
  auto arrived = [delivery](std::span<const ValueBytes> values) {
    if (delivery->inbox.add(values)) post(delivery);
  };
  auto hungUp = [line = setup_.line, weak = weak_from_this(), path = characteristic->path(),
                 number] {
    line->post([weak, path, number] {
      if (const auto self = weak.lock()) self->streamEnded(path, number);
    });
  };
  auto stream = NotificationStream::start(descriptor, {std::move(arrived), std::move(hungUp)});
  if (!stream) {
    end(failure("the system has no thread to spare"));
    return;
  }
  subscriptions_[characteristic->path()] = {
      .characteristic = characteristic, .stream = std::move(stream), .number = number};
  end(std::nullopt);
  if (delivery->inbox.open()) post(delivery);
}

void LinkGatt::streamEnded(const std::string& path, std::uint64_t number) {
  const auto found = subscriptions_.find(path);
  if (!closed_ && found != subscriptions_.end() && found->second.number == number) {
    setup_.hungUp();
  }
}

// The daemon signals each value once for every program that has asked for signals, and everybody
// hears all of them. Where another program has asked already, asking too would double every value.
void LinkGatt::subscribeBySignal(bool othersDo) {
  const auto& characteristic = running_->characteristic;
  const auto* object = daemon_.tree().characteristic(characteristic->path());
  const bool isShared = othersDo && object != nullptr && object->notifying;
  // From here on signals are notified values: one may stand right before the answer.
  subscriptions_[characteristic->path()] = {.characteristic = characteristic,
                                            .stream = nullptr,
                                            .number = nextSubscription_++,
                                            .isShared = isShared};
  if (isShared) {
    end(std::nullopt);
    return;
  }
  call("StartNotify", {},
       [](LinkGatt& self, const std::optional<CallError>& error, sdbus::MethodReply&) {
         if (error) self.subscriptions_.erase(self.running_->characteristic->path());
         self.end(error ? std::optional(errorOf(*error)) : std::nullopt);
       });
}

void LinkGatt::characteristicChanged(const std::string& path) {
  const auto found = subscriptions_.find(path);
  const auto* object = daemon_.tree().characteristic(path);
  if (found == subscriptions_.end() || !found->second.isShared) return;
  if (object == nullptr || object->notifying) return;
  // The other program has given up its subscription.
  const auto characteristic = found->second.characteristic;
  subscriptions_.erase(found);
  enqueue({.kind = LinkRequest::Kind::takeOver, .characteristic = characteristic});
}

void LinkGatt::unsubscribe(const LinkRequest& request) {
  const auto found = subscriptions_.find(request.characteristic->path());
  const bool bySignal =
      found != subscriptions_.end() && !found->second.stream && !found->second.isShared;
  if (found != subscriptions_.end()) subscriptions_.erase(found);
  if (!bySignal) {
    // The daemon ends a subscription when its descriptor is closed; another program's stays.
    end(std::nullopt);
    return;
  }
  call("StopNotify", {},
       [](LinkGatt& self, const std::optional<CallError>& error, sdbus::MethodReply&) {
         self.end(error ? std::optional(errorOf(*error)) : std::nullopt);
       });
}

}  // namespace kestrin::bluez
