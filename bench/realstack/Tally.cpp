#include "bench/realstack/Tally.h"

#include <unistd.h>

#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <thread>

namespace kestrin::bench {
namespace {

std::int64_t microseconds() noexcept {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::microseconds>(now).count();
}

}  // namespace

void Tally::connecting() noexcept { began_ = microseconds(); }

void Tally::servicesKnown() noexcept { known_ = microseconds(); }

void Tally::up() const noexcept {
  constexpr double kMicrosecondsPerMillisecond = 1000.0;
  std::printf("UP %.1f\n", static_cast<double>(known_ - began_) / kMicrosecondsPerMillisecond);
  std::fflush(stdout);
}

void Tally::answerLines() noexcept {
  char line[64];
  while (std::fgets(line, sizeof line, stdin) != nullptr) {
    if (std::strcmp(line, "count\n") != 0) continue;
    std::printf("COUNT %" PRIu64 " %" PRIu64 "\n", count_.exchange(0), sum_.exchange(0));
    std::fflush(stdout);
  }
  // The link is left to whoever measures: how a client ends it is not what is compared.
  ::_exit(0);
}

Tally& tally() {
  static Tally* const shared = [] {
    auto* const made = new Tally;
    std::thread([made] { made->answerLines(); }).detach();
    return made;
  }();
  return *shared;
}

}  // namespace kestrin::bench
