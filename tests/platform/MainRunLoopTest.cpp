// Turns, time and timers of the run loop, in virtual time.
#include "KestrinBLESDK/platform/MainRunLoop.h"

#include <limits>
#include <stdexcept>

#include "RunLoopTest.h"
#include "support/WorkedClock.h"

namespace kestrin::test {
namespace {

using MainRunLoopTurn = RunLoopTest;
using MainRunLoopRun = RunLoopTest;
using MainRunLoopTime = RunLoopTest;
using MainRunLoopTimer = RunLoopTest;
using MainRunLoopEnd = RunLoopTest;

TEST_F(MainRunLoopTurn, RunsWhatWasPostedInOrder) {
  loop->post(writing("a"));
  loop->post(writing("b"));
  EXPECT_EQ(ran, Names{});
  EXPECT_TRUE(loop->runOneTurn());
  EXPECT_EQ(ran, (Names{"a", "b"}));
  EXPECT_FALSE(loop->runOneTurn());
}

TEST_F(MainRunLoopTurn, WaitsForNothing) {
  loop->arm(1s, writing("later"));
  EXPECT_FALSE(loop->runOneTurn());
  EXPECT_EQ(loop->now(), 0s);
}

TEST_F(MainRunLoopTurn, LeavesWhatWasPostedInItToALaterOne) {
  loop->post([this] {
    ran.emplace_back("first");
    loop->post(writing("posted"));
    loop->arm(0s, writing("armed"));
  });
  loop->runOneTurn();
  EXPECT_EQ(ran, Names{"first"});
  loop->runOneTurn();
  EXPECT_EQ(ran, (Names{"first", "posted", "armed"}));
}

TEST_F(MainRunLoopTurn, IsNotHeldByATaskThatPostsItselfAgain) {
  std::function<void()> again = [&] {
    ran.emplace_back("again");
    loop->post(again);
  };
  loop->post(again);
  loop->post(writing("other"));
  loop->runOneTurn();
  EXPECT_EQ(ran, (Names{"again", "other"}));
}

TEST_F(MainRunLoopTurn, CanBeAskedFor) {
  bool insideATask = false;
  EXPECT_FALSE(loop->isTurning());
  loop->post([&] { insideATask = loop->isTurning(); });
  loop->runOneTurn();
  EXPECT_TRUE(insideATask);
  EXPECT_FALSE(loop->isTurning());
}

TEST_F(MainRunLoopTurn, RunsNothingFromInsideATask) {
  loop->post([this] {
    EXPECT_FALSE(loop->runOneTurn());
    loop->run();
    loop->runUntil(10s);
    loop->runFor(10s);
    EXPECT_FALSE(loop->runUntil(10s, [] { return false; }));
    EXPECT_FALSE(loop->runUntil(10s, [] { return true; }));
    EXPECT_EQ(ran, Names{});
    EXPECT_EQ(loop->now(), 0s);
  });
  loop->post(writing("next"));
  EXPECT_TRUE(loop->runOneTurn());
  EXPECT_EQ(ran, Names{"next"});
}

TEST_F(MainRunLoopTurn, IsEndedByAnExceptionThatLeavesTheRestPending) {
  loop->post(writing("before"));
  loop->post([] { throw std::runtime_error("trouble"); });
  loop->post(writing("after"));
  EXPECT_THROW(loop->runOneTurn(), std::runtime_error);
  EXPECT_EQ(ran, Names{"before"});
  EXPECT_TRUE(loop->runOneTurn());
  EXPECT_EQ(ran, (Names{"before", "after"}));
}

TEST_F(MainRunLoopTurn, LetsAnExceptionLeaveARunToo) {
  loop->arm(1s, [] { throw std::runtime_error("trouble"); });
  loop->arm(2s, writing("after"));
  EXPECT_THROW(loop->run(), std::runtime_error);
  EXPECT_EQ(loop->now(), 1s);
  loop->run();
  EXPECT_EQ(ran, Names{"after"});
}

TEST_F(MainRunLoopTurn, SkipsATaskThatAnEarlierOneOfItCancelled) {
  RunLoop::TimerId second = 0;
  loop->post([&] { loop->cancel(second); });
  second = loop->arm(0s, writing("second"));
  loop->post(writing("third"));
  loop->runOneTurn();
  EXPECT_EQ(ran, Names{"third"});
}

TEST_F(MainRunLoopTimer, RunsWhenItsDelayIsOver) {
  loop->arm(1500ms, [this] {
    ran.emplace_back("timer");
    EXPECT_EQ(loop->now(), 1500ms);
  });
  loop->runUntil(1500ms - 1ns);
  EXPECT_EQ(ran, Names{});
  loop->runUntil(1500ms);
  EXPECT_EQ(ran, Names{"timer"});
}

TEST_F(MainRunLoopTimer, RunsInOrderOfDueTimeAndTiesInOrderOfArming) {
  loop->arm(2s, writing("2s"));
  loop->arm(1s, writing("1s, first"));
  loop->arm(1s, writing("1s, second"));
  loop->run();
  EXPECT_EQ(ran, (Names{"1s, first", "1s, second", "2s"}));
}

TEST_F(MainRunLoopTimer, TiesInOrderOfArmingAlsoWhenArmedAtDifferentTimes) {
  loop->arm(1s, [this] { loop->arm(1s, writing("armed last")); });
  loop->arm(2s, writing("armed first"));
  loop->run();
  EXPECT_EQ(ran, (Names{"armed first", "armed last"}));
}

TEST_F(MainRunLoopTimer, WithANegativeDelayIsDueAtOnceAndNotBeforeOthers) {
  loop->post(writing("posted"));
  loop->arm(-5s, writing("negative"));
  loop->runOneTurn();
  EXPECT_EQ(ran, (Names{"posted", "negative"}));
}

TEST_F(MainRunLoopTimer, WithTheLongestDelayIsNeverDue) {
  clock->sleepFor(1h);
  loop->arm(Time::max(), writing("never"));
  loop->arm(1s, writing("soon"));
  loop->runFor(2s);
  EXPECT_EQ(ran, Names{"soon"});
}

TEST_F(MainRunLoopTimer, IsForgottenWhenCancelled) {
  const auto timer = loop->arm(1s, writing("cancelled"));
  loop->cancel(timer);
  loop->cancel(timer);
  loop->run();
  EXPECT_EQ(ran, Names{});
  EXPECT_EQ(loop->now(), 0s);
}

TEST_F(MainRunLoopTimer, CanBeCancelledHarmlesslyAfterItHasRun) {
  const auto timer = loop->arm(1s, writing("ran"));
  loop->run();
  loop->arm(1s, writing("another"));
  loop->cancel(timer);
  loop->cancel(123456);
  loop->run();
  EXPECT_EQ(ran, (Names{"ran", "another"}));
}

TEST_F(MainRunLoopTimer, IsReleasedByCancelWithoutTheLoopsLock) {
  struct CallingBack {
    std::shared_ptr<MainRunLoop> loop;
    explicit CallingBack(std::shared_ptr<MainRunLoop> l) : loop(std::move(l)) {}
    ~CallingBack() {
      loop->post([] {});
    }
  };
  auto held = std::make_shared<CallingBack>(loop);
  const auto timer = loop->arm(1s, [held] {});
  held.reset();
  loop->cancel(timer);
  EXPECT_TRUE(loop->runOneTurn());
}

TEST_F(MainRunLoopTimer, IsReleasedAsSoonAsItHasRun) {
  const auto held = std::make_shared<int>(0);
  loop->post([held] {});
  loop->post([&] { EXPECT_EQ(held.use_count(), 1); });
  loop->runOneTurn();
}

TEST(MainRunLoopVirtualTime, StandsStillWithinATurn) {
  MainRunLoop loop(std::make_shared<TickingClock>(false));
  std::vector<Time> seen;
  for (int i = 0; i < 3; ++i) {
    loop.post([&] {
      seen.push_back(loop.now());
      seen.push_back(loop.now());
    });
  }
  // Armed at passing times, all of them due by now.
  loop.sleepFor(10ms);
  loop.runOneTurn();
  ASSERT_EQ(seen.size(), 6U);
  EXPECT_EQ(std::vector<Time>(6, seen.front()), seen);
  // And outside a turn it passes.
  const Time afterTheTurn = loop.now();
  EXPECT_GT(afterTheTurn, seen.front());
  EXPECT_GT(loop.now(), afterTheTurn);
}

TEST(MainRunLoopVirtualTime, MakesTimersArmedInOneTurnTieInOrderOfArming) {
  MainRunLoop loop(std::make_shared<TickingClock>(false));
  Names ran;
  Time first{};
  Time second{};
  loop.post([&] {
    loop.arm(5ms, [&] { first = loop.now(); });
    loop.arm(5ms, [&] { second = loop.now(); });
  });
  loop.sleepFor(1ms);
  loop.runFor(1s);
  EXPECT_EQ(first, second);
  EXPECT_NE(first, Time::zero());
}

class MainRunLoopRealTime : public testing::Test {
 protected:
  /// A task that works for 400 ms.
  RunLoop::Task working() {
    return [this] { clock->work(400ms); };
  }
  /// A task that writes down when it runs.
  RunLoop::Task noting() {
    return [this] { ran.push_back(loop.now()); };
  }

