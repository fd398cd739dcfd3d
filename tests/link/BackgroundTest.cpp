// Entering the background closes the link, one turn of the run loop later.
#include "link/LinkTest.h"

namespace kestrin::test {
namespace {

class Background : public LinkTest {};

TEST_F(Background, SchedulesTheCloseAndDoesNothingInsideTheNotification) {
  platform.enterBackground();
  EXPECT_EQ(platform.take(), R"(
* post UIApplicationDidEnterBackgroundNotification
cancel accessoryDidDisconnect on manager#1
perform accessoryDidDisconnect on manager#1 after 0
)");
  platform.runOneTurn();
  EXPECT_EQ(platform.take(), "\nreceiver plugChangedStatus false\n");
}

TEST_F(Background, ClosesInALaterTurnThanTheOneThatPosts) {
  platform.play([this] { platform.enterBackground(); });
  EXPECT_EQ(platform.takeTimed(), R"(
* post UIApplicationDidEnterBackgroundNotification
cancel accessoryDidDisconnect on manager#1
perform accessoryDidDisconnect on manager#1 after 0
)");
  platform.runOneTurn();
  EXPECT_EQ(platform.takeTimed(), "\nreceiver plugChangedStatus false\n");
}

TEST_F(Background, TwoNotificationsInARowCloseOnce) {
  platform.enterBackground();
  platform.enterBackground();
  EXPECT_EQ(platform.take(), R"(
* post UIApplicationDidEnterBackgroundNotification
cancel accessoryDidDisconnect on manager#1
perform accessoryDidDisconnect on manager#1 after 0
* post UIApplicationDidEnterBackgroundNotification
cancel accessoryDidDisconnect on manager#1
perform accessoryDidDisconnect on manager#1 after 0
)");
  platform.run(5.0);
  EXPECT_EQ(platform.take(), "\nreceiver plugChangedStatus false\n");
}

TEST_F(Background, ClosesAgainEachTimeTheApplicationReturnsAndLeaves) {
  for (int i = 0; i < 3; ++i) {
    platform.enterBackground();
    platform.take();
    platform.runOneTurn();
    EXPECT_EQ(platform.take(), "\nreceiver plugChangedStatus false\n");
  }
}

TEST_F(Background, TearsDownTheLinkAndTheScan) {
  const Reader reader = standardReader();
  plugIn(reader);
  platform.enterBackground();
  platform.take();
  platform.runOneTurn();
  EXPECT_EQ(platform.take(), R"(
central#1 cancelPeripheralConnection "TQM_HOLV-1"
central#1 stopScan
receiver plugChangedStatus false
)");
  EXPECT_TRUE(manager->open());
  platform.didDisconnect(reader.peripheral);
  EXPECT_FALSE(manager->open());
  scan();
  EXPECT_TRUE(platform.take().ends_with(
      "log \"start San\"\n"
      "central#2 scanForPeripheralsWithServices (absent) options (absent)\n"));
}

TEST_F(Background, HearsTheNotificationWhoeverSendsItAndNoOther) {
  auto& centre = *platform.platform().notificationCenter;
  centre.postNotificationName_object(UIApplicationDidEnterBackgroundNotification,
                                     std::make_shared<int>(0));
  platform.runOneTurn();
  EXPECT_EQ(platform.take(), R"(
cancel accessoryDidDisconnect on manager#1
perform accessoryDidDisconnect on manager#1 after 0
receiver plugChangedStatus false
)");
  centre.postNotificationName_object("UIApplicationWillEnterForegroundNotification");
  platform.runOneTurn();
  EXPECT_EQ(platform.take(), kNothing);
}

TEST_F(Background, EachManagerOnThePlatformClosesItself) {
  const auto other = platform.makeManager();
  const auto otherReceiver = std::make_shared<RecordingReceiver>(platform, "other receiver");
  other->setRcpReceiverDelegate(otherReceiver);
  platform.take();
  platform.enterBackground();
  platform.runOneTurn();
  EXPECT_EQ(platform.take(), R"(
* post UIApplicationDidEnterBackgroundNotification
cancel accessoryDidDisconnect on manager#1
perform accessoryDidDisconnect on manager#1 after 0
cancel accessoryDidDisconnect on manager#2
perform accessoryDidDisconnect on manager#2 after 0
receiver plugChangedStatus false
other receiver plugChangedStatus false
)");
}

TEST_F(Background, TheRegistrationDoesNotKeepAManagerAlive) {
  const std::weak_ptr<KestrinBleMgr> observer = manager;
  manager.reset();
  EXPECT_TRUE(observer.expired());
  platform.enterBackground();
  platform.runOneTurn();
  EXPECT_EQ(platform.take(), "\n* post UIApplicationDidEnterBackgroundNotification\n");
}

TEST_F(Background, ThePendingCloseKeepsItsManagerUntilItHasRun) {
  const std::weak_ptr<KestrinBleMgr> pending = manager;
  platform.enterBackground();
  platform.take();
  manager.reset();
  EXPECT_FALSE(pending.expired());
  platform.runOneTurn();
  EXPECT_EQ(platform.take(), "\nreceiver plugChangedStatus false\n");
  EXPECT_TRUE(pending.expired());
}

TEST_F(Background, LeavesThePendingReportsOfTheLinkPending) {
  const Reader reader = standardReader();
  linkUp(reader);
  platform.enterBackground();
  platform.runOneTurn();
  platform.didDisconnect(reader.peripheral);
  platform.take();
  platform.run(2.0);
  EXPECT_EQ(platform.takeTimed(), R"(
at 0.5 s
log "==========get Reader Info=============="
peripheral "TQM_HOLV-1" writeValue <bb000300 01b17e65 97> to BA821001-3B5B-4654-85FE-E998B123ADEA type 0
log "[TX BLE] <bb000300 01b17e65 97>"
at 2 s
receiver plugChangedStatus false
)");
}

}  // namespace
}  // namespace kestrin::test
