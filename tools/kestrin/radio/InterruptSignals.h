// The signals by which a terminal or a user steers the process, as ordinary tasks on a run loop.
//
// SIGINT, SIGTERM and SIGHUP ask the command to end cleanly; a second one ends the process at once.
// SIGTSTP asks it to be suspended; one more, before the loop has taken that up, stops it at once.
// SIGCONT and SIGWINCH are told.
// SIGQUIT ends the process at once. SIGHUP and SIGTSTP stay ignored where the parent had them
// ignored, as nohup(1) does.
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

/// Keeps the signals waiting as long as it lives, in this thread and those it starts.
class BlockedInterruptSignals {
 public:
  BlockedInterruptSignals();
  ~BlockedInterruptSignals();
  BlockedInterruptSignals(const BlockedInterruptSignals&) = delete;
  BlockedInterruptSignals& operator=(const BlockedInterruptSignals&) = delete;

 private:
  sigset_t before_{};
};

/// What the signals do, on the loop but for the last one. What is left empty does nothing.
struct SignalTasks {
  std::function<void()> interrupt{};
  std::function<void()> suspend{};
  std::function<void()> continued{};
  std::function<void()> resized{};
  /// Puts the terminal right before the process ends or stops at once; on the waiting thread.
  std::function<void()> beforeEnd{};
};

/// Posts the tasks to `loop`. The signals must be blocked meanwhile.
class InterruptSignals {
 public:
  InterruptSignals(MainRunLoop& loop, SignalTasks tasks);
  ~InterruptSignals();
  InterruptSignals(const InterruptSignals&) = delete;
  InterruptSignals& operator=(const InterruptSignals&) = delete;

 private:
  void wait();
  void take(int received);
  void post(const std::function<void()>& task);

  MainRunLoop& loop_;
  const SignalTasks tasks_;
  const sigset_t awaited_;
  std::atomic<bool> ending_ = false;
  std::atomic<bool> suspending_ = false;  // A task to suspend waits for its turn.
  bool interrupted_ = false;              // The waiting thread's.
  std::thread thread_;
};

/// Stops this process as the terminal would have.
void stopThisProcess();

}  // namespace kestrin::app
