#include "tools/gateway/core/Pulse.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace kestrin::gateway {
namespace {

constexpr Time kUsual = std::chrono::seconds(10);
constexpr Time kSoonest = std::chrono::seconds(1);

}  // namespace

Pulse::Pulse(std::weak_ptr<RunLoop> loop, std::function<void()> beat)
    : loop_(loop), beat_(std::move(beat)), timer_(std::move(loop)) {}

void Pulse::start() {
  started_ = true;
  armIn(Time::zero());
}

void Pulse::changed() {
  const auto loop = loop_.lock();
  if (!started_ || hurried_ || !loop) return;
  hurried_ = true;
  armIn(last_ ? std::max(*last_ + kSoonest - loop->now(), Time::zero()) : Time::zero());
}

void Pulse::stop() {
  started_ = false;
  timer_.cancel();
}

void Pulse::beat() {
  hurried_ = false;
  if (const auto loop = loop_.lock()) last_ = loop->now();
  armIn(kUsual);
  beat_();
}

void Pulse::armIn(Time pause) {
  timer_.arm(pause, [this] { beat(); });
}

}  // namespace kestrin::gateway
