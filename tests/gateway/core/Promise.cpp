#include "gateway/core/Promise.h"

#include <algorithm>
#include <set>

namespace kestrin::gateway::test {
namespace {

std::string shown(const Promise::Key& key) {
  return key.first.substr(0, 4) + ":" + std::to_string(key.second);
}

bool isReported(const ConsumerProcess& consumer, const Promise::Key& key) {
  return std::any_of(consumer.gaps.begin(), consumer.gaps.end(), [&](const Gap& gap) {
    return gap.log == key.first && gap.from <= key.second && key.second <= gap.to;
  });
}

bool isSame(const Record& a, const Record& b) {
  return a.bytes == b.bytes && a.reader == b.reader && a.link == b.link && a.kind == b.kind &&
         a.name == b.name && a.wallMs == b.wallMs && a.monoMs == b.monoMs;
}

}  // namespace

void Promise::taken(const LogIdentity& log, const Record& record,
                    std::optional<RecordNumber> number, Time at) {
  if (!number) {
    if (refused_.empty() || refused_.back().over) refused_.emplace_back();
    ++refused_.back().count;
    return;
  }
  if (!refused_.empty() && !refused_.back().over) refused_.back().over = at;
  const Key key(log, *number);
  const auto [first, last] = taken_.equal_range(key);
  for (auto each = first; each != last; ++each) {
    if (!each->second.mayBeLost) early_.push_back("the number " + shown(key) + " was given twice");
  }
  taken_.emplace(key, Taken{record, at});
}

void Promise::powerCut(const LogIdentity& log, RecordNumber synced, Time begin, Time now,
                       Time cost) {
  for (auto& [key, taken] : taken_) {
    if (key.first != log || key.second <= synced || taken.mayBeLost) continue;
    taken.mayBeLost = true;
    const Time had = now - std::max(taken.at, begin);
    if (had > cost) {
      early_.push_back("the number " + shown(key) + " was not on the disk after " +
                       std::to_string(had / std::chrono::milliseconds(1)) + " ms");
    }
  }
  // The gap record came with the first record that the disk took again.
  for (Refused& each : refused_) {
    if (each.over && now - std::max(*each.over, begin) <= cost) each.mayBeUnknown = true;
  }
}

void Promise::killed() {
  if (!refused_.empty() && !refused_.back().over) {
    refused_.back().over = Time::zero();
    refused_.back().mayBeUnknown = true;
  }
}

std::size_t Promise::mayBeLost() const {
  return static_cast<std::size_t>(std::count_if(
      taken_.begin(), taken_.end(), [](const auto& each) { return each.second.mayBeLost; }));
}

std::size_t Promise::refused() const {
  std::size_t count = 0;
  for (const Refused& each : refused_) count += static_cast<std::size_t>(each.count);
  return count;
}

std::vector<std::string> Promise::breaches(const ConsumerProcess& consumer) const {
  std::vector<std::string> out = early_;
  out.insert(out.end(), consumer.wrong.begin(), consumer.wrong.end());
  checkDelivered(consumer, out);
  checkInvented(consumer, out);
  checkOrder(consumer, out);
  checkRefused(consumer, out);
  return out;
}

void Promise::checkDelivered(const ConsumerProcess& consumer, std::vector<std::string>& out) const {
  for (const auto& [key, taken] : taken_) {
    if (taken.mayBeLost || consumer.kept.contains(key) || isReported(consumer, key)) continue;
    out.push_back(consumer.name() + " has not got " + shown(key));
  }
}

void Promise::checkInvented(const ConsumerProcess& consumer, std::vector<std::string>& out) const {
  for (const auto& [key, record] : consumer.kept) {
    const auto [first, last] = taken_.equal_range(key);
    const bool isThere = std::any_of(first, last, [&, &got = record](const auto& each) {
      return isSame(each.second.record, got);
    });
    if (!isThere) out.push_back(consumer.name() + " has " + shown(key) + ", which nobody sent so");
  }
}

void Promise::checkOrder(const ConsumerProcess& consumer, std::vector<std::string>& out) const {
  std::map<LogIdentity, RecordNumber> highest;
  for (const Key& key : consumer.order) {
    RecordNumber& last = highest[key.first];
    if (key.second < last) out.push_back(consumer.name() + " got " + shown(key) + " out of order");
    last = std::max(last, key.second);
  }
}

void Promise::checkRefused(const ConsumerProcess& consumer, std::vector<std::string>& out) const {
  // Whose number was lost is not known; and what made room for others later reports it as its own.
  std::set<Key> lost;
  for (const Gap& gap : consumer.gaps) {
    for (RecordNumber each = gap.from; each <= gap.to; ++each) {
      // What a power cut has lost had numbers that are given again.
      const auto [first, last] = taken_.equal_range({gap.log, each});
      const bool isTaken =
          std::any_of(first, last, [](const auto& taken) { return !taken.second.mayBeLost; });
      if (!isTaken) lost.emplace(gap.log, each);
    }
  }
  const std::uint64_t reported = lost.size();
  std::uint64_t known = 0;
  for (const Refused& each : refused_) known += each.mayBeUnknown ? 0 : each.count;
  if (reported < known) {
    out.push_back(consumer.name() + ": the disk refused " + std::to_string(known) +
                  " records, and reported are " + std::to_string(reported));
  }
}

}  // namespace kestrin::gateway::test
