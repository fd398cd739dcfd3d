// The radio's own thread: a run loop that also serves one descriptor, the message bus, so that
// everything the radio knows is touched by this one thread.
//
// Threads: `post` and `isCurrent` from any thread; everything else on the thread that runs it.
// Lifetime: shared by its owner and the thread itself. Tasks posted after its end are dropped.
// Timers follow the clock that `create` is given. One that does not pass by itself is read again
// after each task.
// Errors: `create` returns null when the system has no descriptors left.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

#include "KestrinBLESDK/platform/Clock.h"
#include "KestrinBLESDK/platform/MainRunLoop.h"
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
  /// Ends `run` after the current turn.
  void end() { ended_ = true; }

 private:
  struct Watched {
    int descriptor;
    short events;
    MainRunLoop::WatchId id;
  };
  explicit BusThread(std::shared_ptr<Clock> clock);
  [[nodiscard]] bool canWatch();
  bool serveSource();
  void awaitSource();
  void watch(const std::optional<PollSource::Wait>& wait);
  void dropPending();

  const std::shared_ptr<Clock> clock_;
  std::atomic<std::thread::id> owner_{};
  std::mutex mutex_;
  bool closed_ = false;
  std::unique_ptr<MainRunLoop> loop_;  // Replaced at the end, with the lock held.
  bool ended_ = false;
  PollSource* source_ = nullptr;
  std::optional<Watched> watched_;
  std::optional<TimerQueue::Id> limit_;
};

}  // namespace kestrin::bluez
