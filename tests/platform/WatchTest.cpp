// Descriptors that a run loop watches, without waiting for anything: in virtual time, or with a
// clock that passes with every look at it.
#include <sys/resource.h>
#include <sys/socket.h>

#include <stdexcept>
#include <utility>

#include "RunLoopTest.h"
#include "support/Pipe.h"

namespace kestrin::test {
namespace {

class WatchedDescriptor : public RunLoopTest {
 protected:
  using Found = std::vector<Readiness>;

  /// Watches the pipe's end that is read, and writes down what is found there.
  MainRunLoop::WatchId watchReading(const Pipe& watched) {
    const auto id = loop->watch(watched.reading.number(), Readiness::readable,
                                [this](Readiness readiness) { found.push_back(readiness); });
    if (!id) throw std::runtime_error("the pipe is not watched");
    return *id;
  }
  /// The same, and writes `name` when it is called.
  MainRunLoop::WatchId watchNamed(const Pipe& watched, const std::string& name) {
    const auto write = writing(name);
    const auto id =
        loop->watch(watched.reading.number(), Readiness::readable, [write](Readiness) { write(); });
    if (!id) throw std::runtime_error("the pipe is not watched");
    return *id;
  }

  Pipe pipe;
  Pipe other;
  Found found;
};

using WatchHandler = WatchedDescriptor;
using WatchEnd = WatchedDescriptor;
using WatchInVirtualTime = WatchedDescriptor;

TEST_F(WatchedDescriptor, IsFoundReadableWhenSomethingIsThere) {
  watchReading(pipe);
  EXPECT_FALSE(loop->runOneTurn());
  EXPECT_EQ(found, Found{});
  pipe.writing.write("a");
  EXPECT_TRUE(loop->runOneTurn());
  EXPECT_EQ(found, Found{Readiness::readable});
}

TEST_F(WatchedDescriptor, IsFoundReadableInEveryTurnUntilItIsRead) {
  watchReading(pipe);
  pipe.writing.write("a");
  loop->runOneTurn();
  loop->runOneTurn();
  EXPECT_EQ(found, (Found{Readiness::readable, Readiness::readable}));
  EXPECT_EQ(pipe.reading.read(), "a");
  EXPECT_FALSE(loop->runOneTurn());
  EXPECT_EQ(found.size(), 2U);
}

TEST_F(WatchedDescriptor, IsFoundWritableWhileThereIsRoom) {
  std::vector<Readiness> writable;
  loop->watch(pipe.writing.number(), Readiness::writable,
              [&](Readiness readiness) { writable.push_back(readiness); });
  loop->runOneTurn();
  EXPECT_EQ(writable, Found{Readiness::writable});
  const std::string much(1024, 'x');
  while (::write(pipe.writing.number(), much.data(), much.size()) > 0) {
  }
  EXPECT_FALSE(loop->runOneTurn());
  EXPECT_EQ(writable.size(), 1U);
}

TEST_F(WatchedDescriptor, IsFoundReadableAndWritableAtOnceAndOnlyWhatWasAskedFor) {
  std::array<int, 2> ends{};
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()), 0);
  const Descriptor near(ends[0]);
  const Descriptor far(ends[1]);
  Found both;
  Found readable;
  const auto note = [](Found& list) { return [&list](Readiness r) { list.push_back(r); }; };
  loop->watch(near.number(), Readiness::readable | Readiness::writable, note(both));
  loop->watch(near.number(), Readiness::readable, note(readable));
  loop->runOneTurn();
  EXPECT_EQ(both, Found{Readiness::writable});
  EXPECT_EQ(readable, Found{});
  far.write("a");
  loop->runOneTurn();
  EXPECT_EQ(both, (Found{Readiness::writable, Readiness::readable | Readiness::writable}));
  EXPECT_EQ(readable, Found{Readiness::readable});
}

TEST_F(WatchedDescriptor, IsFoundHungUpWhenItsOtherEndIsClosed) {
  watchReading(pipe);
  pipe.writing.write("a");
  pipe.writing.close();
  loop->runOneTurn();
  EXPECT_EQ(pipe.reading.read(), "a");
  loop->runOneTurn();
  EXPECT_EQ(found, (Found{Readiness::readable | Readiness::hungUp, Readiness::hungUp}));
}

TEST_F(WatchedDescriptor, IsFoundFailedWhenNobodyReadsItsPipeAnyMore) {
  // Watched for nothing: failure is reported all the same.
  loop->watch(pipe.writing.number(), Readiness{},
              [this](Readiness readiness) { found.push_back(readiness); });
  EXPECT_FALSE(loop->runOneTurn());
  pipe.reading.close();
  loop->runOneTurn();
  EXPECT_EQ(found, Found{Readiness::failed});
}

