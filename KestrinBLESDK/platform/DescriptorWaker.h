// Makes a descriptor readable when a run loop has something to do, for event loops that host it.
//
// A byte that is due later, or when a watched descriptor is ready, is written by a thread that
// waits for it, since POSIX has no descriptor that a point in time makes readable.
//
// Threads: all operations from any thread. Lifetime: owns the pipes and the thread.
// Errors: `create` returns null when the system gives no pipe or no thread.
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

#include "KestrinBLESDK/platform/Clock.h"
#include "KestrinBLESDK/platform/DescriptorWatches.h"
#include "KestrinBLESDK/platform/SignalPipe.h"

namespace kestrin {

class DescriptorWaker {
 public:
  static std::unique_ptr<DescriptorWaker> create();
  ~DescriptorWaker();
  DescriptorWaker(const DescriptorWaker&) = delete;
  DescriptorWaker& operator=(const DescriptorWaker&) = delete;

  [[nodiscard]] int readable() const noexcept { return told_->readable(); }
  /// Readable from now on.
  void setReadable();
  /// Readable from `due` on, or not at all when it is absent, but for what `watch` found. Replaces
  /// what was set before. `due` is a time of the monotonic clock.
  void setDue(std::optional<Time> due);
  /// Readable, too, as soon as `look` finds something ready, and until the next call. Replaces what
  /// was watched before. `setReadable` or `setDue` follows.
  void watch(Look look);

 private:
  DescriptorWaker(std::unique_ptr<SignalPipe> told, std::unique_ptr<SignalPipe> wakeUp);
  void waitAndSignal();
  void waitForDescriptors(std::unique_lock<std::mutex>& lock);
  void wakeThreadLocked();

  MonotonicClock clock_;
  const std::unique_ptr<SignalPipe> told_;
  const std::unique_ptr<SignalPipe> wakeUp_;  // For the thread while it polls.
  std::mutex mutex_;
  std::condition_variable changed_;
  std::optional<Time> due_;
  Look look_;  // Empty when something was found: whoever turns the loop watches again.
  bool found_ = false;
  bool polling_ = false;
  bool ending_ = false;
  std::thread thread_;
};

}  // namespace kestrin
