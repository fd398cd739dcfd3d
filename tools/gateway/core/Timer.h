// One timer of an object: armed again and again, forgotten with the object.
//
// Threads: the main run loop's.
// Lifetime: the run loop is held weakly; once it is gone nothing is called.
// Errors: none.
#pragma once

#include "KestrinBLESDK/platform/RunLoop.h"

#include <functional>
#include <memory>
#include <optional>
#include <utility>

namespace kestrin::gateway {

class Timer final {
 public:
  explicit Timer(std::weak_ptr<RunLoop> loop) : loop_(std::move(loop)) {}
  ~Timer() { cancel(); }
  Timer(const Timer&) = delete;
  Timer& operator=(const Timer&) = delete;

  /// Calls `task` after `delay`, in place of what was armed before.
  void arm(Time delay, std::function<void()> task) {
    cancel();
    const auto loop = loop_.lock();
    if (!loop) return;
    timer_ = loop->arm(delay, [this, task = std::move(task)] {
      timer_.reset();
      task();
    });
  }
  void cancel() {
    if (const auto loop = loop_.lock(); loop && timer_) loop->cancel(*timer_);
    timer_.reset();
  }
  [[nodiscard]] bool isArmed() const noexcept { return timer_.has_value(); }

 private:
  const std::weak_ptr<RunLoop> loop_;
  std::optional<RunLoop::TimerId> timer_;
};

}  // namespace kestrin::gateway
