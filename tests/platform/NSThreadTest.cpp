// Sleeping on a loop's clock.
#include "KestrinBLESDK/platform/NSThread.h"

#include <limits>

#include "RunLoopTest.h"

namespace kestrin::test {
namespace {

using ThreadSleep = RunLoopTest;

TEST_F(ThreadSleep, PassesTheLoopsTime) {
  const auto thread = sleepOn(loop);
  thread->sleepForTimeInterval(0.05);
  EXPECT_EQ(loop->now(), 50ms);
}

TEST_F(ThreadSleep, MovesVirtualTimeOnAndRunsNoEvent) {
  const auto thread = sleepOn(loop);
  loop->arm(10ms, writing("timer"));
  loop->post([&] {
    thread->sleepForTimeInterval(0.05);
    EXPECT_EQ(loop->now(), 50ms);
    EXPECT_EQ(ran, Names{});
  });
  loop->run();
  EXPECT_EQ(ran, Names{"timer"});
}

TEST_F(ThreadSleep, IsNoneForWhatIsNoPositiveNumber) {
  const auto thread = sleepOn(loop);
  thread->sleepForTimeInterval(0.0);
  thread->sleepForTimeInterval(-1.0);
  thread->sleepForTimeInterval(std::numeric_limits<double>::quiet_NaN());
  EXPECT_EQ(loop->now(), 0s);
}

TEST_F(ThreadSleep, IsNoneWithoutTheLoop) {
  auto brief = std::make_shared<MainRunLoop>(clock);
  const std::weak_ptr<MainRunLoop> alive = brief;
  const auto thread = sleepOn(brief);
  brief.reset();
  EXPECT_TRUE(alive.expired());
  thread->sleepForTimeInterval(1.0);
  EXPECT_EQ(clock->now(), 0s);
}

}  // namespace
}  // namespace kestrin::test
