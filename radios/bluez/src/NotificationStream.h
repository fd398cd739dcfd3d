// Drains a notification descriptor: a thread in a blocking receive takes every value at once, since
// the daemon drops what a slow reader leaves waiting.
//
// A value on its own is handed over at once. Where they come so dense that each would be handed
// over alone, the thread lets those of a millisecond gather.
//
// The descriptor keeps the boundaries of values, and a value may be empty, so an empty read is no
// end by itself. Every received message has its sender's credentials here, also an empty one; the
// end of the descriptor has none.
//
// Threads: `start` and `stop` on one thread; the handlers are called on the stream's own.
// Lifetime: owns the descriptor and the thread. After `stop` no handler is called.
// Errors: `start` returns null when the system gives no thread or the descriptor is not a socket.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <thread>

#include "KestrinBLESDK/platform/Clock.h"

namespace kestrin::bluez {

class NotificationStream {
 public:
  /// A value's bytes, valid during the call.
  using Value = std::span<const std::uint8_t>;
  struct Handlers {
    /// What was there to be received, at least one value.
    std::function<void(std::span<const Value>)> arrived;
    /// The other side has hung up; every value before that has arrived.
    std::function<void()> hungUp;
  };

  /// Takes the descriptor over, in any case.
  static std::unique_ptr<NotificationStream> start(
      int descriptor, Handlers handlers,
      std::shared_ptr<Clock> clock = std::make_shared<MonotonicClock>());
  ~NotificationStream();
  NotificationStream(const NotificationStream&) = delete;
  NotificationStream& operator=(const NotificationStream&) = delete;

  /// Delivers what the descriptor still holds and ends the thread.
  void stop();

 private:
  NotificationStream(int descriptor, Handlers handlers, std::shared_ptr<Clock> clock);
  bool prepare() const;
  void drain();

  const int descriptor_;
  const Handlers handlers_;
  const std::shared_ptr<Clock> clock_;
  std::atomic<bool> stopping_ = false;
  std::thread thread_;
};

}  // namespace kestrin::bluez
