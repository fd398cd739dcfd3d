// Drains a notification descriptor: a thread in a blocking receive takes every value at once, since
// the daemon drops what a slow reader leaves waiting.
//
// The descriptor keeps the boundaries of values, and a value may be empty, so an empty read is no
// end by itself. Every received message carries its sender's credentials here, also an empty one;
// the end of the descriptor carries none.
//
// Threads: `start` and `stop` on one thread; the handlers are called on the stream's own.
// Lifetime: owns the descriptor and the thread. After `stop` no handler is called.
// Errors: `start` answers null when the system gives no thread or the descriptor is no socket.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "KestrinBLESDK/platform/NSData.h"

namespace kestrin::bluez {

/// Values on their way to the main run loop: unbounded, with one wake-up for a batch. Closed at
/// first, so that an event can be put in front of the first value.
class ValueInbox {
 public:
  /// Adds a value; answers whether somebody must be told to take what is there.
  bool add(NSData value);
  /// Lets values through from now on; answers as `add` does.
  bool open();
  std::vector<NSData> take();

 private:
  std::mutex mutex_;
  std::vector<NSData> values_;
  bool open_ = false;
};

class NotificationStream {
 public:
  struct Handlers {
    std::function<void(NSData)> arrived;
    /// The other side has hung up; every value before that has arrived.
    std::function<void()> hungUp;
  };

  /// Takes the descriptor over, in any case.
  static std::unique_ptr<NotificationStream> start(int descriptor, Handlers handlers);
  ~NotificationStream();
  NotificationStream(const NotificationStream&) = delete;
  NotificationStream& operator=(const NotificationStream&) = delete;

  /// Delivers what the descriptor still holds and ends the thread.
  void stop();

 private:
  NotificationStream(int descriptor, Handlers handlers);
  bool prepare() const;
  void drain();

  const int descriptor_;
  const Handlers handlers_;
  std::atomic<bool> stopping_ = false;
  std::thread thread_;
};

}  // namespace kestrin::bluez
