/// \class kestrin::MainRunLoop
/// The run loop that the whole library runs on, with real or virtual time.
///
/// An application turns it with one of the `run` operations, or lets its own event loop host it:
/// the descriptor is readable whenever a turn has something to do, and `runOneTurn` does it. A loop
/// can watch descriptors, too: `watch`.
///
/// Threads: one thread turns a loop; `post`, `arm`, `cancel`, `watch`, `unwatch`, the delayed
/// requests, `now` and `stop` may be called from any thread. No lock is held while a task or a
/// handler runs.
///
/// Lifetime: destroy it on the thread that turned it, not from inside a task. What is pending and
/// watched is dropped.
///
/// Errors: a task or handler that throws ends the turn; the exception leaves the `run` operation,
/// and the rest stays pending. `fileDescriptor` returns -1, and `watch` nothing, when the system
/// has no descriptors left.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

#include "KestrinBLESDK/platform/Clock.h"
#include "KestrinBLESDK/platform/Export.h"
#include "KestrinBLESDK/platform/Readiness.h"
#include "KestrinBLESDK/platform/RunLoop.h"
#include "KestrinBLESDK/platform/TimerQueue.h"

namespace kestrin {
/// \addtogroup platform
/// @{

class DescriptorWaker;
class DescriptorWatches;
class SignalPipe;

class KESTRIN_EXPORT MainRunLoop final : public RunLoop {
 public:
  /// Names one watched descriptor; never used again for another.
  using WatchId = std::uint64_t;
  /// What runs when a watched descriptor is ready; it is given what the descriptor is ready for.
  using WatchHandler = std::function<void(Readiness)>;

  /// A loop on a clock of its own, real time unless another is given. Nothing runs until it is
  /// turned.
  explicit MainRunLoop(std::shared_ptr<Clock> clock = std::make_shared<MonotonicClock>());
  /// Drops what is pending and watched.
  ~MainRunLoop() override;
  MainRunLoop(const MainRunLoop&) = delete;
  MainRunLoop& operator=(const MainRunLoop&) = delete;

  /// The process's main run loop, in real time. It lives for the life of the process.
  static const std::shared_ptr<MainRunLoop>& main();

  [[nodiscard]] Time now() const override;
  void post(Task task) override;
  TimerId arm(Time delay, Task task) override;
  void cancel(TimerId timer) override;
  void performSelector_withObject_afterDelay(std::shared_ptr<void> target, const SEL& selector,
                                             std::shared_ptr<void> object, double seconds) override;
  void cancelPreviousPerformRequestsWithTarget_selector_object(const void* target,
                                                               const SEL& selector,
                                                               const void* object) override;

  /// Calls `handler` in a turn whenever the descriptor is ready for one of `events`, and in every
  /// turn as long as it is: the handler reads or writes what there is, or ends the watch. Hang-up,
  /// failure and a number that names no open descriptor are reported too, asked for or not; the
  /// last one ends the watch. In a turn the handlers come behind the tasks, in order of watching;
  /// what is watched in a turn is looked at in a later one.
  ///
  /// The descriptor stays the caller's: `unwatch` it before closing it. A close does not end a
  /// wait, and what gets the number next would be watched. Several may watch one descriptor; then
  /// read and write it without blocking, as another may have been first.
  ///
  /// Virtual time knows nothing of the world outside: before it moves on, descriptors are looked at
  /// without waiting, and it does not move on while one is ready.
  ///
  /// Absent when `descriptor` is not open, `handler` is empty, or the system has no descriptors
  /// left for the loop's own use.
  std::optional<WatchId> watch(int descriptor, Readiness events, WatchHandler handler);
  /// Ends a watch; harmless when it has ended. On the loop's own thread the handler is not called
  /// any more; from another one a call that has begun goes on.
  void unwatch(WatchId watch);

  /// Runs everything that was due when the turn began, then the handlers of the watched descriptors
  /// that are ready, and waits for nothing. Returns whether anything ran. From inside a task it
  /// runs nothing and returns false.
  bool runOneTurn();
  /// Whether a turn is running, on this or another thread: a `run` operation would do nothing.
  [[nodiscard]] bool isTurning() const;
  /// Turns until `stop`. With virtual time also until nothing is pending or watched: while only
  /// descriptors are left it waits for them.
  void run();
  /// Turns until the loop's time is `deadline`, or `stop`; then everything due by then has run.
  /// What is due later does not keep it running, so a deadline in the past ends it at once.
  void runUntil(Time deadline);
  /// `runUntil` a span from now.
  void runFor(Time duration) { runUntil(timeAfter(now(), duration)); }
  /// Turns until `done` returns true, asked before each turn; returns false when `deadline` or
  /// `stop` came first.
  bool runUntil(Time deadline, const std::function<bool()>& done);
  /// Ends the running `run` operation after the current turn, or the next one at once.
  void stop();
  /// Blocks the calling thread; no event runs meanwhile. Virtual time moves on by as much, on the
  /// loop's own thread also within a turn: what is armed later in the same turn counts from then.
  void sleepFor(Time duration);
  /// A descriptor that is readable whenever `runOneTurn` has something to do, a watched descriptor
  /// that is ready included, until its handler has run; owned by the loop. With virtual time, which
  /// a `run` operation or a sleep moves on and nothing else does, it reports work that is due
  /// already and none that is due later.
  int fileDescriptor();

 private:
  enum class Wake { due, stopped, deadline, never };
  enum class Looked { ready, changed, nothing, refused };

  [[nodiscard]] Time nowLocked() const;
  TimerId armLocked(Time delay, Task task, std::optional<TimerQueue::Request> request);
  void wakeLocked();
  void interruptWaitLocked();
  void watchAgainLocked();
  Looked lookAtDescriptors(std::unique_lock<std::mutex>& lock, std::optional<Time> limit);
  bool runReady(WatchId barrier);
  Wake waitForWork(std::optional<Time> deadline);
  Task takeDue(Time turnStart, TimerQueue::Id barrier);
  bool turnsUntil(std::optional<Time> deadline, const std::function<bool()>& done);

  const std::shared_ptr<Clock> clock_;
  const bool timePasses_;  // By itself, also within a turn.
  mutable std::mutex mutex_;
  std::condition_variable wakeUp_;
  TimerQueue queue_;
  std::optional<Time> turnTime_;  // While a turn runs: where virtual time stands in it.
  std::thread::id turnThread_;
  bool stopRequested_ = false;
  std::unique_ptr<DescriptorWaker> waker_;  // Made when the descriptor is first asked for.
  // While nothing is watched the loop waits by a condition, which costs less.
  const std::unique_ptr<DescriptorWatches> watches_;
  std::unique_ptr<SignalPipe> endOfPoll_;  // Made with the first watch.
  bool polling_ = false;
};

/// @}

}  // namespace kestrin