TEST_F(WatchedDescriptor, ThatWasClosedIsFoundSoOnceAndIsWatchedNoLonger) {
  watchReading(pipe);
  const int number = pipe.reading.number();
  pipe.reading.close();
  EXPECT_TRUE(loop->runOneTurn());
  EXPECT_EQ(found, Found{Readiness::closed});
  EXPECT_FALSE(loop->runOneTurn());
  const Pipe next;
  ASSERT_EQ(next.reading.number(), number);
  next.writing.write("a");
  EXPECT_FALSE(loop->runOneTurn());
}

TEST_F(WatchedDescriptor, IsNoneThatIsNotOpen) {
  const auto handler = [](Readiness) { FAIL() << "nothing is watched"; };
  const int closed = pipe.reading.number();
  pipe.reading.close();
  EXPECT_EQ(loop->watch(closed, Readiness::readable, handler), std::nullopt);
  EXPECT_EQ(loop->watch(-1, Readiness::readable, handler), std::nullopt);
  EXPECT_EQ(loop->watch(other.reading.number(), Readiness::readable, nullptr), std::nullopt);
  other.writing.write("a");
  EXPECT_FALSE(loop->runOneTurn());
}

TEST_F(WatchedDescriptor, IsNoneWhileTheSystemHasNoDescriptorsLeft) {
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  rlimit none = before;
  none.rlim_cur = 0;
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  const auto without = loop->watch(pipe.reading.number(), Readiness::readable, [](Readiness) {});
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
  EXPECT_EQ(without, std::nullopt);
  watchReading(pipe);
  pipe.writing.write("a");
  EXPECT_TRUE(loop->runOneTurn());
}

TEST_F(WatchedDescriptor, ThatTheSystemRefusesToLookAtHoldsNothingUpAndIsLookedAtLater) {
  watchReading(pipe);
  pipe.writing.write("a");
  loop->arm(1s, writing("timer"));
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  rlimit none = before;
  none.rlim_cur = 0;
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  loop->runFor(1s);
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
  EXPECT_EQ(ran, Names{"timer"});
  EXPECT_EQ(found, Found{});
  loop->runOneTurn();
  EXPECT_EQ(found, Found{Readiness::readable});
}

TEST_F(WatchedDescriptor, OfANumberThatIsUsedAgainIsTheNewOne) {
  const auto old = watchNamed(pipe, "old");
  const int number = pipe.reading.number();
  pipe.writing.write("a");
  loop->unwatch(old);
  pipe.reading.close();
  const Pipe next;
  ASSERT_EQ(next.reading.number(), number);
  watchNamed(next, "new");
  EXPECT_FALSE(loop->runOneTurn());
  next.writing.write("b");
  loop->runOneTurn();
  EXPECT_EQ(ran, Names{"new"});
}

TEST_F(WatchHandler, MayReplaceAnotherDescriptorByANewOneOfItsNumber) {
  std::optional<Pipe> next;
  MainRunLoop::WatchId second = 0;
  const int number = other.reading.number();
  const auto first = loop->watch(pipe.reading.number(), Readiness::readable, [&](Readiness) {
    ran.emplace_back("first");
    EXPECT_EQ(pipe.reading.read(), "a");
    loop->unwatch(second);
    other.reading.close();
    next.emplace();
    next->writing.write("c");
    watchNamed(*next, "new");
  });
  ASSERT_TRUE(first);
  second = watchNamed(other, "old");
  pipe.writing.write("a");
  other.writing.write("b");
  loop->runOneTurn();
  ASSERT_EQ(next->reading.number(), number);
  EXPECT_EQ(ran, Names{"first"});
  loop->runOneTurn();
  EXPECT_EQ(ran, (Names{"first", "new"}));
}

TEST_F(WatchHandler, RunsBehindTheTasksOfItsTurnAndInOrderOfWatching) {
  watchNamed(other, "watched first");
  watchNamed(pipe, "watched second");
  pipe.writing.write("a");
  other.writing.write("b");
  loop->post(writing("task"));
  loop->runOneTurn();
  EXPECT_EQ(ran, (Names{"task", "watched first", "watched second"}));
}

TEST_F(WatchHandler, IsNotCalledForWhatATaskOfTheTurnHasReadAlready) {
  watchReading(pipe);
  pipe.writing.write("a");
  loop->post([this] { EXPECT_EQ(pipe.reading.read(), "a"); });
  loop->runOneTurn();
  EXPECT_EQ(found, Found{});
}

