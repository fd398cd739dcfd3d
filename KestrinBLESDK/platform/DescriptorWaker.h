// Makes a descriptor readable when a run loop has something to do, for event loops that host it.
//
// A pipe carries at most one byte. A byte that is due later is written by a thread that waits for
// it, since POSIX has no descriptor that a point in time makes readable.
//
// Threads: all operations from any thread. Lifetime: owns the pipe and the thread.
// Errors: `create` answers null when the system gives no pipe or no thread.
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

#include "KestrinBLESDK/platform/Clock.h"

namespace kestrin {

class DescriptorWaker {
 public:
  static std::unique_ptr<DescriptorWaker> create();
  ~DescriptorWaker();
  DescriptorWaker(const DescriptorWaker&) = delete;
  DescriptorWaker& operator=(const DescriptorWaker&) = delete;

  [[nodiscard]] int readable() const noexcept { return readEnd_; }
  /// Readable from now on.
  void setReadable();
  /// Readable from `due` on, or not at all when it is absent. Replaces what was set before. `due`
  /// is a time of the monotonic clock.
  void setDue(std::optional<Time> due);

 private:
  DescriptorWaker(int readEnd, int writeEnd);
  void waitAndSignal();
  void signalLocked();
  void drainLocked();

  MonotonicClock clock_;
  const int readEnd_;
  const int writeEnd_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::optional<Time> due_;
  bool signalled_ = false;
  bool ending_ = false;
  std::thread thread_;
};

}  // namespace kestrin
