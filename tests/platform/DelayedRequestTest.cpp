// Delayed requests: an operation on an object, later, once.
#include "RunLoopTest.h"

namespace kestrin::test {
namespace {

struct Target {
  std::vector<std::shared_ptr<void>> plugged;
  int informed = 0;
};

constexpr SEL kPlug{"plug", [](void* target, const std::shared_ptr<void>& object) noexcept {
                      static_cast<Target*>(target)->plugged.push_back(object);
                    }};
constexpr SEL kInform{"inform", [](void* target, const std::shared_ptr<void>&) noexcept {
                        ++static_cast<Target*>(target)->informed;
                      }};

class DelayedRequest : public RunLoopTest {
 protected:
  void perform(const SEL& selector, double seconds, const std::shared_ptr<void>& object = nullptr) {
    loop->performSelector_withObject_afterDelay(target, selector, object, seconds);
  }
  void cancel(const SEL& selector, const std::shared_ptr<void>& object = nullptr) {
    loop->cancelPreviousPerformRequestsWithTarget_selector_object(target.get(), selector,
                                                                  object.get());
  }
  std::shared_ptr<Target> target = std::make_shared<Target>();
};

TEST_F(DelayedRequest, RunsOnceAfterItsDelay) {
  perform(kPlug, 2.0);
  loop->runUntil(2s - 1ns);
  EXPECT_EQ(target->plugged.size(), 0U);
  loop->runUntil(10s);
  EXPECT_EQ(target->plugged.size(), 1U);
}

TEST_F(DelayedRequest, WithoutDelayRunsInALaterTurn) {
  loop->post([this] {
    perform(kPlug, 0.0);
    EXPECT_EQ(target->plugged.size(), 0U);
  });
  loop->runOneTurn();
  EXPECT_EQ(target->plugged.size(), 0U);
  loop->runOneTurn();
  EXPECT_EQ(target->plugged.size(), 1U);
}

TEST_F(DelayedRequest, HandsItsObjectOver) {
  const auto object = std::make_shared<int>(5);
  perform(kPlug, 1.0, object);
  perform(kPlug, 2.0);
  loop->run();
  EXPECT_EQ(target->plugged, (std::vector<std::shared_ptr<void>>{object, nullptr}));
}

TEST_F(DelayedRequest, KeepsItsTargetAndItsObjectUntilItHasRun) {
  auto object = std::make_shared<int>(5);
  const std::weak_ptr<Target> targetAlive = target;
  const std::weak_ptr<int> objectAlive = object;
  perform(kInform, 1.0, object);
  target.reset();
  object.reset();
  loop->runUntil(1s - 1ns);
  EXPECT_FALSE(targetAlive.expired());
  EXPECT_FALSE(objectAlive.expired());
  loop->runUntil(1s);
  EXPECT_TRUE(targetAlive.expired());
  EXPECT_TRUE(objectAlive.expired());
}

TEST_F(DelayedRequest, LetsItsTargetGoWhenCancelled) {
  const std::weak_ptr<Target> alive = target;
  perform(kPlug, 1.0);
  const void* address = target.get();
  target.reset();
  EXPECT_FALSE(alive.expired());
  loop->cancelPreviousPerformRequestsWithTarget_selector_object(address, kPlug, nullptr);
  EXPECT_TRUE(alive.expired());
}

TEST_F(DelayedRequest, LetsItsTargetGoWhenTheLoopEnds) {
  auto brief = std::make_shared<MainRunLoop>(clock);
  const std::weak_ptr<Target> alive = target;
  brief->performSelector_withObject_afterDelay(target, kPlug, nullptr, 1.0);
  target.reset();
  EXPECT_FALSE(alive.expired());
  brief.reset();
  EXPECT_TRUE(alive.expired());
}

TEST_F(DelayedRequest, LetsItsTargetGoWithoutTheLoopsLock) {
  struct CallingBack {
    std::shared_ptr<MainRunLoop> loop;
    explicit CallingBack(std::shared_ptr<MainRunLoop> l) : loop(std::move(l)) {}
    ~CallingBack() {
      loop->post([] {});
    }
  };
  auto calling = std::make_shared<CallingBack>(loop);
  const void* address = calling.get();
  static constexpr SEL kNothing{"nothing", [](void*, const std::shared_ptr<void>&) noexcept {}};
  loop->performSelector_withObject_afterDelay(std::move(calling), kNothing, nullptr, 1.0);
  loop->cancelPreviousPerformRequestsWithTarget_selector_object(address, kNothing, nullptr);
  EXPECT_TRUE(loop->runOneTurn());
}

TEST_F(DelayedRequest, IsCancelledWithEveryOtherOfItsKind) {
  perform(kPlug, 0.0);
  perform(kPlug, 1.0);
  perform(kPlug, 1.0);
  cancel(kPlug);
  loop->run();
  EXPECT_EQ(target->plugged.size(), 0U);
}

TEST_F(DelayedRequest, IsNotCancelledWithAnotherOperation) {
  perform(kPlug, 1.0);
  cancel(kInform);
  loop->run();
  EXPECT_EQ(target->plugged.size(), 1U);
}

TEST_F(DelayedRequest, IsNotCancelledWithAnotherTarget) {
  perform(kPlug, 1.0);
  const auto other = std::make_shared<Target>();
  loop->cancelPreviousPerformRequestsWithTarget_selector_object(other.get(), kPlug, nullptr);
  loop->run();
  EXPECT_EQ(target->plugged.size(), 1U);
}

TEST_F(DelayedRequest, IsNotCancelledWithAnotherObject) {
  const auto object = std::make_shared<int>(5);
  perform(kPlug, 1.0);
  perform(kPlug, 1.0, object);
  cancel(kPlug, std::make_shared<int>(5));
  cancel(kPlug, object);
  loop->run();
  EXPECT_EQ(target->plugged, std::vector<std::shared_ptr<void>>{nullptr});
}

TEST_F(DelayedRequest, IsNotCancelledByWhatWasAskedBefore) {
  cancel(kPlug);
  perform(kPlug, 1.0);
  loop->run();
  EXPECT_EQ(target->plugged.size(), 1U);
}

TEST_F(DelayedRequest, StartsItsDelayAnewWhenCancelledAndMadeAgain) {
  perform(kPlug, 2.0);
  loop->runUntil(1s);
  cancel(kPlug);
  perform(kPlug, 2.0);
  loop->runUntil(3s - 1ns);
  EXPECT_EQ(target->plugged.size(), 0U);
  loop->runUntil(3s);
  EXPECT_EQ(target->plugged.size(), 1U);
}

TEST_F(DelayedRequest, MayCancelAndMakeItselfAgainWhileItRuns) {
  struct Repeating {
    MainRunLoop* loop = nullptr;
    std::weak_ptr<Repeating> self;
    int runs = 0;
  };
  static constexpr SEL kRepeat{
      "repeat", [](void* object, const std::shared_ptr<void>&) noexcept {
        auto& me = *static_cast<Repeating*>(object);
        if (++me.runs == 3) return;
        me.loop->cancelPreviousPerformRequestsWithTarget_selector_object(&me, kRepeat, nullptr);
        me.loop->performSelector_withObject_afterDelay(me.self.lock(), kRepeat, nullptr, 1.0);
      }};
  const auto repeating = std::make_shared<Repeating>();
  repeating->loop = loop.get();
  repeating->self = repeating;
  loop->performSelector_withObject_afterDelay(repeating, kRepeat, nullptr, 1.0);
  loop->run();
  EXPECT_EQ(repeating->runs, 3);
  EXPECT_EQ(loop->now(), 3s);
}

TEST_F(DelayedRequest, IsNoneWithoutATargetOrAnOperation) {
  loop->performSelector_withObject_afterDelay(nullptr, kPlug, nullptr, 0.0);
  loop->performSelector_withObject_afterDelay(target, SEL{"empty"}, nullptr, 0.0);
  EXPECT_FALSE(loop->runOneTurn());
}

TEST_F(DelayedRequest, WithADelayThatIsNoPositiveNumberIsDueAtOnce) {
  perform(kPlug, -1.0);
  perform(kPlug, std::numeric_limits<double>::quiet_NaN());
  loop->runOneTurn();
  EXPECT_EQ(target->plugged.size(), 2U);
}

TEST_F(DelayedRequest, TiesWithTimersInOrderOfArming) {
  loop->arm(500ms, [this] { EXPECT_EQ(target->informed, 0); });
  perform(kInform, 0.5);
  loop->arm(500ms, [this] { EXPECT_EQ(target->informed, 1); });
  loop->run();
  EXPECT_EQ(target->informed, 1);
}

TEST(Selectors, AreTheSameWhenTheirNamesAre) {
  EXPECT_TRUE((SEL{"plug", kPlug.perform}) == (SEL{"plug", kInform.perform}));
  EXPECT_FALSE((SEL{"plug", kPlug.perform}) == (SEL{"inform", kPlug.perform}));
}

}  // namespace
}  // namespace kestrin::test
