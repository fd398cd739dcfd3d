#include "tools/gateway/consumer/Stream.h"

#include <algorithm>
#include <iterator>

namespace kestrin::gateway {

bool Stream::missing() const { return next_ <= highest_ && ready() == nullptr; }

Stream::Arrival Stream::arrive(const Record& record) {
  const RecordNumber number = record.number;
  highest_ = std::max(highest_, number);
  if (number < next_ || waiting_.contains(number)) return Arrival::repeat;
  if (waiting_.size() >= mostWaiting_) {
    // What comes next is worth more than what comes last.
    const auto last = std::prev(waiting_.end());
    if (last->first < number) return Arrival::noRoom;
    gaps_.erase(last->first);
    waiting_.erase(last);
  }
  waiting_.emplace(number, record);
  if (record.gap && record.gap->log == log_) gaps_.emplace(number, *record.gap);
  return Arrival::kept;
}

void Stream::knowOf(RecordNumber published) { highest_ = std::max(highest_, published); }

void Stream::beginAt(RecordNumber first, GapReason why) {
  if (first <= first_) return;
  first_ = first;
  whyFirst_ = why;
  if (begun_ || first_ <= next_) return;
  // Nothing has been handed out: what has come all the same is in time.
  next_ = waiting_.empty() ? first_ : std::min(first_, waiting_.begin()->first);
  base_ = next_;
}

std::optional<Gap> Stream::gapAtNext() const {
  if (next_ < first_) return Gap{log_, next_, first_ - 1, whyFirst_};
  for (const auto& [number, gap] : gaps_) {
    if (gap.from <= next_ && next_ <= gap.to) return Gap{log_, next_, gap.to, gap.reason};
  }
  return std::nullopt;
}

std::optional<Gap> Stream::takeLost() {
  if (ready() != nullptr) return std::nullopt;
  std::optional<Gap> lost = gapAtNext();
  if (!lost) return lost;
  if (!waiting_.empty()) lost->to = std::min(lost->to, waiting_.begin()->first - 1);
  next_ = lost->to + 1;
  begun_ = true;
  return lost;
}

const Record* Stream::ready() const {
  if (waiting_.empty() || waiting_.begin()->first != next_) return nullptr;
  return &waiting_.begin()->second;
}

std::optional<Gap> Stream::pass() {
  std::optional<Gap> lost;
  if (const auto found = gaps_.find(next_); found != gaps_.end() && found->second.from < base_) {
    lost = found->second;
    lost->to = std::min(lost->to, base_ - 1);
  }
  gaps_.erase(next_);
  waiting_.erase(next_);
  ++next_;
  begun_ = true;
  return lost;
}

}  // namespace kestrin::gateway
