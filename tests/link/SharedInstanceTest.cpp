// The process's one manager. A program of its own, since the first call is made once per process.
#include <gtest/gtest.h>

#include <barrier>
#include <memory>
#include <thread>
#include <vector>

#include "KestrinBLESDK/KestrinBleMgr.h"
#include "KestrinBLESDK/platform/MainRunLoop.h"
#include "support/KestrinBleMgrTestPeer.h"
#include "support/RecordingLog.h"

namespace kestrin::test {
namespace {

class CountingReceiver final : public RcpReceiver {
 public:
  void plugChangedStatus(bool plugged) noexcept override { plugged ? ++plugs : ++unplugs; }
  int plugs = 0;
  int unplugs = 0;
};

// The first test of the program: its threads make the first calls of all.
TEST(SharedInstance, IsOneObjectForManyThreadsThatCallFirstAtOnce) {
  constexpr std::size_t kThreads = 16;
  std::vector<std::shared_ptr<KestrinBleMgr>> seen(kThreads);
  std::barrier start(kThreads);
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < kThreads; ++i) {
    threads.emplace_back([&, i] {
      start.arrive_and_wait();
      seen[i] = KestrinBleMgr::sharedInstance();
    });
  }
  for (std::thread& thread : threads) thread.join();
  ASSERT_NE(seen.front(), nullptr);
  for (const auto& manager : seen) EXPECT_EQ(manager, seen.front());
}

TEST(SharedInstance, WasMadeOnceSoOneManagerHearsOfTheBackground) {
  const auto manager = KestrinBleMgr::sharedInstance();
  const auto receiver = std::make_shared<CountingReceiver>();
  manager->setRcpReceiverDelegate(receiver);
  NSNotificationCenter::defaultCenter()->postNotificationName_object(
      UIApplicationDidEnterBackgroundNotification);
  EXPECT_EQ(receiver->unplugs, 0);
  EXPECT_TRUE(MainRunLoop::main()->runOneTurn());
  EXPECT_FALSE(MainRunLoop::main()->runOneTurn());
  EXPECT_EQ(receiver->unplugs, 1);
  EXPECT_EQ(receiver->plugs, 0);
}

TEST(SharedInstance, LivesOnWhenNobodyHoldsIt) {
  const std::weak_ptr<KestrinBleMgr> manager = KestrinBleMgr::sharedInstance();
  EXPECT_FALSE(manager.expired());
  EXPECT_EQ(manager.lock(), KestrinBleMgr::sharedInstance());
}

TEST(SharedInstance, IsNoneOfTheManagersThatInitMakes) {
  const auto one = KestrinBleMgr::init();
  const auto other = KestrinBleMgr::init();
  EXPECT_NE(one, other);
  EXPECT_NE(one, KestrinBleMgr::sharedInstance());
  EXPECT_NE(other, KestrinBleMgr::sharedInstance());
}

TEST(SharedInstance, RunsOnTheSystemsDefaultPlatform) {
  const Platform& platform = KestrinBleMgrTestPeer::platform(*KestrinBleMgr::sharedInstance());
  EXPECT_EQ(platform.mainRunLoop.lock(), MainRunLoop::main());
  EXPECT_EQ(platform.notificationCenter, NSNotificationCenter::defaultCenter());
  EXPECT_EQ(platform.log, defaultLogSink());
  EXPECT_EQ(platform.radio, Platform::systemDefault().radio);
}

TEST(SharedInstance, SaysThatTheRadioIsUnsupportedUntilOneIsInstalled) {
  const auto log = std::make_shared<RecordingLog>();
  setDefaultLogSink(log);
  const auto manager = KestrinBleMgr::sharedInstance();
  EXPECT_TRUE(manager->scanBLE());
  EXPECT_TRUE(log->lines().empty());
  MainRunLoop::main()->runOneTurn();
  EXPECT_EQ(log->lines(), std::vector<std::string>{" CBManager hardware is unsupported"});
  setDefaultLogSink(std::make_shared<StandardErrorLogSink>());
}

}  // namespace
}  // namespace kestrin::test
