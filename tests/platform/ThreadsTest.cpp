// What is promised to several threads at once, and the descriptor for a foreign event loop. Real
// time passes here; every wait is for a condition, and its limit is only reached by a failure.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>

#include <atomic>
#include <set>
#include <thread>

#include "KestrinBLESDK/platform/Dispatch.h"
#include "KestrinBLESDK/platform/NSLog.h"
#include "RunLoopTest.h"
#include "support/Pipe.h"
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

/// A loop in real time that watches one end of a pipe.
class WatchThreads : public testing::Test {
 protected:
  /// Watches; the handler reads and ends the run.
  MainRunLoop::WatchId watch() {
    const auto id = loop.watch(pipe.reading.number(), Readiness::readable, [this](Readiness) {
      read += pipe.reading.read();
      ranOn = std::this_thread::get_id();
      loop.stop();
    });
    if (!id) throw std::runtime_error("the pipe is not watched");
    return *id;
  }

  Pipe pipe;  // Outlives the loop, so that nothing but the loop ends a look at it.
  MainRunLoop loop;
  std::string read;
  std::thread::id ranOn;
};
using WatchThreadsDescriptor = WatchThreads;

TEST_F(WatchThreads, WakeALoopThatWaitsForItsDescriptors) {
  watch();
  std::thread writing([&] { pipe.writing.write("a"); });
  loop.run();
  writing.join();
  EXPECT_EQ(read, "a");
  EXPECT_EQ(ranOn, std::this_thread::get_id());
}

TEST_F(WatchThreads, WatchForALoopThatWaitsAlready) {
  pipe.writing.write("a");
  std::thread watching([&] { watch(); });
  loop.run();
  watching.join();
  EXPECT_EQ(read, "a");
  EXPECT_EQ(ranOn, std::this_thread::get_id());
}

