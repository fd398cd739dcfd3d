#include "tools/gateway/broker/ReconnectPause.h"

#include <algorithm>
#include <memory>
#include <random>
#include <utility>

namespace kestrin::gateway {

ReconnectPause::ReconnectPause(PauseRules rules, RandomSource random)
    : rules_(rules), random_(std::move(random)), next_(rules.first) {}

bool ReconnectPause::wasGood(const EndedConnection& ended) const {
  // Two gateways of one name end each other's connections in turns. The connection of each holds
  // for about a pause, so the longest one must not look like success.
  return ended.up >= (ended.takenOver ? 3 * rules_.longest : rules_.steady);
}

Time ReconnectPause::after(const EndedConnection& ended) {
  if (wasGood(ended)) next_ = rules_.first;
  const auto pause = static_cast<double>(next_.count()) * (0.5 + random_());
  next_ = std::min(2 * next_, rules_.longest);
  return Time(static_cast<Time::rep>(pause));
}

RandomSource systemRandom() {
  auto engine = std::make_shared<std::mt19937_64>(std::random_device()());
  return [engine] { return std::uniform_real_distribution<double>(0, 1)(*engine); };
}

}  // namespace kestrin::gateway
