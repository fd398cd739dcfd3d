#include "tools/gateway/core/Activity.h"

#include <algorithm>
#include <chrono>

namespace kestrin::gateway {

std::int64_t Activity::minuteOf(Time now) {
  return std::chrono::duration_cast<std::chrono::minutes>(now).count();
}

std::size_t Activity::placeOf(std::int64_t minute) {
  return static_cast<std::size_t>(minute % static_cast<std::int64_t>(kMinutes));
}

void Activity::count(const std::string& reader, Time now) {
  const std::int64_t minute = minuteOf(now);
  const auto [found, isNew] = readers_.try_emplace(reader);
  Counts& counts = found->second;
  if (isNew) counts.newest = minute;
  // The places in between are those of an hour ago.
  const std::int64_t first =
      std::max(counts.newest + 1, minute - static_cast<std::int64_t>(kMinutes) + 1);
  for (std::int64_t each = first; each <= minute; ++each) counts.minutes[placeOf(each)] = 0;
  counts.newest = std::max(counts.newest, minute);
  ++counts.minutes[placeOf(minute)];
  ++counts.total;
}

void Activity::keep(const Record& record, RecordNumber number) {
  ++kept_;
  last_.push_back(record);
  last_.back().number = number;
  if (last_.size() > kLastFrames) last_.pop_front();
}

std::uint64_t Activity::total(const std::string& reader) const {
  const auto found = readers_.find(reader);
  return found == readers_.end() ? 0 : found->second.total;
}

std::vector<std::uint64_t> Activity::minutes(const std::string& reader, Time now) const {
  std::vector<std::uint64_t> minutes(kMinutes, 0);
  const auto found = readers_.find(reader);
  if (found == readers_.end()) return minutes;
  const Counts& counts = found->second;
  const std::int64_t minute = minuteOf(now);
  for (std::size_t back = 0; back < kMinutes; ++back) {
    const std::int64_t each = minute - static_cast<std::int64_t>(back);
    // Behind the newest nothing came, and further back than an hour before it nothing is known.
    const bool isKnown = each >= 0 && each <= counts.newest &&
                         each > counts.newest - static_cast<std::int64_t>(kMinutes);
    if (isKnown) minutes[kMinutes - 1 - back] = counts.minutes[placeOf(each)];
  }
  return minutes;
}

}  // namespace kestrin::gateway
