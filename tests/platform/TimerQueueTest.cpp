// The queue of timers.
#include "KestrinBLESDK/platform/TimerQueue.h"

#include <gtest/gtest.h>

#include <limits>
#include <memory>

namespace kestrin::test {
namespace {

using namespace std::chrono_literals;

constexpr TimerQueue::Id kNoBarrier = std::numeric_limits<TimerQueue::Id>::max();

class Timers : public ::testing::Test {
 protected:
  TimerQueue::Task writing(int number) {
    return [this, number] { ran.push_back(number); };
  }
  /// Runs everything due at `now`.
  std::vector<int> due(Time now, TimerQueue::Id barrier = kNoBarrier) {
    ran.clear();
    for (auto task = queue.takeDue(now, barrier); task; task = queue.takeDue(now, barrier)) task();
    return ran;
  }
  TimerQueue queue;
  std::vector<int> ran;
};

TEST_F(Timers, RunInOrderOfDueTime) {
  queue.arm(3s, writing(3));
  queue.arm(1s, writing(1));
  queue.arm(2s, writing(2));
  EXPECT_EQ(due(3s), (std::vector<int>{1, 2, 3}));
}

TEST_F(Timers, DueAtOneTimeRunInOrderOfArming) {
  for (int i = 0; i < 100; ++i) queue.arm(1s, writing(i));
  std::vector<int> expected(100);
  for (int i = 0; i < 100; ++i) expected[static_cast<std::size_t>(i)] = i;
  EXPECT_EQ(due(1s), expected);
}

TEST_F(Timers, AreNotTakenBeforeTheyAreDue) {
  queue.arm(1s, writing(1));
  EXPECT_EQ(due(1s - 1ns), std::vector<int>{});
  EXPECT_EQ(due(1s), std::vector<int>{1});
  EXPECT_EQ(due(1s), std::vector<int>{});
}

TEST_F(Timers, BehindTheBarrierAreLeft) {
  queue.arm(2s, writing(1));
  const auto barrier = queue.nextId();
  queue.arm(1s, writing(2));
  EXPECT_EQ(due(2s, barrier), std::vector<int>{1});
  EXPECT_EQ(due(2s), std::vector<int>{2});
}

TEST_F(Timers, AreNamedInOrderOfArming) {
  const auto first = queue.nextId();
  EXPECT_EQ(queue.arm(5s, writing(1)), first);
  const auto second = queue.nextId();
  EXPECT_EQ(queue.arm(1s, writing(2)), second);
  EXPECT_GT(second, first);
}

TEST_F(Timers, TellWhenTheFirstIsDue) {
  EXPECT_EQ(queue.nextDue(), std::nullopt);
  const auto late = queue.arm(3s, writing(3));
  EXPECT_EQ(queue.nextDue(), 3s);
  const auto early = queue.arm(1s, writing(1));
  EXPECT_EQ(queue.nextDue(), 1s);
  queue.cancel(early);
  EXPECT_EQ(queue.nextDue(), 3s);
  queue.cancel(late);
  EXPECT_EQ(queue.nextDue(), std::nullopt);
}

TEST_F(Timers, AreHandedOverWhenCancelled) {
  const auto id = queue.arm(1s, writing(1));
  const auto task = queue.cancel(id);
  ASSERT_TRUE(task);
  EXPECT_EQ(queue.size(), 0U);
  EXPECT_FALSE(queue.cancel(id));
  EXPECT_EQ(due(1s), std::vector<int>{});
}

TEST_F(Timers, ThatAreNotPendingCancelNothing) {
  const auto id = queue.arm(1s, writing(1));
  due(1s);
  queue.arm(1s, writing(2));
  EXPECT_FALSE(queue.cancel(id));
  EXPECT_FALSE(queue.cancel(9999));
  EXPECT_EQ(due(1s), std::vector<int>{2});
}

TEST_F(Timers, AreCancelledTogetherByTheirRequest) {
  int target = 0;
  int other = 0;
  const TimerQueue::Request request{&target, "plug", nullptr};
  queue.arm(1s, writing(1), request);
  queue.arm(2s, writing(2), request);
  queue.arm(1s, writing(3), TimerQueue::Request{&other, "plug", nullptr});
  queue.arm(1s, writing(4), TimerQueue::Request{&target, "info", nullptr});
  queue.arm(1s, writing(5), TimerQueue::Request{&target, "plug", &other});
  queue.arm(1s, writing(6));
  EXPECT_EQ(queue.cancelAll(request).size(), 2U);
  EXPECT_EQ(queue.cancelAll(request).size(), 0U);
  EXPECT_EQ(due(2s), (std::vector<int>{3, 4, 5, 6}));
}

TEST_F(Timers, ThatAreCancelledTogetherAreHandedOverInOrderOfDueTime) {
  int target = 0;
  const TimerQueue::Request request{&target, "plug", nullptr};
  queue.arm(2s, writing(3), request);
  queue.arm(-1s, writing(1), request);
  queue.arm(1s, writing(2), request);
  for (const auto& task : queue.cancelAll(request)) task();
  EXPECT_EQ(ran, (std::vector<int>{1, 2, 3}));
}

TEST_F(Timers, ThatHaveRunAreForgottenByTheirRequest) {
  int target = 0;
  const TimerQueue::Request request{&target, "plug", nullptr};
  queue.arm(1s, writing(1), request);
  queue.arm(2s, writing(2), request);
  EXPECT_EQ(due(1s), std::vector<int>{1});
  EXPECT_EQ(queue.cancelAll(request).size(), 1U);
  EXPECT_EQ(queue.size(), 0U);
}

TEST_F(Timers, MatchRequestsByTheTextOfTheSelector) {
  int target = 0;
  const std::string one = "plug";
  const std::string two = "plug";
  ASSERT_NE(one.data(), two.data());
  queue.arm(1s, writing(1), TimerQueue::Request{&target, one, nullptr});
  EXPECT_EQ(queue.cancelAll({&target, two, nullptr}).size(), 1U);
}

TEST_F(Timers, KeepTheirTasksUntilTheyAreTaken) {
  const auto held = std::make_shared<int>(0);
  queue.arm(1s, [held] {});
  EXPECT_EQ(held.use_count(), 2);
  queue.takeDue(1s, kNoBarrier);
  EXPECT_EQ(held.use_count(), 1);
}

}  // namespace
}  // namespace kestrin::test
