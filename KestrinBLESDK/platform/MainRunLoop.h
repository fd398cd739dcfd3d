/// \class kestrin::MainRunLoop
/// The run loop that the whole library runs on, with real or virtual time.
///
/// An application turns it with one of the `run` operations, or lets its own event loop host it:
/// the descriptor is readable whenever a turn has something to do, and `runOneTurn` does it.
///
/// Threads: one thread turns a loop; `post`, `arm`, `cancel`, the delayed requests, `now` and
/// `stop` may be called from any thread. No lock is held while a task runs.
///
/// Lifetime: destroy it on the thread that turned it, not from inside a task. What is pending is
/// dropped.
///
/// Errors: a task that throws ends the turn; the exception leaves the `run` operation, and the rest
/// stays pending. `fileDescriptor` answers -1 when the system has no descriptors left.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

#include "KestrinBLESDK/platform/Clock.h"
#include "KestrinBLESDK/platform/Export.h"
#include "KestrinBLESDK/platform/RunLoop.h"
#include "KestrinBLESDK/platform/TimerQueue.h"

namespace kestrin {
/// \addtogroup platform
/// @{

class DescriptorWaker;

class KESTRIN_EXPORT MainRunLoop final : public RunLoop {
 public:
  /// A loop on a clock of its own, real time unless another is given. Nothing runs until it is
  /// turned.
  explicit MainRunLoop(std::shared_ptr<Clock> clock = std::make_shared<MonotonicClock>());
  /// Drops what is pending.
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

  /// Runs everything that was due when the turn began and waits for nothing. Answers whether
  /// anything ran. From inside a task it runs nothing and answers false.
  bool runOneTurn();
  /// Whether a turn is running, on this or another thread: a `run` operation would do nothing.
  [[nodiscard]] bool isTurning() const;
  /// Turns until `stop`. With virtual time also until nothing is pending.
  void run();
  /// Turns until the loop's time is `deadline`, or `stop`; then everything due by then has run.
  /// What is due later does not keep it running, so a deadline in the past ends it at once.
  void runUntil(Time deadline);
  /// `runUntil` a span from now.
  void runFor(Time duration) { runUntil(timeAfter(now(), duration)); }
  /// Turns until `done` answers true, asked before each turn; answers false when `deadline` or
  /// `stop` came first.
  bool runUntil(Time deadline, const std::function<bool()>& done);
  /// Ends the running `run` operation after the current turn, or the next one at once.
  void stop();
  /// Blocks the calling thread; no event runs meanwhile. Virtual time moves on by as much, on the
  /// loop's own thread also within a turn: what is armed later in the same turn counts from then.
  void sleepFor(Time duration);
  /// A descriptor that is readable whenever `runOneTurn` has something to do; owned by the loop.
  /// With virtual time, which a `run` operation or a sleep moves on and nothing else does, it tells
  /// of work that is due already and of none that is due later.
  int fileDescriptor();

 private:
  enum class Wake { due, stopped, deadline, never };

  [[nodiscard]] Time nowLocked() const;
  TimerId armLocked(Time delay, Task task, std::optional<TimerQueue::Request> request);
  void wakeLocked();
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
};

/// @}

}  // namespace kestrin
