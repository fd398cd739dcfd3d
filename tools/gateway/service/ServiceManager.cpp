#include "tools/gateway/service/ServiceManager.h"

#include <systemd/sd-daemon.h>

#include <algorithm>
#include <cstdint>
#include <ctime>
#include <utility>

namespace kestrin::gateway {
namespace {

using std::chrono::microseconds;
using std::chrono::seconds;

// Whoever looks at the status gets one that is no older.
constexpr Time kLongestPause = seconds(1);
// Asked for with each beat, so a loop that no longer turns gets no more than this.
constexpr microseconds kMoreTime = seconds(20);

std::optional<Time> watchdogOfTheSystem() {
  std::uint64_t limit = 0;
  if (sd_watchdog_enabled(0, &limit) <= 0) return std::nullopt;
  return microseconds(static_cast<microseconds::rep>(limit));
}

void tell(const std::string& state) { sd_notify(0, state.c_str()); }

std::string monotonicMicroseconds() {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  const auto span = seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec);
  return std::to_string(std::chrono::duration_cast<microseconds>(span).count());
}

}  // namespace

ServiceManager::ServiceManager(std::weak_ptr<RunLoop> loop, std::function<std::string()> standing)
    : standing_(std::move(standing)),
      watchdog_(watchdogOfTheSystem()),
      // Half of what is allowed, so that one late beat does no harm.
      pause_(std::min(kLongestPause, watchdog_.value_or(kLongestPause) / 2)),
      timer_(std::move(loop)) {}

void ServiceManager::started() {
  timer_.arm(Time::zero(), [this] { ready(); });
}

void ServiceManager::ready() {
  tell("READY=1\n" + news());
  beat();
}

void ServiceManager::beat() {
  timer_.arm(pause_, [this] { beat(); });
  std::string state = news();
  if (watchdog_) state += "WATCHDOG=1\n";
  if (stopping_) state += "EXTEND_TIMEOUT_USEC=" + std::to_string(kMoreTime.count()) + "\n";
  if (!state.empty()) tell(state);
}

std::string ServiceManager::news() {
  if (stopping_) return "";
  std::string standing = standing_();
  if (standing == said_) return "";
  said_ = std::move(standing);
  return "STATUS=" + said_ + "\n";
}

void ServiceManager::reloading() {
  tell("RELOADING=1\nMONOTONIC_USEC=" + monotonicMicroseconds() + "\n");
}

void ServiceManager::reloaded() { tell("READY=1\n" + news()); }

void ServiceManager::stopping() {
  if (std::exchange(stopping_, true)) return;
  tell("STOPPING=1\nSTATUS=leaving the readers and the broker\n");
  beat();
}

}  // namespace kestrin::gateway
