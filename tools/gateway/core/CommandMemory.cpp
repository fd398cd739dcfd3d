#include "tools/gateway/core/CommandMemory.h"

#include <chrono>

namespace kestrin::gateway {
namespace {

constexpr Time kAge = std::chrono::minutes(10);
constexpr std::size_t kFew = 1000;
constexpr std::size_t kMostEntries = 10000;

}  // namespace

const CommandMemory::Entry* CommandMemory::find(const std::string& correlation) const {
  const auto found = entries_.find(correlation);
  return found == entries_.end() ? nullptr : &found->second;
}

void CommandMemory::remember(const std::string& correlation, Entry entry, Time now) {
  entries_.insert_or_assign(correlation, std::move(entry));
  order_.emplace_back(now, correlation);
  while (order_.size() > kMostEntries ||
         (order_.size() > kFew && now - order_.front().first > kAge)) {
    entries_.erase(order_.front().second);
    order_.pop_front();
  }
}

void CommandMemory::answered(const std::string& correlation, const std::string& answer) {
  const auto found = entries_.find(correlation);
  if (found != entries_.end()) found->second.answer = answer;
}

}  // namespace kestrin::gateway