TEST_F(WatchHandler, IsNotCalledInTheTurnInWhichItsWatchBegan) {
  pipe.writing.write("a");
  watchNamed(other, "watched before");
  loop->post([this] { watchReading(pipe); });
  loop->runOneTurn();
  EXPECT_EQ(found, Found{});
  loop->runOneTurn();
  EXPECT_EQ(found, Found{Readiness::readable});
}

TEST_F(WatchHandler, MayEndItsOwnWatchAndIsReleasedWhenItHasReturned) {
  auto held = std::make_shared<int>(0);
  const std::weak_ptr<int> alive = held;
  std::optional<MainRunLoop::WatchId> own;
  own = loop->watch(pipe.reading.number(), Readiness::readable, [&, held](Readiness) {
    loop->unwatch(*own);
    EXPECT_FALSE(alive.expired());
    ran.emplace_back("called");
  });
  held.reset();
  pipe.writing.write("a");
  loop->runOneTurn();
  EXPECT_TRUE(alive.expired());
  EXPECT_FALSE(loop->runOneTurn());
  EXPECT_EQ(ran, Names{"called"});
}

TEST_F(WatchHandler, IsNotCalledWhenAnEarlierOneOfTheTurnEndedItsWatch) {
  MainRunLoop::WatchId second = 0;
  loop->watch(pipe.reading.number(), Readiness::readable,
              [&](Readiness) { loop->unwatch(second); });
  second = watchNamed(other, "second");
  pipe.writing.write("a");
  other.writing.write("b");
  loop->runOneTurn();
  EXPECT_EQ(ran, Names{});
}

TEST_F(WatchHandler, IsNotCalledWhenATaskOfTheTurnEndedItsWatch) {
  const auto watched = watchReading(pipe);
  pipe.writing.write("a");
  loop->post([&] { loop->unwatch(watched); });
  loop->runOneTurn();
  EXPECT_EQ(found, Found{});
}

TEST_F(WatchHandler, RunsInATurnAndTurnsNothingItself) {
  bool turning = false;
  loop->watch(pipe.reading.number(), Readiness::readable, [&](Readiness) {
    turning = loop->isTurning();
    EXPECT_FALSE(loop->runOneTurn());
    EXPECT_EQ(pipe.reading.read(), "a");
    loop->post(writing("posted"));
  });
  pipe.writing.write("a");
  loop->runOneTurn();
  EXPECT_TRUE(turning);
  EXPECT_EQ(ran, Names{});
  loop->runOneTurn();
  EXPECT_EQ(ran, Names{"posted"});
}

TEST_F(WatchHandler, RunsWithoutTheLoopsLock) {
  loop->watch(pipe.reading.number(), Readiness::readable, [this](Readiness) {
    loop->cancel(loop->arm(1s, [] {}));
    loop->unwatch(watchNamed(other, "other"));
    ran.push_back(std::to_string(loop->now().count()));
  });
  pipe.writing.write("a");
  loop->runOneTurn();
  EXPECT_EQ(ran, Names{"0"});
}

TEST_F(WatchHandler, ThatThrowsEndsTheTurnAndTheOthersAreCalledInTheNext) {
  const auto throwing = loop->watch(pipe.reading.number(), Readiness::readable,
                                    [](Readiness) { throw std::runtime_error("trouble"); });
  watchNamed(other, "other");
  pipe.writing.write("a");
  other.writing.write("b");
  EXPECT_THROW(loop->runOneTurn(), std::runtime_error);
  EXPECT_EQ(ran, Names{});
  EXPECT_FALSE(loop->isTurning());
  loop->unwatch(*throwing);
  loop->runOneTurn();
  EXPECT_EQ(ran, Names{"other"});
}

TEST_F(WatchHandler, EndsARunByStop) {
  loop->watch(pipe.reading.number(), Readiness::readable, [this](Readiness) { loop->stop(); });
  pipe.writing.write("a");
  loop->run();
  EXPECT_EQ(pipe.reading.read(), "a");
}

/// Whoever is released calls back.
struct CallingTheLoop {
  MainRunLoop& loop;
  int& calls;
  CallingTheLoop(MainRunLoop& l, int& c) : loop(l), calls(c) {}
  CallingTheLoop(const CallingTheLoop&) = delete;
  CallingTheLoop& operator=(const CallingTheLoop&) = delete;
  ~CallingTheLoop() {
    loop.unwatch(12345);
    loop.post([] {});
    ++calls;
  }
};

TEST_F(WatchEnd, IsHarmlessTwiceAndForWhatWasNeverWatched) {
  const auto watched = watchReading(pipe);
  loop->unwatch(watched + 1);
  loop->unwatch(watched);
  loop->unwatch(watched);
  pipe.writing.write("a");
  EXPECT_FALSE(loop->runOneTurn());
}

