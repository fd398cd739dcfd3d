// The radio's own thread: it runs posted tasks and timers and serves one descriptor, the message
// bus, so that everything the radio knows is touched by this one thread.
//
// Threads: `post` and `isCurrent` from any thread; everything else on the thread that runs it.
// Lifetime: shared by its owner and the thread itself. Tasks posted after its end are dropped.
// Timers follow the clock that `create` is given. One that does not pass by itself is read again
// after each task.
// Errors: `create` answers null when the system has no descriptors left.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include "KestrinBLESDK/platform/Clock.h"
#include "KestrinBLESDK/platform/TimerQueue.h"

namespace kestrin::bluez {

/// What the thread polls besides its own tasks.
class PollSource {
 public:
  struct Wait {
    int descriptor = -1;
    short events = 0;
    /// How long the source can be left alone; absent: until the descriptor is ready.
    std::optional<Time> limit;
  };
  virtual ~PollSource() = default;
  /// What to wait for; absent when there is nothing.
  virtual std::optional<Wait> wait() noexcept = 0;
  /// Does what can be done without waiting. Called in every round.
  virtual void process() noexcept = 0;
};

class BusThread {
 public:
  using Task = std::function<void()>;

  static std::shared_ptr<BusThread> create(
      std::shared_ptr<Clock> clock = std::make_shared<MonotonicClock>());
  ~BusThread();
  BusThread(const BusThread&) = delete;
  BusThread& operator=(const BusThread&) = delete;

  /// Runs tasks, timers and the source until `end`.
  void run();
  /// Runs `task` on the thread, in order of posting.
  void post(Task task);
  [[nodiscard]] bool isCurrent() const noexcept;

  TimerQueue::Id arm(Time delay, Task task);
  /// Forgets a timer and clears its id; harmless when it has run.
  void cancel(std::optional<TimerQueue::Id>& timer);
  void setSource(PollSource* source) { source_ = source; }
  /// Ends `run` after the current task.
  void end() { ended_ = true; }

 private:
  BusThread(int wakeUp, std::shared_ptr<Clock> clock) : wakeUp_(wakeUp), clock_(std::move(clock)) {}
  void runTasks();
  void runTimers();
  void waitForWork();
  void dropTasks();

  const int wakeUp_;
  const std::shared_ptr<Clock> clock_;
  std::atomic<std::thread::id> owner_{};
  std::mutex mutex_;
  std::vector<Task> tasks_;
  bool closed_ = false;
  bool ended_ = false;
  TimerQueue timers_;
  PollSource* source_ = nullptr;
};

}  // namespace kestrin::bluez
