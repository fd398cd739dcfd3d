#include "UntakenRequests.h"

#include <utility>

namespace kestrin::bluez {

std::optional<std::uint64_t> UntakenRequests::add(Refusal refusal) {
  const std::scoped_lock lock(mutex_);
  if (closed_) return std::nullopt;
  refusals_.emplace(++last_, std::move(refusal));
  return last_;
}

bool UntakenRequests::take(std::uint64_t number) {
  Refusal refusal;  // Released without the lock.
  const std::scoped_lock lock(mutex_);
  const auto found = refusals_.find(number);
  if (found == refusals_.end()) return false;
  refusal = std::move(found->second);
  refusals_.erase(found);
  return true;
}

std::vector<UntakenRequests::Refusal> UntakenRequests::close() {
  std::vector<Refusal> left;
  const std::scoped_lock lock(mutex_);
  closed_ = true;
  for (auto& [number, refusal] : refusals_) left.push_back(std::move(refusal));
  refusals_.clear();
  return left;
}

}  // namespace kestrin::bluez
