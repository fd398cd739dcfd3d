#include "kestrin/simulated/VirtualClock.h"

#include <algorithm>

namespace kestrin::simulated {

Time VirtualClock::now() const {
  const std::scoped_lock lock(mutex_);
  return now_;
}

void VirtualClock::sleepFor(Time duration) {
  const std::scoped_lock lock(mutex_);
  now_ = timeAfter(now_, std::max(duration, Time::zero()));
}

void VirtualClock::wait(std::condition_variable& wakeUp, std::unique_lock<std::mutex>& lock,
                        std::optional<Time> deadline) {
  if (!deadline) {
    wakeUp.wait(lock);
    return;
  }
  const std::scoped_lock ownLock(mutex_);
  now_ = std::max(now_, *deadline);
}

}  // namespace kestrin::simulated
