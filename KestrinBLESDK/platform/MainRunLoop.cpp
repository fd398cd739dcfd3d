#include "KestrinBLESDK/platform/MainRunLoop.h"

#include <fcntl.h>

#include <algorithm>
#include <utility>

#include "KestrinBLESDK/platform/DescriptorWaker.h"
#include "KestrinBLESDK/platform/DescriptorWatches.h"
#include "KestrinBLESDK/platform/SignalPipe.h"

namespace kestrin {

RunLoop::~RunLoop() = default;

MainRunLoop::MainRunLoop(std::shared_ptr<Clock> clock)
    : clock_(std::move(clock)),
      timePasses_(clock_->passesByItself()),
      watches_(std::make_unique<DescriptorWatches>()) {}

// The queue goes last-armed state and all while no lock is held: a task's captures may call back.
MainRunLoop::~MainRunLoop() {
  waker_.reset();
  TimerQueue pending;
  DescriptorWatches watched;
  const std::scoped_lock lock(mutex_);
  std::swap(pending, queue_);
  std::swap(watched, *watches_);
}

const std::shared_ptr<MainRunLoop>& MainRunLoop::main() {
  // Never destroyed: delegates and radios of other static objects may still use it at exit.
  static const auto* const loop = new std::shared_ptr<MainRunLoop>(std::make_shared<MainRunLoop>());
  return *loop;
}

Time MainRunLoop::nowLocked() const {
  // Real time is always read: a delay that is armed after long work counts from then.
  if (!timePasses_ && turnTime_ && turnThread_ == std::this_thread::get_id()) return *turnTime_;
  return clock_->now();
}

Time MainRunLoop::now() const {
  const std::scoped_lock lock(mutex_);
  return nowLocked();
}

RunLoop::TimerId MainRunLoop::armLocked(Time delay, Task task,
                                        std::optional<TimerQueue::Request> request) {
  const Time due = timeAfter(nowLocked(), std::max(delay, Time::zero()));
  const auto id = queue_.arm(due, std::move(task), request);
  wakeLocked();
  return id;
}

void MainRunLoop::post(Task task) { arm(Time::zero(), std::move(task)); }

RunLoop::TimerId MainRunLoop::arm(Time delay, Task task) {
  const std::scoped_lock lock(mutex_);
  return armLocked(delay, std::move(task), std::nullopt);
}

void MainRunLoop::cancel(TimerId timer) {
  Task released;  // Outlives the lock: releasing a task may destroy what calls back.
  const std::scoped_lock lock(mutex_);
  released = queue_.cancel(timer);
}

void MainRunLoop::performSelector_withObject_afterDelay(std::shared_ptr<void> target,
                                                        const SEL& selector,
                                                        std::shared_ptr<void> object,
                                                        double seconds) {
  if (!target || selector.perform == nullptr) return;
  const TimerQueue::Request request{target.get(), selector.name, object.get()};
  const std::scoped_lock lock(mutex_);
  armLocked(
      timeFromSeconds(seconds),
      [perform = selector.perform, target = std::move(target), object = std::move(object)] {
        perform(target.get(), object);
      },
      request);
}

void MainRunLoop::cancelPreviousPerformRequestsWithTarget_selector_object(const void* target,
                                                                          const SEL& selector,
                                                                          const void* object) {
  std::vector<Task> released;
  const std::scoped_lock lock(mutex_);
  released = queue_.cancelAll({target, selector.name, object});
}

RunLoop::Task MainRunLoop::takeDue(Time turnStart, TimerQueue::Id barrier) {
  const std::scoped_lock lock(mutex_);
  return queue_.takeDue(turnStart, barrier);
}

std::optional<MainRunLoop::WatchId> MainRunLoop::watch(int descriptor, Readiness events,
                                                       WatchHandler handler) {
  if (!handler || ::fcntl(descriptor, F_GETFD) < 0) return std::nullopt;
  const std::scoped_lock lock(mutex_);
  if (!endOfPoll_) endOfPoll_ = SignalPipe::create();
  if (!endOfPoll_) return std::nullopt;
  const WatchId id = watches_->add(descriptor, events, std::move(handler));
  watchAgainLocked();
  wakeLocked();
  return id;
}

void MainRunLoop::unwatch(WatchId watch) {
  DescriptorWatches::SharedHandler released;  // Outlives the lock, as with `cancel`.
  const std::scoped_lock lock(mutex_);
  released = watches_->remove(watch);
  if (!released) return;
  watchAgainLocked();
  wakeLocked();
}

bool MainRunLoop::runReady(WatchId barrier) {
  Look look;
  {
    const std::scoped_lock lock(mutex_);
    look = watches_->look(barrier);
  }
  look.take(Time::zero());
  bool ran = false;
  for (const auto& [id, readiness] : look.found()) {
    DescriptorWatches::SharedHandler handler;
    {
      const std::scoped_lock lock(mutex_);
      const bool ended = hasAny(readiness, Readiness::closed);
      handler = ended ? watches_->remove(id) : watches_->handler(id);
    }
    if (!handler) continue;
    (*handler)(readiness);
    ran = true;
  }
  return ran;
}

bool MainRunLoop::runOneTurn() {
  Time start{};
  TimerQueue::Id barrier = 0;
  bool watching = false;
  WatchId watchBarrier = 0;
  {
    const std::scoped_lock lock(mutex_);
    if (turnTime_) return false;
    start = clock_->now();
    turnTime_ = start;
    turnThread_ = std::this_thread::get_id();
    // What is armed from here on belongs to a later turn, so that a task that arms itself again
    // without delay cannot hold the loop.
    barrier = queue_.nextId();
    watching = !watches_->empty();
    watchBarrier = watches_->nextId();
  }
  struct EndOfTurn {
    MainRunLoop& loop;
    const bool watching;
    ~EndOfTurn() {
      const std::scoped_lock lock(loop.mutex_);
      loop.turnTime_.reset();
      if (watching) loop.watchAgainLocked();
      loop.wakeLocked();
    }
  } const endOfTurn{*this, watching};
  bool ran = false;
  for (Task task = takeDue(start, barrier); task; task = takeDue(start, barrier)) {
    task();
    ran = true;
  }
  if (watching && runReady(watchBarrier)) ran = true;
  return ran;
}

bool MainRunLoop::isTurning() const {
  const std::scoped_lock lock(mutex_);
  return turnTime_.has_value();
}

void MainRunLoop::interruptWaitLocked() {
  wakeUp_.notify_all();
  if (polling_) endOfPoll_->signal();
}

void MainRunLoop::watchAgainLocked() {
  if (waker_) waker_->watch(watches_->look());
}

void MainRunLoop::wakeLocked() {
  interruptWaitLocked();
  if (!waker_) return;
  const auto due = queue_.nextDue();
  if (due && *due <= clock_->now()) {
    waker_->setReadable();
  } else {
    waker_->setDue(timePasses_ ? due : std::nullopt);
  }
}

MainRunLoop::Looked MainRunLoop::lookAtDescriptors(std::unique_lock<std::mutex>& lock,
                                                   std::optional<Time> limit) {
  Look look = watches_->look();
  look.addWaker(endOfPoll_->readable());
  polling_ = true;
  lock.unlock();
  const bool taken = look.take(limit);
  lock.lock();
  polling_ = false;
  const bool changed = endOfPoll_->drain();
  if (look.isReady()) return Looked::ready;
  if (changed) return Looked::changed;
  return taken ? Looked::nothing : Looked::refused;
}

MainRunLoop::Wake MainRunLoop::waitForWork(std::optional<Time> deadline) {
  std::unique_lock lock(mutex_);
  while (true) {
    if (std::exchange(stopRequested_, false)) return Wake::stopped;
    const auto due = queue_.nextDue();
    const Time now = clock_->now();
    // What is due after the deadline does not hold it up: a task that posts itself endlessly would.
    if (due && *due <= (deadline ? std::min(now, *deadline) : now)) return Wake::due;
    const bool over = deadline && *deadline <= now;
    const auto next = due && deadline ? std::min(*due, *deadline) : (due ? due : deadline);
    // A descriptor that is always ready holds up no deadline either.
    if (!watches_->empty() && !(deadline && *deadline < now)) {
      const bool waits = !over && (timePasses_ || !next);
      const auto limit = next ? std::optional(*next - now) : std::nullopt;
      switch (lookAtDescriptors(lock, waits ? limit : Time::zero())) {
        case Looked::ready:
          return Wake::due;
        case Looked::changed:
          continue;
        case Looked::refused:
          if (waits) wakeUp_.wait_for(lock, kPauseAfterRefusal);
          [[fallthrough]];
        case Looked::nothing:
          if (waits) continue;
      }
    }
    if (over) return Wake::deadline;
    if (!next && !timePasses_) return Wake::never;
    clock_->wait(wakeUp_, lock, next);
  }
}

bool MainRunLoop::turnsUntil(std::optional<Time> deadline, const std::function<bool()>& done) {
  {
    const std::scoped_lock lock(mutex_);
    if (turnTime_) return false;  // From inside a task: it would wait for itself.
  }
  while (true) {
    if (done && done()) return true;
    switch (waitForWork(deadline)) {
      case Wake::due:
        runOneTurn();
        break;
      case Wake::stopped:
      case Wake::deadline:
      case Wake::never:
        return false;
    }
  }
}

void MainRunLoop::run() { turnsUntil(std::nullopt, {}); }

void MainRunLoop::runUntil(Time deadline) { turnsUntil(deadline, {}); }

bool MainRunLoop::runUntil(Time deadline, const std::function<bool()>& done) {
  return turnsUntil(deadline, done);
}

void MainRunLoop::stop() {
  const std::scoped_lock lock(mutex_);
  stopRequested_ = true;
  interruptWaitLocked();
}

void MainRunLoop::sleepFor(Time duration) {
  if (duration <= Time::zero()) return;
  clock_->sleepFor(duration);
  const std::scoped_lock lock(mutex_);
  if (turnTime_ && turnThread_ == std::this_thread::get_id()) {
    turnTime_ = clock_->now();
  } else {
    wakeLocked();  // Virtual time has moved on, and something may be due by it.
  }
}

int MainRunLoop::fileDescriptor() {
  const std::scoped_lock lock(mutex_);
  if (!waker_) {
    waker_ = DescriptorWaker::create();
    watchAgainLocked();
    wakeLocked();
  }
  return waker_ ? waker_->readable() : -1;
}

}  // namespace kestrin
