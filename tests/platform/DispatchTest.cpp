// The global queues and synchronous submission.
#include "KestrinBLESDK/platform/Dispatch.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace kestrin::test {
namespace {

TEST(GlobalQueue, IsTheOneOfThePriorityThatIsAskedFor) {
  const Dispatch dispatch;
  EXPECT_EQ(DISPATCH_QUEUE_PRIORITY_HIGH, 2);
  EXPECT_EQ(dispatch.dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_HIGH, 0).priority, 2);
  EXPECT_EQ(dispatch.dispatch_get_global_queue(-2, 0).priority, -2);
}

TEST(SynchronousSubmission, HasRunTheWorkWhenItReturns) {
  const Dispatch dispatch;
  const auto queue = dispatch.dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_HIGH, 0);
  std::vector<int> order;
  order.push_back(1);
  dispatch.dispatch_sync(queue, [&] { order.push_back(2); });
  order.push_back(3);
  EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));
}

TEST(SynchronousSubmission, RunsTheWorkOnce) {
  const Dispatch dispatch;
  int runs = 0;
  dispatch.dispatch_sync({}, [&] { ++runs; });
  EXPECT_EQ(runs, 1);
}

TEST(SynchronousSubmission, MayBeNestedOnTheSameQueue) {
  const Dispatch dispatch;
  const auto queue = dispatch.dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_HIGH, 0);
  std::vector<int> order;
  dispatch.dispatch_sync(queue, [&] {
    order.push_back(1);
    dispatch.dispatch_sync(queue, [&] { order.push_back(2); });
    order.push_back(3);
  });
  EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));
}

TEST(SynchronousSubmission, RunsTheWorkOnTheCallersThread) {
  const Dispatch dispatch;
  std::thread::id ranOn;
  dispatch.dispatch_sync({}, [&] { ranOn = std::this_thread::get_id(); });
  EXPECT_EQ(ranOn, std::this_thread::get_id());
}

TEST(WorkReferences, BorrowTheWorkInsteadOfCopyingIt) {
  struct Work {
    int* runs;
    explicit Work(int& counter) : runs(&counter) {}
    Work(const Work&) = delete;
    Work& operator=(const Work&) = delete;
    void operator()() const { ++*runs; }
  };
  int runs = 0;
  const Work work(runs);
  const WorkReference reference(work);
  reference();
  reference();
  EXPECT_EQ(runs, 2);
}

}  // namespace
}  // namespace kestrin::test
