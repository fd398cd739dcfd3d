#include "BusThread.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <utility>

namespace kestrin::bluez {
namespace {

timespec timespecOf(Time time) {
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time);
  return {.tv_sec = static_cast<time_t>(seconds.count()),
          .tv_nsec = static_cast<long>((time - seconds).count())};
}

std::optional<Time> earlier(std::optional<Time> a, std::optional<Time> b) {
  if (!a || !b) return a ? a : b;
  return std::min(*a, *b);
}

}  // namespace

std::shared_ptr<BusThread> BusThread::create(std::shared_ptr<Clock> clock) {
  const int wakeUp = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (wakeUp < 0) return nullptr;
  return std::shared_ptr<BusThread>(new BusThread(wakeUp, std::move(clock)));
}

BusThread::~BusThread() { ::close(wakeUp_); }

bool BusThread::isCurrent() const noexcept { return owner_.load() == std::this_thread::get_id(); }

void BusThread::post(Task task) {
  const std::scoped_lock lock(mutex_);
  if (closed_) return;
  tasks_.push_back(std::move(task));
  const std::uint64_t one = 1;
  // A full counter means that the wake-up is pending already.
  [[maybe_unused]] const auto written = ::write(wakeUp_, &one, sizeof one);
}

TimerQueue::Id BusThread::arm(Time delay, Task task) {
  return timers_.arm(timeAfter(clock_->now(), delay), std::move(task));
}

void BusThread::cancel(std::optional<TimerQueue::Id>& timer) {
  if (timer) timers_.cancel(*timer);
  timer.reset();
}

void BusThread::run() {
  owner_ = std::this_thread::get_id();
  while (!ended_) {
    runTasks();
    runTimers();
    if (source_ != nullptr && !ended_) source_->process();
    if (!ended_) waitForWork();
  }
  dropTasks();
}

void BusThread::runTasks() {
  std::vector<Task> tasks;
  {
    const std::scoped_lock lock(mutex_);
    tasks.swap(tasks_);
    std::uint64_t count = 0;
    [[maybe_unused]] const auto read = ::read(wakeUp_, &count, sizeof count);
  }
  for (auto& task : tasks) {
    task();
    task = {};
  }
}

void BusThread::runTimers() {
  const Time now = clock_->now();
  const auto barrier = timers_.nextId();
  for (Task task = timers_.takeDue(now, barrier); task; task = timers_.takeDue(now, barrier)) {
    task();
  }
}

void BusThread::waitForWork() {
  std::array<pollfd, 2> polled{
      {{.fd = wakeUp_, .events = POLLIN, .revents = 0}, {.fd = -1, .events = 0, .revents = 0}}};
  std::optional<Time> limit;
  const auto due = timers_.nextDue();
  if (due && (clock_->passesByItself() || *due <= clock_->now())) {
    limit = std::max(*due - clock_->now(), Time::zero());
  }
  if (source_ != nullptr) {
    if (const auto wait = source_->wait()) {
      polled[1].fd = wait->descriptor;
      polled[1].events = wait->events;
      limit = earlier(limit, wait->limit);
    }
  }
  const timespec timeout = timespecOf(limit.value_or(Time::zero()));
  // An interrupted wait is a short wait: the loop comes round again.
  ::ppoll(polled.data(), polled.size(), limit ? &timeout : nullptr, nullptr);
}

// What a task holds may post again when it is released, so that is done without the lock.
void BusThread::dropTasks() {
  std::vector<Task> tasks;
  const std::scoped_lock lock(mutex_);
  closed_ = true;
  tasks.swap(tasks_);
}

}  // namespace kestrin::bluez
