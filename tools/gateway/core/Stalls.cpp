#include "tools/gateway/core/Stalls.h"

#include <algorithm>

namespace kestrin::gateway {

std::optional<RecordNumber> Stalls::look(
    const std::vector<std::pair<std::string, RecordNumber>>& where, RecordNumber answered,
    Time now) {
  std::optional<RecordNumber> behind;
  std::map<std::string, Stand> next;
  for (const auto& [name, number] : where) {
    const auto known = stands_.find(name);
    Stand& stand = next[name] = known == stands_.end() ? Stand{number, now} : known->second;
    if (isDue(stand, number, answered, now)) behind = std::min(behind.value_or(number), number);
  }
  stands_ = std::move(next);
  return behind;
}

bool Stalls::isDue(Stand& stand, RecordNumber number, RecordNumber answered, Time now) {
  if (number != stand.number || answered <= number) {
    stand = {number, now};
    return false;
  }
  if (now - stand.since < stand.wait) return false;
  stand.since = now;
  stand.wait = std::min(stand.wait * 2, kLongest);
  return true;
}

}  // namespace kestrin::gateway
