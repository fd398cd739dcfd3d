// Time and the real clock.
#include "KestrinBLESDK/platform/Clock.h"

#include <gtest/gtest.h>

#include <cmath>
#include <condition_variable>
#include <limits>
#include <mutex>
#include <thread>

namespace kestrin::test {
namespace {

using namespace std::chrono_literals;
using Limits = std::numeric_limits<double>;

constexpr Time kHundredYears = std::chrono::hours(24) * 365 * 100;

TEST(TimeFromSeconds, CountsNanoseconds) {
  EXPECT_EQ(timeFromSeconds(0.5), 500ms);
  EXPECT_EQ(timeFromSeconds(2.0), 2s);
  EXPECT_EQ(timeFromSeconds(0.05), 50ms);
  EXPECT_EQ(timeFromSeconds(1e-9), 1ns);
}

TEST(TimeFromSeconds, RoundsToTheNearestNanosecond) {
  EXPECT_EQ(timeFromSeconds(1.4e-9), 1ns);
  EXPECT_EQ(timeFromSeconds(1.6e-9), 2ns);
  EXPECT_EQ(timeFromSeconds(1e-12), 0ns);
  EXPECT_EQ(timeFromSeconds(0.1), 100ms);
}

TEST(TimeFromSeconds, IsZeroForWhatIsNoPositiveNumber) {
  EXPECT_EQ(timeFromSeconds(0.0), 0ns);
  EXPECT_EQ(timeFromSeconds(-0.0), 0ns);
  EXPECT_EQ(timeFromSeconds(-1.0), 0ns);
  EXPECT_EQ(timeFromSeconds(Limits::lowest()), 0ns);
  EXPECT_EQ(timeFromSeconds(-Limits::infinity()), 0ns);
  EXPECT_EQ(timeFromSeconds(Limits::quiet_NaN()), 0ns);
  EXPECT_EQ(timeFromSeconds(Limits::denorm_min()), 0ns);
}

TEST(TimeFromSeconds, IsAHundredYearsForWhatIsTooLongToCount) {
  EXPECT_EQ(timeFromSeconds(Limits::infinity()), kHundredYears);
  EXPECT_EQ(timeFromSeconds(Limits::max()), kHundredYears);
  EXPECT_EQ(timeFromSeconds(1e12), kHundredYears);
}

TEST(TimeAfter, IsTheSum) {
  static_assert(timeAfter(2s, 500ms) == 2500ms);
  static_assert(timeAfter(2s, -3s) == -1s);
  EXPECT_EQ(timeAfter(Time::max() - 1ns, 1ns), Time::max());
  EXPECT_EQ(timeAfter(Time::min() + 1ns, -1ns), Time::min());
}

TEST(TimeAfter, StaysAtTheFurthestTimeThereIs) {
  EXPECT_EQ(timeAfter(1ns, Time::max()), Time::max());
  EXPECT_EQ(timeAfter(Time::max(), Time::max()), Time::max());
  EXPECT_EQ(timeAfter(-1ns, Time::min()), Time::min());
  EXPECT_EQ(timeAfter(Time::min(), Time::min()), Time::min());
  EXPECT_EQ(timeAfter(Time::max(), Time::min()), -1ns);
}

TEST(MonotonicClockTime, NeverGoesBackAndPassesByItself) {
  const MonotonicClock clock;
  EXPECT_TRUE(clock.passesByItself());
  Time before = clock.now();
  for (int i = 0; i < 1000; ++i) {
    const Time after = clock.now();
    ASSERT_GE(after, before);
    before = after;
  }
}

TEST(MonotonicClockTime, HasPassedAfterASleep) {
  MonotonicClock clock;
  const Time before = clock.now();
  clock.sleepFor(1ms);
  EXPECT_GE(clock.now() - before, 1ms);
}

TEST(MonotonicClockTime, EndsAWaitWhoseDeadlineIsOver) {
  MonotonicClock clock;
  std::mutex mutex;
  std::condition_variable never;
  std::unique_lock lock(mutex);
  clock.wait(never, lock, clock.now() - 1s);
  EXPECT_TRUE(lock.owns_lock());
}

// Where the C library counts seconds in 32 bits, the end of such a wait is beyond what it can name.
TEST(MonotonicClockTime, HasNotPassedInAWaitForAHundredYears) {
  MonotonicClock clock;
  std::mutex mutex;
  std::condition_variable wakeUp;
  bool done = false;
  std::thread other([&] {
    for (int i = 0; i < 1000; ++i) {
      const std::scoped_lock lock(mutex);
      std::this_thread::yield();
    }
    const std::scoped_lock lock(mutex);
    done = true;
    wakeUp.notify_one();
  });
  std::unique_lock lock(mutex);
  int waits = 0;
  while (!done) {
    clock.wait(wakeUp, lock, clock.now() + timeFromSeconds(1e30));
    ++waits;
  }
  lock.unlock();
  other.join();
  EXPECT_LE(waits, 5);
}

}  // namespace
}  // namespace kestrin::test
