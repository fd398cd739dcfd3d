// SIGINT and SIGTERM as an ordinary task on a run loop: the first asks the command to end cleanly,
// a second one ends the process at once.
//
// Threads: made and dropped on one thread, before any other thread is started (a thread that does
// not block the signals would be killed by them). A thread of its own waits for them.
// Lifetime: drop it before the loop; from then on the signals act as before.
// Errors: none.
#pragma once

#include <KestrinBLESDK/platform/MainRunLoop.h>

#include <atomic>
#include <csignal>
#include <functional>
#include <thread>

namespace kestrin::app {

/// Keeps both signals waiting as long as it lives, in this thread and those it starts.
class BlockedInterruptSignals {
 public:
  BlockedInterruptSignals();
  ~BlockedInterruptSignals();
  BlockedInterruptSignals(const BlockedInterruptSignals&) = delete;
  BlockedInterruptSignals& operator=(const BlockedInterruptSignals&) = delete;

 private:
  sigset_t before_{};
};

/// Posts `onInterrupt` to `loop` at the first signal. Both must be blocked meanwhile.
class InterruptSignals {
 public:
  InterruptSignals(MainRunLoop& loop, std::function<void()> onInterrupt);
  ~InterruptSignals();
  InterruptSignals(const InterruptSignals&) = delete;
  InterruptSignals& operator=(const InterruptSignals&) = delete;

 private:
  void wait();

  MainRunLoop& loop_;
  const std::function<void()> onInterrupt_;
  std::atomic<bool> ending_ = false;
  std::thread thread_;
};

}  // namespace kestrin::app
