#include "model/ModelWorld.h"

#include <algorithm>
#include <cmath>

#include "model/ManagerModel.h"
#include "support/Transcript.h"

namespace kestrin::test {
namespace {

constexpr double kNanoseconds = 1e9;

ModelTime nanoseconds(double seconds) {
  return static_cast<ModelTime>(std::llround(seconds * kNanoseconds));
}

}  // namespace

std::string bytesText(const std::optional<Bytes>& bytes, const std::string& absent) {
  if (!bytes) return absent;
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text = "<";
  for (std::size_t i = 0; i < bytes->size(); ++i) {
    if (i > 0 && i % 4 == 0) text += ' ';
    text += kDigits[(*bytes)[i] >> 4];
    text += kDigits[(*bytes)[i] & 0x0F];
  }
  return text + ">";
}

ModelWorld::ModelWorld() {
  for (unsigned i = 0; i < kPeripherals; ++i) peripherals[i].name = kNames[i];
  for (auto& characteristic : characteristics) characteristic.properties = kPropertyMasks[0];
}

void ModelWorld::say(const std::string& line) {
  lines_.push_back(secondsText(static_cast<double>(now_) / kNanoseconds) + " s: " + line);
}

void ModelWorld::log(const std::string& text) {
  say("log \"" + text + '"');
  reactAt(kLogSite);
}

void ModelWorld::reactAt(unsigned site) {
  if (reactions[site].empty()) return;
  const Step reaction = reactions[site].front();
  reactions[site].pop_front();
  act(reaction);
}

void ModelWorld::sleep(double seconds) {
  say("sleep " + secondsText(seconds));
  now_ += nanoseconds(seconds);
}

void ModelWorld::rearm(const std::shared_ptr<ModelManager>& target, const std::string& operation,
                       const std::string& seconds, ModelTime delay) {
  const std::string on = operation + " on " + target->label();
  say("cancel " + on);
  std::erase_if(timers_, [&](const ModelTimer& timer) {
    return timer.target == target && timer.operation == operation;
  });
  say("perform " + on + " after " + seconds);
  timers_.push_back({now_ + delay, nextTimer_++, target, operation, {}});
}

void ModelWorld::play(const std::function<void()>& event) {
  timers_.push_back({now_, nextTimer_++, nullptr, "", event});
  runOneTurn();
}

std::optional<ModelTime> ModelWorld::nextDue() const {
  std::optional<ModelTime> next;
  for (const ModelTimer& timer : timers_) next = std::min(next.value_or(timer.due), timer.due);
  return next;
}

std::optional<ModelTimer> ModelWorld::takeDue(ModelTime turnStart, std::uint64_t barrier) {
  auto first = timers_.end();
  for (auto timer = timers_.begin(); timer != timers_.end(); ++timer) {
    if (timer->due > turnStart || timer->id >= barrier) continue;
    if (first == timers_.end() || timer->due < first->due ||
        (timer->due == first->due && timer->id < first->id)) {
      first = timer;
    }
  }
  if (first == timers_.end()) return std::nullopt;
  ModelTimer taken = std::move(*first);
  timers_.erase(first);
  return taken;
}

void ModelWorld::runOneTurn() {
  const ModelTime start = now_;
  // What is armed during a turn belongs to a later one.
  const std::uint64_t barrier = nextTimer_;
  while (const auto timer = takeDue(start, barrier)) {
    if (timer->target) {
      timer->target->perform(timer->operation);
    } else {
      timer->work();
    }
  }
}

void ModelWorld::run(double seconds) {
  const ModelTime deadline = now_ + nanoseconds(seconds);
  while (true) {
    const auto due = nextDue();
    if (due && *due <= now_) {
      runOneTurn();
    } else if (now_ >= deadline) {
      return;
    } else {
      now_ = due ? std::min(*due, deadline) : deadline;
    }
  }
}

}  // namespace kestrin::test
