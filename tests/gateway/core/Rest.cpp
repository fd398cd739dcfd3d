#include "gateway/core/Rest.h"

#include <algorithm>
#include <cstdlib>

namespace kestrin::gateway::test {

bool isAtRest(const Log& log, const Consumers& consumers) {
  return log.synced() + 1 == log.next() &&
         std::all_of(consumers.begin(), consumers.end(),
                     [&](const auto& each) { return each->hasAll(log.identity(), log.next()); });
}

std::string standOf(Gateway& gateway, const Consumers& consumers) {
  const Log& log = gateway.log();
  std::string text = "the log " + log.identity().substr(0, 4) + ":" + std::to_string(log.next()) +
                     ", on the disk up to " + std::to_string(log.synced());
  for (const auto& each : consumers) text += "; " + each->stand();
  for (const auto& each : gateway.troubles()) text += "; trouble: " + each;
  return text;
}

std::uint32_t environmentNumber(const char* name, std::uint32_t usual) {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): before there is any other thread.
  const char* const given = std::getenv(name);
  return given == nullptr ? usual : static_cast<std::uint32_t>(std::strtoul(given, nullptr, 10));
}

}  // namespace kestrin::gateway::test
