#include "KestrinBLESDK/reader/TimeLimit.h"

#include <utility>

namespace kestrin::reader {

void TimeLimit::start(Time span, std::function<void()> passed) {
  stop();
  passed_ = std::make_shared<const std::function<void()>>(std::move(passed));
  left_ = span;
  arm();
}

void TimeLimit::arm() {
  const auto loop = loop_.lock();
  if (!loop) return;
  armedAt_ = loop->now();
  // `passed` is called by what the timer holds, so that it may drop this limit.
  timer_ = loop->arm(left_, [passed = passed_] { (*passed)(); });
}

void TimeLimit::suspend() {
  const auto loop = loop_.lock();
  if (!loop || !timer_) return;
  loop->cancel(*timer_);
  timer_.reset();
  left_ -= loop->now() - armedAt_;
}

void TimeLimit::resume() {
  if (passed_ && !timer_) arm();
}

void TimeLimit::stop() {
  const auto loop = loop_.lock();
  if (loop && timer_) loop->cancel(*timer_);
  timer_.reset();
  passed_.reset();
}

}  // namespace kestrin::reader
