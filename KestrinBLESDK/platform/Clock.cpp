#include "KestrinBLESDK/platform/Clock.h"

#include <algorithm>
#include <cmath>
#include <thread>

namespace kestrin {
namespace {

// What takes longer is waited for in parts: where the C library counts seconds in 32 bits, a time
// that is a hundred years away would be one that is over.
constexpr Time kLongestWait = std::chrono::hours(24);

}  // namespace

Time timeFromSeconds(double seconds) noexcept {
  static constexpr double kNanosecondsPerSecond = 1e9;
  // A bound keeps the conversion in range, whatever the caller asks for.
  static constexpr double kLongest = 100.0 * 365 * 24 * 60 * 60;
  if (!(seconds > 0)) return Time::zero();
  return Time(std::llround(std::fmin(seconds, kLongest) * kNanosecondsPerSecond));
}

Clock::~Clock() = default;

Time MonotonicClock::now() const {
  return std::chrono::duration_cast<Time>(std::chrono::steady_clock::now().time_since_epoch());
}

void MonotonicClock::sleepFor(Time duration) {
  const Time end = timeAfter(now(), duration);
  for (Time left = duration; left > Time::zero(); left = end - now()) {
    std::this_thread::sleep_for(std::min(left, kLongestWait));
  }
}

void MonotonicClock::wait(std::condition_variable& wakeUp, std::unique_lock<std::mutex>& lock,
                          std::optional<Time> deadline) {
  if (deadline) {
    const Time end = std::min(*deadline, timeAfter(now(), kLongestWait));
    wakeUp.wait_until(lock,
                      std::chrono::steady_clock::time_point(
                          std::chrono::duration_cast<std::chrono::steady_clock::duration>(end)));
  } else {
    wakeUp.wait(lock);
  }
}

}  // namespace kestrin
