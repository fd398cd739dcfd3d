#include "kestrin/simulated/VirtualClock.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>
#include <vector>

#include "KestrinBLESDK/platform/MainRunLoop.h"

namespace kestrin::simulated {
namespace {

using namespace std::chrono_literals;

TEST(VirtualClock, BeginsAtZeroAndStandsStill) {
  const VirtualClock clock;
  EXPECT_EQ(clock.now(), Time::zero());
  std::this_thread::yield();
  EXPECT_EQ(clock.now(), Time::zero());
  EXPECT_FALSE(clock.passesByItself());
}

TEST(VirtualClock, SleepingMovesItOnAndNeverBack) {
  VirtualClock clock;
  clock.sleepFor(3s);
  EXPECT_EQ(clock.now(), 3s);
  clock.sleepFor(-1s);
  clock.sleepFor(Time::zero());
  EXPECT_EQ(clock.now(), 3s);
}

TEST(VirtualClock, WaitingJumpsToTheDeadlineAndNeverBack) {
  VirtualClock clock;
  std::condition_variable wakeUp;
  std::mutex mutex;
  std::unique_lock lock(mutex);
  clock.wait(wakeUp, lock, Time(5s));
  EXPECT_EQ(clock.now(), 5s);
  clock.wait(wakeUp, lock, Time(2s));
  EXPECT_EQ(clock.now(), 5s);
  EXPECT_TRUE(lock.owns_lock());
}

TEST(VirtualClock, ARunLoopDoesADayAtOnceAndEndsWhenNothingIsPending) {
  const auto clock = std::make_shared<VirtualClock>();
  MainRunLoop loop(clock);
  Time ranAt{};
  loop.arm(24h, [&] { ranAt = loop.now(); });
  loop.run();
  EXPECT_EQ(ranAt, 24h);
  EXPECT_EQ(clock->now(), 24h);
}

TEST(VirtualClock, EveryThreadsSleepCounts) {
  static constexpr int kEach = 1000;
  VirtualClock clock;
  std::vector<std::thread> threads;
  threads.reserve(4);
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([&clock] {
      Time last{};
      for (int i = 0; i < kEach; ++i) {
        clock.sleepFor(1ms);
        const Time now = clock.now();
        EXPECT_GT(now, last);
        last = now;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(clock.now(), 4 * kEach * 1ms);
}

}  // namespace
}  // namespace kestrin::simulated
