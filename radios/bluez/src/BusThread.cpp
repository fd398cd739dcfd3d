#include "BusThread.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <utility>

namespace kestrin::bluez {
namespace {

/// The clock of the timers. One that does not pass by itself is not moved on by this thread's
/// waits: somebody else does that.
class TimersClock final : public Clock {
 public:
  explicit TimersClock(std::shared_ptr<Clock> clock) : clock_(std::move(clock)) {}
  [[nodiscard]] Time now() const override { return clock_->now(); }
  void sleepFor(Time duration) override { clock_->sleepFor(duration); }
  [[nodiscard]] bool passesByItself() const noexcept override { return true; }
  void wait(std::condition_variable& wakeUp, std::unique_lock<std::mutex>& lock,
            std::optional<Time> deadline) override {
    if (clock_->passesByItself()) {
      clock_->wait(wakeUp, lock, deadline);
    } else {
      wakeUp.wait(lock);
    }
  }

 private:
  const std::shared_ptr<Clock> clock_;
};

Readiness readinessOf(short events) {
  auto readiness = Readiness{};
  if ((events & POLLIN) != 0) readiness = readiness | Readiness::readable;
  if ((events & POLLOUT) != 0) readiness = readiness | Readiness::writable;
  return readiness;
}

}  // namespace

std::shared_ptr<BusThread> BusThread::create(std::shared_ptr<Clock> clock) {
  std::shared_ptr<BusThread> made(new BusThread(std::make_shared<TimersClock>(std::move(clock))));
  return made->canWatch() ? made : nullptr;
}

BusThread::BusThread(std::shared_ptr<Clock> clock)
    : clock_(std::move(clock)), loop_(std::make_unique<MainRunLoop>(clock_)) {}

// What the loop needs for watching it makes with the first watch, and keeps.
bool BusThread::canWatch() {
  const int tried = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
  if (tried < 0) return false;
  const auto watched = loop_->watch(tried, Readiness::readable, [](Readiness) {});
  if (watched) loop_->unwatch(*watched);
  ::close(tried);
  return watched.has_value();
}

bool BusThread::isCurrent() const noexcept { return owner_.load() == std::this_thread::get_id(); }

void BusThread::post(Task task) {
  const std::scoped_lock lock(mutex_);
  if (!closed_) loop_->post(std::move(task));
}

TimerQueue::Id BusThread::arm(Time delay, Task task) { return loop_->arm(delay, std::move(task)); }

void BusThread::cancel(std::optional<TimerQueue::Id>& timer) {
  if (timer) loop_->cancel(*timer);
  timer.reset();
}

void BusThread::run() {
  owner_ = std::this_thread::get_id();
  loop_->runUntil(Time::max(), [this] { return serveSource(); });
  dropPending();
}

/// Before each turn, and so after whatever the last one did. Returns whether the thread ends.
bool BusThread::serveSource() {
  if (source_ != nullptr && !ended_) source_->process();
  if (!ended_) awaitSource();
  return ended_;
}

void BusThread::awaitSource() {
  const auto wait = source_ != nullptr ? source_->wait() : std::nullopt;
  watch(wait);
  cancel(limit_);
  // A descriptor that cannot be watched is looked at again at once: the source finds out why.
  const bool unwatched = wait && wait->descriptor >= 0 && !watched_;
  auto limit = wait ? wait->limit : std::nullopt;
  if (unwatched) limit = Time::zero();
  if (limit) limit_ = arm(*limit, [] {});
}

void BusThread::watch(const std::optional<PollSource::Wait>& wait) {
  const bool same = watched_ && wait && watched_->descriptor == wait->descriptor &&
                    watched_->events == wait->events;
  if (same) return;
  if (watched_) loop_->unwatch(watched_->id);
  watched_.reset();
  if (!wait || wait->descriptor < 0) return;
  // The source is served between two turns; here it is only what ends the wait.
  const auto id =
      loop_->watch(wait->descriptor, readinessOf(wait->events), [this](Readiness found) {
        if (hasAny(found, Readiness::closed)) watched_.reset();
      });
  if (id) watched_ = {.descriptor = wait->descriptor, .events = wait->events, .id = *id};
}

// What a task holds may post again when it is released, so that is done without the lock.
void BusThread::dropPending() {
  auto pending = std::make_unique<MainRunLoop>(clock_);
  {
    const std::scoped_lock lock(mutex_);
    closed_ = true;
    loop_.swap(pending);
  }
  watched_.reset();
  limit_.reset();
}

}  // namespace kestrin::bluez