TEST_F(WatchEnd, ReleasesTheHandlerWithoutTheLoopsLock) {
  int calls = 0;
  const auto id =
      loop->watch(pipe.reading.number(), Readiness::readable,
                  [held = std::make_shared<CallingTheLoop>(*loop, calls)](Readiness) {});
  loop->unwatch(*id);
  EXPECT_EQ(calls, 1);
}

TEST_F(WatchEnd, ComesWithTheLoopsWhichReleasesTheHandlerWithoutItsLock) {
  int calls = 0;
  {
    MainRunLoop brief(clock);
    brief.watch(pipe.reading.number(), Readiness::readable,
                [held = std::make_shared<CallingTheLoop>(brief, calls)](Readiness) {});
    EXPECT_EQ(calls, 0);
  }
  EXPECT_EQ(calls, 1);
}

TEST_F(WatchInVirtualTime, RunsWhatIsReadyBeforeTimeMovesOn) {
  loop->arm(1s, writing("timer"));
  loop->watch(pipe.reading.number(), Readiness::readable, [this](Readiness) {
    ran.push_back(pipe.reading.read() + " at " + std::to_string(loop->now().count()));
    if (ran.size() < 3) pipe.writing.write("again");
  });
  pipe.writing.write("first");
  loop->runFor(1s);
  EXPECT_EQ(ran, (Names{"first at 0", "again at 0", "again at 0", "timer"}));
}

TEST_F(WatchInVirtualTime, IsLookedAtBetweenTwoTimers) {
  loop->watch(pipe.reading.number(), Readiness::readable, [this](Readiness) {
    ran.push_back(pipe.reading.read() + " at " + std::to_string(loop->now() / Time(1s)));
  });
  loop->arm(1s, [this] { pipe.writing.write("written"); });
  loop->arm(3s, writing("timer"));
  loop->runUntil(5s);
  EXPECT_EQ(ran, (Names{"written at 1", "timer"}));
  EXPECT_EQ(loop->now(), 5s);
}

TEST_F(WatchInVirtualTime, HoldsUpNoDeadlineWhileNothingIsReady) {
  watchReading(pipe);
  EXPECT_FALSE(loop->runUntil(1h, [] { return false; }));
  EXPECT_EQ(loop->now(), 1h);
}

TEST_F(WatchInVirtualTime, IsLookedAtAtTheDeadlineAndNotBehindIt) {
  loop->watch(pipe.reading.number(), Readiness::readable, [this](Readiness) {
    EXPECT_EQ(pipe.reading.read(), "a");
    ran.emplace_back("called");
  });
  pipe.writing.write("a");
  clock->sleepFor(1s);
  loop->runUntil(1s - 1ns);
  EXPECT_EQ(ran, Names{});
  loop->runFor(0s);
  EXPECT_EQ(ran, Names{"called"});
}

TEST_F(WatchInVirtualTime, KeepsARunGoingUntilItsLastOneHasEnded) {
  std::optional<MainRunLoop::WatchId> own;
  own = loop->watch(pipe.reading.number(), Readiness::readable, [&](Readiness) {
    ran.push_back(std::to_string(loop->now() / Time(1s)));
    loop->unwatch(*own);
  });
  loop->arm(2s, [this] { pipe.writing.write("a"); });
  loop->run();
  EXPECT_EQ(ran, Names{"2"});
}

TEST(WatchInPassingTime, IsNotStarvedByATaskThatPostsItselfEndlessly) {
  MainRunLoop loop(std::make_shared<TickingClock>());
  const Pipe pipe;
  pipe.writing.write("a");
  bool called = false;
  loop.watch(pipe.reading.number(), Readiness::readable, [&](Readiness) { called = true; });
  std::function<void()> again = [&] { loop.post(again); };
  loop.post(again);
  EXPECT_TRUE(loop.runUntil(loop.now() + 10s, [&] { return called; }));
}

TEST(WatchInPassingTime, HoldsUpNoDeadlineWhenNobodyReads) {
  MainRunLoop loop(std::make_shared<TickingClock>());
  const Pipe pipe;
  pipe.writing.write("a");
  int calls = 0;
  loop.watch(pipe.reading.number(), Readiness::readable, [&](Readiness) {
    if (++calls > 10'000) throw std::runtime_error("the deadline is ignored");
  });
  EXPECT_NO_THROW(loop.runFor(100ms));
  EXPECT_GT(calls, 0);
}

}  // namespace
}  // namespace kestrin::test
