#include "tools/gateway/service/ServiceManager.h"

#include <KestrinBLESDK/platform/MainRunLoop.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kestrin/simulated/VirtualClock.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "gateway/service/NotifySocket.h"
#include "gateway/support/TestEnvironment.h"
#include "gateway/support/TestFolder.h"

namespace kestrin::gateway {
namespace {

using std::chrono::hours;
using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::HasSubstr;
using testing::Not;

class ServiceManagerTest : public testing::Test {
 protected:
  void wantFood(seconds every) {
    setVariable("WATCHDOG_USEC", std::to_string(every.count() * 1'000'000));
  }
  void start() {
    manager.emplace(loop, [this] { return standing; });
    manager->started();
  }
  void runFor(Time span) {
    for (Time rest = span; rest > Time::zero(); rest -= kSlice) {
      loop->runFor(std::min(rest, kSlice));
      socket.drain();
    }
  }

  static constexpr Time kSlice = seconds(1);
  const TestFolder folder;
  NotifySocket socket{folder.pathOf("notify")};
  const std::shared_ptr<simulated::VirtualClock> clock =
      std::make_shared<simulated::VirtualClock>();
  const std::shared_ptr<MainRunLoop> loop = std::make_shared<MainRunLoop>(clock);
  std::string standing = "2 of 3 readers plugged in";
  std::optional<ServiceManager> manager;
};

TEST_F(ServiceManagerTest, ItIsReadyOnceTheLoopTurnsAndNotBefore) {
  start();
  EXPECT_EQ(socket.all(), "");
  runFor(milliseconds(1));
  EXPECT_THAT(socket.all(), HasSubstr("READY=1\nSTATUS=2 of 3 readers plugged in\n"));
}

TEST_F(ServiceManagerTest, WithoutAWatchdogNothingFeedsOne) {
  start();
  EXPECT_EQ(manager->watchdog(), std::nullopt);
  runFor(hours(1));
  EXPECT_EQ(socket.fed(), 0);
}

TEST_F(ServiceManagerTest, TheWatchdogIsFedTwiceInTheTimeThatItAllows) {
  wantFood(seconds(1));
  start();
  EXPECT_EQ(manager->watchdog(), Time(seconds(1)));
  runFor(milliseconds(1));
  EXPECT_EQ(socket.fed(), 1);
  runFor(seconds(40));
  EXPECT_EQ(socket.fed(), 80);
}

TEST_F(ServiceManagerTest, AWatchdogOfAnotherProcessIsNotFed) {
  wantFood(seconds(4));
  setVariable("WATCHDOG_PID", "1");
  start();
  removeVariable("WATCHDOG_PID");
  runFor(seconds(40));
  EXPECT_EQ(socket.fed(), 0);
}

TEST_F(ServiceManagerTest, ALoopThatIsStuckFeedsNobodyAndOneThatGoesOnDoesAgain) {
  wantFood(seconds(4));
  start();
  runFor(seconds(10));
  EXPECT_GT(socket.fed(), 0);
  int fedWhileStuck = -1;
  loop->post([&] {
    clock->sleepFor(hours(1));
    fedWhileStuck = socket.fed();
  });
  runFor(seconds(4));
  EXPECT_EQ(fedWhileStuck, 0);
  EXPECT_GT(socket.fed(), 0);
}

TEST_F(ServiceManagerTest, HowItStandsIsToldWhenItHasChangedAndNotElse) {
  start();
  runFor(seconds(1));
  socket.all();
  runFor(seconds(60));
  EXPECT_EQ(socket.all(), "");
  standing = "3 of 3 readers plugged in";
  runFor(seconds(1));
  EXPECT_EQ(socket.all(), "STATUS=3 of 3 readers plugged in\n");
}

TEST_F(ServiceManagerTest, AReloadIsToldAtItsBeginningAndAtItsEnd) {
  start();
  runFor(seconds(1));
  socket.all();
  manager->reloading();
  const std::string begin = socket.next();
  EXPECT_THAT(begin, HasSubstr("RELOADING=1\n"));
  EXPECT_THAT(begin, testing::ContainsRegex("MONOTONIC_USEC=[1-9][0-9]+\n"));
  standing = "none";
  manager->reloaded();
  EXPECT_EQ(socket.next(), "READY=1\nSTATUS=none\n");
}

TEST_F(ServiceManagerTest, AnEndThatTakesLongAsksForMoreTimeAsLongAsTheLoopTurns) {
  wantFood(seconds(4));
  start();
  runFor(seconds(1));
  socket.all();
  manager->stopping();
  EXPECT_THAT(socket.next(), HasSubstr("STOPPING=1\n"));
  EXPECT_THAT(socket.all(), HasSubstr("EXTEND_TIMEOUT_USEC=20000000\n"));
  runFor(seconds(5));
  const std::string later = socket.all();
  EXPECT_THAT(later, HasSubstr("EXTEND_TIMEOUT_USEC=20000000\n"));
  EXPECT_THAT(later, HasSubstr("WATCHDOG=1\n"));
  EXPECT_THAT(later, Not(HasSubstr("STATUS=")));
  loop->post([&] {
    clock->sleepFor(hours(1));
    EXPECT_EQ(socket.all(), "");
  });
  runFor(milliseconds(1));
}

TEST_F(ServiceManagerTest, ASecondStoppingIsNotTold) {
  start();
  manager->stopping();
  socket.all();
  manager->stopping();
  EXPECT_EQ(socket.all(), "");
}

TEST_F(ServiceManagerTest, WithoutAManagerNothingIsToldAndNothingFails) {
  removeVariable("NOTIFY_SOCKET");
  start();
  runFor(seconds(60));
  manager->stopping();
  EXPECT_EQ(socket.all(), "");
}

TEST_F(ServiceManagerTest, OnceItIsGoneTheLoopTellsNothing) {
  wantFood(seconds(4));
  start();
  runFor(seconds(1));
  manager.reset();
  socket.all();
  runFor(seconds(60));
  EXPECT_EQ(socket.all(), "");
}

}  // namespace
}  // namespace kestrin::gateway