TEST_F(WatchThreads, PostToALoopThatWaitsForItsDescriptors) {
  watch();
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

TEST_F(WatchThreads, StopALoopThatWaitsForItsDescriptors) {
  watch();
  std::thread stopping([&] { loop.stop(); });
  loop.run();
  stopping.join();
  EXPECT_EQ(read, "");
}

TEST_F(WatchThreads, LetATimerComeWhileNothingIsReady) {
  watch();
  bool ran = false;
  loop.arm(20ms, [&] { ran = true; });
  EXPECT_TRUE(loop.runUntil(loop.now() + 20s, [&] { return ran; }));
}

TEST_F(WatchThreads, PostToALoopWhoseDescriptorsTheSystemRefusesToLookAt) {
  watch();
  pipe.writing.write("a");
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  rlimit none = before;
  none.rlim_cur = 0;
  std::thread posting([&] { loop.post([&] { loop.stop(); }); });
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  loop.run();
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
  posting.join();
  EXPECT_EQ(read, "");
}

TEST(WatchThreadsInVirtualTime, EndTheLastWatchOfARunThatWaitsForNothingElse) {
  MainRunLoop loop(std::make_shared<simulated::VirtualClock>());
  const Pipe pipe;
  const auto id = loop.watch(pipe.reading.number(), Readiness::readable,
                             [](Readiness) { FAIL() << "nothing was written"; });
  std::atomic<bool> ends = false;
  std::thread ending([&] {
    ends = true;
    loop.unwatch(*id);
  });
  loop.run();
  EXPECT_TRUE(ends);
  ending.join();
  EXPECT_EQ(loop.now(), 0s);
}

TEST(WatchThreadsInVirtualTime, WriteForARunThatWaitsForNothingElse) {
  MainRunLoop loop(std::make_shared<simulated::VirtualClock>());
  const Pipe pipe;
  bool called = false;
  loop.watch(pipe.reading.number(), Readiness::readable, [&](Readiness) {
    called = true;
    loop.stop();
  });
  std::thread writing([&] { pipe.writing.write("a"); });
  loop.run();
  writing.join();
  EXPECT_TRUE(called);
  EXPECT_EQ(loop.now(), 0s);
}

TEST(WatchThreadsAtOnce, WatchAndUnwatchWhileTheLoopTurns) {
  constexpr int kWatches = 25;
  MainRunLoop loop;
  std::vector<Pipe> pipes(kThreads);
  for (const Pipe& pipe : pipes) pipe.writing.write("a");
  std::atomic<int> calls = 0;
  std::atomic<bool> done = false;
  std::thread watching([&] {
    onThreads([&](int thread) {
      const int descriptor = pipes[static_cast<std::size_t>(thread)].reading.number();
      for (int i = 0; i < kWatches; ++i) {
        const auto id = loop.watch(descriptor, Readiness::readable, [&](Readiness) { ++calls; });
        ASSERT_TRUE(id);
        // Each is found at least once before it ends.
        const int before = calls;
        while (calls == before) std::this_thread::yield();
        loop.unwatch(*id);
      }
    });
    done = true;
    loop.post([] {});
  });
  EXPECT_TRUE(loop.runUntil(loop.now() + 100s, [&] { return done.load(); }));
  watching.join();
}

TEST_F(WatchThreadsDescriptor, BecomesReadableWithAWatchedOneAndStaysSoUntilItsHandlerHasRun) {
  watch();
  EXPECT_FALSE(isReadable(loop));
  pipe.writing.write("a");
  EXPECT_TRUE(becomesReadable(loop));
  loop.arm(1h, [] {});
  EXPECT_TRUE(isReadable(loop));
  EXPECT_TRUE(loop.runOneTurn());
  EXPECT_EQ(read, "a");
  EXPECT_FALSE(isReadable(loop));
  pipe.writing.write("b");
  EXPECT_TRUE(becomesReadable(loop));
  EXPECT_TRUE(loop.runOneTurn());
  EXPECT_EQ(read, "ab");
}

TEST_F(WatchThreadsDescriptor, BecomesReadableWithOneThatIsWatchedLater) {
  EXPECT_FALSE(isReadable(loop));
  pipe.writing.write("a");
  watch();
  EXPECT_TRUE(becomesReadable(loop));
}

TEST_F(WatchThreadsDescriptor, BecomesReadableAgainWhileAWatchedOneIsNotRead) {
  loop.watch(pipe.reading.number(), Readiness::readable, [](Readiness) {});
  pipe.writing.write("a");
  for (int turn = 0; turn < 3; ++turn) {
    EXPECT_TRUE(becomesReadable(loop));
    EXPECT_TRUE(loop.runOneTurn());
  }
}

TEST_F(WatchThreadsDescriptor, IsNotReadableForOneWhoseWatchHasEnded) {
  const auto id = watch();
  pipe.writing.write("a");
  EXPECT_TRUE(becomesReadable(loop));
  loop.unwatch(id);
  EXPECT_FALSE(isReadable(loop));
  EXPECT_FALSE(loop.runOneTurn());
  EXPECT_FALSE(isReadable(loop));
}

TEST_F(WatchThreadsDescriptor, BecomesReadableWithATimerThatIsDueWhileDescriptorsAreWatched) {
  watch();
  EXPECT_FALSE(isReadable(loop));
  // Many, as each may be armed before or after the look at the descriptors begins.
  int ran = 0;
  for (int i = 1; i <= 50; ++i) {
    loop.arm(1ms, [&] { ++ran; });
    ASSERT_TRUE(becomesReadable(loop));
    EXPECT_TRUE(loop.runOneTurn());
    EXPECT_EQ(ran, i);
  }
}

TEST_F(WatchThreadsDescriptor, IsNotReadableForAClosedOneThatATurnHasFound) {
  std::vector<Readiness> found;
  pipe.writing.write("a");
  loop.watch(pipe.reading.number(), Readiness::readable,
             [&](Readiness readiness) { found.push_back(readiness); });
  EXPECT_TRUE(becomesReadable(loop));
  pipe.reading.close();
  EXPECT_TRUE(loop.runOneTurn());
  EXPECT_EQ(found, std::vector<Readiness>{Readiness::closed});
  EXPECT_FALSE(isReadable(loop));
  EXPECT_FALSE(loop.runOneTurn());
}

TEST(WatchThreadsDescriptorInVirtualTime, BecomesReadableWithAWatchedOne) {
  MainRunLoop loop(std::make_shared<simulated::VirtualClock>());
  const Pipe pipe;
  loop.watch(pipe.reading.number(), Readiness::readable,
             [&](Readiness) { EXPECT_EQ(pipe.reading.read(), "a"); });
  loop.arm(1s, [] {});
  EXPECT_FALSE(isReadable(loop));
  pipe.writing.write("a");
  EXPECT_TRUE(becomesReadable(loop));
  EXPECT_TRUE(loop.runOneTurn());
  EXPECT_FALSE(isReadable(loop));
  EXPECT_EQ(loop.now(), 0s);
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
