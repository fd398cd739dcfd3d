// What is promised to several threads at once, and the descriptor for a foreign event loop. Real
// time passes here; every wait is for a condition, and its limit is only reached by a failure.
#include <gtest/gtest.h>
#include <poll.h>

#include <atomic>
#include <set>
#include <thread>

#include "KestrinBLESDK/platform/Dispatch.h"
#include "KestrinBLESDK/platform/NSLog.h"
#include "RunLoopTest.h"
#include "support/RecordingLog.h"

namespace kestrin::test {
namespace {

constexpr int kThreads = 4;
constexpr int kEach = 500;

/// Runs `work` on several threads at once, with the number of the thread.
template <class Work>
void onThreads(const Work& work) {
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int i = 0; i < kThreads; ++i) threads.emplace_back([&work, i] { work(i); });
  for (std::thread& thread : threads) thread.join();
}

bool isReadable(MainRunLoop& loop) {
  pollfd descriptor{loop.fileDescriptor(), POLLIN, 0};
  return ::poll(&descriptor, 1, 0) == 1;
}
bool becomesReadable(MainRunLoop& loop) {
  pollfd descriptor{loop.fileDescriptor(), POLLIN, 0};
  static constexpr int kLimit = 20'000;  // Milliseconds.
  return ::poll(&descriptor, 1, kLimit) == 1;
}

TEST(RunLoopThreads, GetEveryPostedTaskRunOnceAndInTheirOrder) {
  MainRunLoop loop;
  std::vector<std::vector<int>> ran(kThreads);
  std::atomic<int> total = 0;
  std::set<std::thread::id> ranOn;
  std::thread posting([&] {
    onThreads([&](int thread) {
      for (int i = 0; i < kEach; ++i) {
        loop.post([&, thread, i] {
          ran[static_cast<std::size_t>(thread)].push_back(i);
          ranOn.insert(std::this_thread::get_id());
          ++total;
        });
      }
    });
  });
  EXPECT_TRUE(loop.runUntil(loop.now() + 20s, [&] { return total == kThreads * kEach; }));
  posting.join();
  std::vector<int> expected(kEach);
  for (int i = 0; i < kEach; ++i) expected[static_cast<std::size_t>(i)] = i;
  EXPECT_EQ(ran, std::vector<std::vector<int>>(kThreads, expected));
  EXPECT_EQ(ranOn, std::set{std::this_thread::get_id()});
}

TEST(RunLoopThreads, WakeALoopThatWaits) {
  MainRunLoop loop;
  loop.arm(1h, [] { FAIL() << "an hour has passed"; });
  bool ran = false;
  std::thread posting([&] {
    loop.post([&] {
      ran = true;
      loop.stop();
    });
  });
  loop.run();
  posting.join();
  EXPECT_TRUE(ran);
}

TEST(RunLoopThreads, WakeALoopThatWaitsForTheFurthestTimeThereIs) {
  MainRunLoop loop;
  ASSERT_GE(loop.fileDescriptor(), 0);
  loop.arm(Time::max(), [] { FAIL() << "the end of time has come"; });
  std::thread posting([&] { loop.post([&] { loop.stop(); }); });
  loop.runFor(Time::max());
  posting.join();
  EXPECT_FALSE(isReadable(loop));
}

TEST(RunLoopThreads, StopALoopThatWaits) {
  MainRunLoop loop;
  std::thread stopping([&] { loop.stop(); });
  loop.run();
  stopping.join();
}

TEST(RunLoopThreads, ArmAndCancelWhileTheLoopTurns) {
  MainRunLoop loop;
  std::atomic<int> ran = 0;
  std::atomic<bool> done = false;
  std::thread arming([&] {
    onThreads([&](int) {
      for (int i = 0; i < kEach; ++i) {
        const auto kept = loop.arm(0ns, [&] { ++ran; });
        loop.cancel(loop.arm(1h, [] { FAIL() << "cancelled"; }));
        EXPECT_GT(kept, 0U);
      }
    });
    done = true;
    loop.post([] {});
  });
  EXPECT_TRUE(loop.runUntil(loop.now() + 20s, [&] { return done && ran == kThreads * kEach; }));
  arming.join();
}

TEST(RunLoopThreads, ReadTheClockWhileVirtualTimeStandsStillForTheLoopsOwnThread) {
  const auto clock = std::make_shared<simulated::VirtualClock>();
  MainRunLoop loop(clock);
  loop.post([&] {
    clock->sleepFor(5s);
    EXPECT_EQ(loop.now(), 0s);
    Time seen{};
    std::thread([&] { seen = loop.now(); }).join();
    EXPECT_EQ(seen, 5s);
  });
  EXPECT_TRUE(loop.runOneTurn());
}

TEST(RunLoopThreads, SleepWithoutMovingVirtualTimeOnForTheLoopsOwn) {
  const auto clock = std::make_shared<simulated::VirtualClock>();
  MainRunLoop loop(clock);
  loop.post([&] {
    std::thread([&] { loop.sleepFor(5s); }).join();
    EXPECT_EQ(loop.now(), 0s);
  });
  EXPECT_TRUE(loop.runOneTurn());
  EXPECT_EQ(loop.now(), 5s);
}

TEST(RunLoopThreads, MakeDelayedRequestsFromAnywhere) {
  struct Counter {
    int count = 0;
  };
  static constexpr SEL kCount{"count", [](void* target, const std::shared_ptr<void>&) noexcept {
                                ++static_cast<Counter*>(target)->count;
                              }};
  MainRunLoop loop;
  const auto counter = std::make_shared<Counter>();
  onThreads(
      [&](int) { loop.performSelector_withObject_afterDelay(counter, kCount, nullptr, 0.0); });
  EXPECT_TRUE(loop.runUntil(loop.now() + 20s, [&] { return counter->count == kThreads; }));
}

TEST(RunLoopDescriptor, IsReadableWhenSomethingWasPosted) {
  MainRunLoop loop;
  ASSERT_GE(loop.fileDescriptor(), 0);
  EXPECT_EQ(loop.fileDescriptor(), loop.fileDescriptor());
  EXPECT_FALSE(isReadable(loop));
  loop.post([] {});
  EXPECT_TRUE(isReadable(loop));
  EXPECT_TRUE(loop.runOneTurn());
  EXPECT_FALSE(isReadable(loop));
}

TEST(RunLoopDescriptor, IsReadableForWhatWasPostedBeforeItWasAskedFor) {
  MainRunLoop loop;
  loop.post([] {});
  EXPECT_TRUE(isReadable(loop));
}

TEST(RunLoopDescriptor, StaysReadableWhenATurnLeavesSomethingForTheNext) {
  MainRunLoop loop;
  loop.fileDescriptor();
  loop.post([&] { loop.post([] {}); });
  loop.runOneTurn();
  EXPECT_TRUE(isReadable(loop));
  loop.runOneTurn();
  EXPECT_FALSE(isReadable(loop));
}

TEST(RunLoopDescriptor, BecomesReadableWhenATimerIsDue) {
  MainRunLoop loop;
  bool ran = false;
  loop.arm(20ms, [&] { ran = true; });
  ASSERT_TRUE(becomesReadable(loop));
  EXPECT_TRUE(loop.runOneTurn());
  EXPECT_TRUE(ran);
  EXPECT_FALSE(isReadable(loop));
}

TEST(RunLoopDescriptor, IsNotReadableBeforeATimerIsDue) {
  MainRunLoop loop;
  loop.arm(1h, [] {});
  EXPECT_FALSE(isReadable(loop));
  EXPECT_FALSE(loop.runOneTurn());
  EXPECT_FALSE(isReadable(loop));
}

TEST(RunLoopDescriptor, BecomesReadableForATimerThatIsArmedBeforeTheOneItWaitsFor) {
  MainRunLoop loop;
  loop.arm(1h, [] {});
  EXPECT_FALSE(isReadable(loop));
  loop.arm(10ms, [] {});
  EXPECT_TRUE(becomesReadable(loop));
}

TEST(RunLoopDescriptor, BecomesReadableByAPostFromAnotherThread) {
  MainRunLoop loop;
  loop.fileDescriptor();
  std::thread posting([&] { loop.post([] {}); });
  EXPECT_TRUE(becomesReadable(loop));
  posting.join();
  EXPECT_TRUE(loop.runOneTurn());
}

TEST(RunLoopDescriptor, IsReadableAgainWhenAnExceptionLeftSomethingPending) {
  MainRunLoop loop;
  loop.fileDescriptor();
  loop.post([] { throw std::runtime_error("trouble"); });
  loop.post([] {});
  EXPECT_THROW(loop.runOneTurn(), std::runtime_error);
  EXPECT_TRUE(isReadable(loop));
  loop.runOneTurn();
  EXPECT_FALSE(isReadable(loop));
}

TEST(RunLoopDescriptor, TellsOfDueWorkInVirtualTimeToo) {
  MainRunLoop loop(std::make_shared<simulated::VirtualClock>());
  loop.arm(1s, [] {});
  EXPECT_FALSE(isReadable(loop));
  loop.sleepFor(1s);
  EXPECT_TRUE(isReadable(loop));
  EXPECT_TRUE(loop.runOneTurn());
  EXPECT_FALSE(isReadable(loop));
}

TEST(DispatchOnce, RunsItsWorkOnceAndMakesEverybodyWaitForIt) {
  for (int round = 0; round < 100; ++round) {
    dispatch_once_t token;
    int runs = 0;
    onThreads([&](int) {
      dispatch_once(token, [&] { ++runs; });
      EXPECT_EQ(runs, 1);
    });
    EXPECT_EQ(runs, 1);
  }
}

TEST(DispatchOnce, KeepsTokensApart) {
  dispatch_once_t one;
  dispatch_once_t two;
  int runs = 0;
  dispatch_once(one, [&] { ++runs; });
  dispatch_once(two, [&] { ++runs; });
  dispatch_once(one, [&] { ++runs; });
  EXPECT_EQ(runs, 2);
}

TEST(LogThreads, WriteWholeLines) {
  const auto log = std::make_shared<RecordingLog>();
  setDefaultLogSink(log);
  onThreads([](int thread) {
    for (int i = 0; i < kEach; ++i) NSLog(*defaultLogSink(), "thread %ld", thread);
  });
  setDefaultLogSink(std::make_shared<StandardErrorLogSink>());
  for (int thread = 0; thread < kThreads; ++thread) {
    EXPECT_EQ(log->count("thread " + std::to_string(thread)), std::size_t{kEach});
  }
}

}  // namespace
}  // namespace kestrin::test
