// A run loop that knows how much of what goes through it is still to run.
//
// Threads: the loop's. Lifetime: the loop behind it outlives what was armed. Errors: none.
#pragma once

#include "KestrinBLESDK/platform/RunLoop.h"

#include <cstddef>
#include <map>
#include <memory>
#include <utility>

namespace kestrin::gateway::test {

class CountingLoop final : public RunLoop {
 public:
  explicit CountingLoop(RunLoop& loop) : loop_(loop) {}

  /// Timers and tasks; delayed requests are not among them.
  [[nodiscard]] std::size_t pending() const noexcept { return timers_.size() + posted_; }

  [[nodiscard]] Time now() const override { return loop_.now(); }
  void post(Task task) override {
    ++posted_;
    loop_.post([this, task = std::move(task)] {
      --posted_;
      task();
    });
  }
  TimerId arm(Time delay, Task task) override {
    const TimerId own = ++ids_;
    timers_[own] = loop_.arm(delay, [this, own, task = std::move(task)] {
      timers_.erase(own);
      task();
    });
    return own;
  }
  void cancel(TimerId timer) override {
    const auto found = timers_.find(timer);
    if (found == timers_.end()) return;
    loop_.cancel(found->second);
    timers_.erase(found);
  }
  void performSelector_withObject_afterDelay(std::shared_ptr<void> target, const SEL& selector,
                                             std::shared_ptr<void> object, double delay) override {
    loop_.performSelector_withObject_afterDelay(std::move(target), selector, std::move(object),
                                                delay);
  }
  void cancelPreviousPerformRequestsWithTarget_selector_object(const void* target,
                                                               const SEL& selector,
                                                               const void* object) override {
    loop_.cancelPreviousPerformRequestsWithTarget_selector_object(target, selector, object);
  }

 private:
  RunLoop& loop_;
  TimerId ids_ = 0;
  std::size_t posted_ = 0;
  std::map<TimerId, TimerId> timers_;
};

}  // namespace kestrin::gateway::test