  const std::shared_ptr<WorkedClock> clock = std::make_shared<WorkedClock>();
  MainRunLoop loop{clock};
  std::vector<Time> ran;
};

TEST_F(MainRunLoopRealTime, PassesWithinATurn) {
  loop.post([&] {
    noting()();
    working()();
    noting()();
  });
  loop.post(noting());
  loop.runOneTurn();
  EXPECT_EQ(ran, (std::vector<Time>{0ms, 400ms, 400ms}));
}

TEST_F(MainRunLoopRealTime, LetsADelayCountFromItsArmingAfterLongWorkInTheSameTask) {
  loop.post([&] {
    working()();
    loop.arm(500ms, noting());
  });
  loop.runFor(2s);
  EXPECT_EQ(ran, std::vector<Time>{900ms});
}

TEST_F(MainRunLoopRealTime, LetsADelayCountFromItsArmingAfterLongWorkInAnEarlierTaskOfTheTurn) {
  loop.post(working());
  loop.post([&] { loop.arm(500ms, noting()); });
  loop.runFor(2s);
  EXPECT_EQ(ran, std::vector<Time>{900ms});
}

TEST_F(MainRunLoopRealTime, LetsADelayedRequestCountFromItsArmingAfterLongWork) {
  struct Target {
    MainRunLoop& loop;
    Time ran;
  };
  static constexpr SEL kRun{"run", [](void* object, const std::shared_ptr<void>&) noexcept {
                              auto& target = *static_cast<Target*>(object);
                              target.ran = target.loop.now();
                            }};
  const auto target = std::make_shared<Target>(Target{loop, 0s});
  loop.post([&] {
    working()();
    loop.performSelector_withObject_afterDelay(target, kRun, nullptr, 0.5);
  });
  loop.runFor(2s);
  EXPECT_EQ(target->ran, 900ms);
}

TEST_F(MainRunLoopRealTime, RunsWhatIsArmedInATurnInALaterOneHoweverLongTheTurnTakes) {
  loop.post([&] {
    loop.arm(1ms, noting());
    loop.post(noting());
    working()();
  });
  loop.runOneTurn();
  EXPECT_EQ(ran, std::vector<Time>{});
  loop.runOneTurn();
  EXPECT_EQ(ran, (std::vector<Time>{400ms, 400ms}));
}

TEST_F(MainRunLoopRealTime, LeavesWhatBecomesDueDuringATurnToALaterOneInOrderOfDueTime) {
  Names names;
  loop.post(working());
  loop.arm(300ms, [&] { names.emplace_back("due after 300 ms"); });
  loop.arm(200ms, [&] { names.emplace_back("due after 200 ms"); });
  loop.runOneTurn();
  EXPECT_EQ(names, Names{});
  loop.runOneTurn();
  EXPECT_EQ(names, (Names{"due after 200 ms", "due after 300 ms"}));
}

TEST_F(MainRunLoopTime, MovesOnWithASleepForWhatIsArmedLaterInTheSameTurn) {
  Time due{};
  loop->post([&] {
    loop->sleepFor(50ms);
    EXPECT_EQ(loop->now(), 50ms);
    loop->arm(100ms, [&] { due = loop->now(); });
  });
  loop->run();
  EXPECT_EQ(due, 150ms);
}

TEST_F(MainRunLoopTime, RunsNoEventDuringASleep) {
  loop->arm(20ms, writing("during"));
  loop->post([this] {
    ran.emplace_back("before");
    loop->sleepFor(50ms);
    ran.emplace_back("after");
  });
  loop->post(writing("same turn"));
  loop->runOneTurn();
  EXPECT_EQ(ran, (Names{"before", "after", "same turn"}));
  loop->runOneTurn();
  EXPECT_EQ(ran, (Names{"before", "after", "same turn", "during"}));
}

TEST_F(MainRunLoopTime, MovesOnWithASleepOutsideATurn) {
  loop->sleepFor(50ms);
  EXPECT_EQ(loop->now(), 50ms);
  loop->sleepFor(-50ms);
  loop->sleepFor(0ms);
  EXPECT_EQ(loop->now(), 50ms);
}

TEST_F(MainRunLoopTime, StaysAtTheFurthestTimeThereIsAfterTheLongestSleep) {
  loop->sleepFor(1h);
  loop->sleepFor(Time::max());
  EXPECT_EQ(loop->now(), Time::max());
  loop->post(writing("posted then"));
  loop->runFor(1s);
  EXPECT_EQ(ran, Names{"posted then"});
}

TEST_F(MainRunLoopTime, IsThatOfTheClock) {
  clock->sleepFor(3s);
  EXPECT_EQ(loop->now(), 3s);
}

TEST_F(MainRunLoopRun, GoesOnUntilNothingIsPendingInVirtualTime) {
  loop->arm(1h, [this] { loop->arm(1h, writing("two hours")); });
  loop->run();
  EXPECT_EQ(ran, Names{"two hours"});
  EXPECT_EQ(loop->now(), 2h);
}

TEST_F(MainRunLoopRun, UntilADeadlineRunsEverythingDueByThenAndNothingElse) {
  loop->arm(1s, writing("1s"));
  loop->arm(2s, writing("2s"));
  loop->arm(2s + 1ns, writing("later"));
  loop->runUntil(2s);
  EXPECT_EQ(ran, (Names{"1s", "2s"}));
  EXPECT_EQ(loop->now(), 2s);
}

TEST_F(MainRunLoopRun, UntilADeadlineRunsWhatIsArmedForItOnTheWay) {
  loop->arm(1s, [this] {
    loop->arm(1s, [this] {
      ran.emplace_back("2s");
      loop->post(writing("at 2s too"));
    });
  });
  loop->runUntil(2s);
  EXPECT_EQ(ran, (Names{"2s", "at 2s too"}));
}

TEST_F(MainRunLoopRun, ForASpanCountsFromNow) {
  loop->runFor(1s);
  loop->runFor(1s);
  EXPECT_EQ(loop->now(), 2s);
}

TEST_F(MainRunLoopRun, ForTheLongestSpanEndsByStop) {
  clock->sleepFor(1h);
  loop->arm(1s, [this] { loop->stop(); });
  loop->runFor(Time::max());
  EXPECT_EQ(loop->now(), 1h + 1s);
}

TEST_F(MainRunLoopRun, UntilADeadlineInThePastRunsNothingThatIsDueLater) {
  clock->sleepFor(2s);
  loop->post(writing("now"));
  loop->runUntil(1s);
  EXPECT_EQ(ran, Names{});
  EXPECT_EQ(loop->now(), 2s);
}

TEST_F(MainRunLoopRun, UntilADeadlineInThePastRunsWhatIsOverdueByThen) {
  loop->arm(1s, writing("1s"));
  clock->sleepFor(2s);
  loop->runUntil(1s - 1ns);
  EXPECT_EQ(ran, Names{});
  loop->runUntil(1s);
  EXPECT_EQ(ran, Names{"1s"});
}

TEST_F(MainRunLoopRun, ForANegativeSpanRunsNothingThatIsDueNow) {
  loop->post(writing("now"));
  loop->runFor(-1s);
  loop->runFor(Time::min());
  EXPECT_EQ(ran, Names{});
  loop->runFor(0s);
  EXPECT_EQ(ran, Names{"now"});
}

TEST_F(MainRunLoopRun, EndsAsSoonAsItsConditionHolds) {
  for (int i = 1; i <= 5; ++i) loop->arm(i * 1s, writing("timer"));
  EXPECT_TRUE(loop->runUntil(1h, [this] { return ran.size() == 3; }));
  EXPECT_EQ(ran.size(), 3U);
  EXPECT_EQ(loop->now(), 3s);
}

TEST_F(MainRunLoopRun, RunsNothingWhenItsConditionHoldsAlready) {
  loop->post(writing("posted"));
  EXPECT_TRUE(loop->runUntil(1s, [] { return true; }));
  EXPECT_EQ(ran, Names{});
}

TEST_F(MainRunLoopRun, SaysThatItsDeadlineCameFirst) {
  EXPECT_FALSE(loop->runUntil(1s, [] { return false; }));
  EXPECT_EQ(loop->now(), 1s);
}

TEST_F(MainRunLoopRun, AsksItsConditionOnceMoreAtTheDeadline) {
  loop->arm(1s, writing("at the deadline"));
  EXPECT_TRUE(loop->runUntil(1s, [this] { return !ran.empty(); }));
}

TEST_F(MainRunLoopRun, IsEndedByStopAfterTheCurrentTurn) {
  loop->post([this] {
    ran.emplace_back("stopping");
    loop->stop();
  });
  loop->post(writing("same turn"));
  loop->arm(1s, writing("later"));
  loop->run();
  EXPECT_EQ(ran, (Names{"stopping", "same turn"}));
  loop->run();
  EXPECT_EQ(ran, (Names{"stopping", "same turn", "later"}));
}

TEST_F(MainRunLoopRun, EndsAtOnceAfterAnEarlierStopAndOnlyOnce) {
  loop->post(writing("posted"));
  loop->stop();
  loop->run();
  EXPECT_EQ(ran, Names{});
  loop->run();
  EXPECT_EQ(ran, Names{"posted"});
}

TEST_F(MainRunLoopRun, SaysThatStopCameBeforeItsCondition) {
  loop->arm(1s, [this] { loop->stop(); });
  EXPECT_FALSE(loop->runUntil(1h, [] { return false; }));
  EXPECT_EQ(loop->now(), 1s);
}

TEST(MainRunLoopDeadline, ComesAlsoForATaskThatPostsItselfForEver) {
  MainRunLoop loop(std::make_shared<TickingClock>());
  int turns = 0;
  std::function<void()> again = [&] {
    if (++turns > 10'000) throw std::runtime_error("the deadline is ignored");
    loop.post(again);
  };
  loop.post(again);
  EXPECT_NO_THROW(loop.runFor(100ms));
  EXPECT_GT(turns, 0);
  EXPECT_NO_THROW(EXPECT_FALSE(loop.runUntil(loop.now() + 100ms, [] { return false; })));
}

TEST_F(MainRunLoopEnd, DropsWhatIsPendingAndReleasesIt) {
  const auto held = std::make_shared<int>(0);
  auto brief = std::make_shared<MainRunLoop>(clock);
  brief->post([held, this] { ran.emplace_back("dropped"); });
  brief->arm(1h, [held] {});
  EXPECT_EQ(held.use_count(), 3);
  brief.reset();
  EXPECT_EQ(held.use_count(), 1);
  EXPECT_EQ(ran, Names{});
}

TEST_F(MainRunLoopEnd, ReleasesWhatIsPendingWithoutItsLock) {
  struct CallingBack {
    MainRunLoop& loop;
    bool& done;
    CallingBack(MainRunLoop& l, bool& d) : loop(l), done(d) {}
    ~CallingBack() {
      loop.cancel(1);
      loop.post([] {});
      done = loop.now() >= Time::zero();
    }
  };
  bool done = false;
  {
    MainRunLoop brief(clock);
    brief.post([held = std::make_shared<CallingBack>(brief, done)] {});
  }
  EXPECT_TRUE(done);
}

TEST(MainRunLoopOfTheProcess, IsOneInRealTime) {
  EXPECT_EQ(MainRunLoop::main(), MainRunLoop::main());
  const Time before = MonotonicClock().now();
  EXPECT_GE(MainRunLoop::main()->now(), before);
}

}  // namespace
}  // namespace kestrin::test
