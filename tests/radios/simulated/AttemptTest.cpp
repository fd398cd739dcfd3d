// Attempts to connect, and links shared between central managers.
#include "radios/simulated/SimulatedRadioTest.h"

namespace kestrin::simulated {
namespace {

/// Attempts take no time of their own, so that only the pauses show.
class AttemptTest : public SimulatedRadioTest {
 protected:
  static Options instantAttempts() {
    Options options;
    options.connectionDelay = {Time::zero(), Time::zero()};
    options.firstRetryPause = 500ms;
    options.longestRetryPause = 3s;
    return options;
  }
  AttemptTest() : SimulatedRadioTest(instantAttempts()) {}
  void SetUp() override {
    device = radio->addPeripheral("Lamp");
    central = makeCentral();
  }
  std::shared_ptr<VirtualPeripheral> device;
  std::shared_ptr<CBCentralManager> central;
};

TEST_F(AttemptTest, FailedAttemptsAreRepeatedAfterGrowingPausesUpToALongestOne) {
  device->simulateFailingConnections(6);
  connect(*central, device);
  const Time begin = loop->now();
  ASSERT_TRUE(loop->runUntil(begin + 1min, [&] { return count(EventKind::connected) == 1; }));
  EXPECT_EQ(device->connectionAttempts(), 7U);
  EXPECT_EQ(loop->now() - begin, 500ms + 1s + 2s + 3s + 3s + 3s);
  EXPECT_EQ(recorder->count(), 1U) << "failures are the radio's own affair";
}

TEST_F(AttemptTest, ThePauseBeginsSmallAgainAfterALink) {
  device->simulateFailingConnections(3);
  connect(*central, device);
  run();
  device->simulateLinkLoss();
  run();
  device->simulateFailingConnections(1);
  const Time begin = loop->now();
  connect(*central, device);
  ASSERT_TRUE(loop->runUntil(begin + 1min, [&] { return device->connected(); }));
  EXPECT_EQ(loop->now() - begin, 500ms);
}

TEST_F(AttemptTest, ThePauseBeginsSmallAgainAfterACancellation) {
  device->simulateFailingConnections(3);
  connect(*central, device);
  loop->runFor(2s);
  central->cancelPeripheralConnection(device->peripheral());
  run();
  device->simulateFailingConnections(1);
  const Time begin = loop->now();
  connect(*central, device);
  ASSERT_TRUE(loop->runUntil(begin + 1min, [&] { return device->connected(); }));
  EXPECT_EQ(loop->now() - begin, 500ms);
}

TEST_F(AttemptTest, CancellingInAPauseEndsTheRepetition) {
  device->simulateFailingConnections(1);
  connect(*central, device);
  loop->runFor(100ms);
  central->cancelPeripheralConnection(device->peripheral());
  run();
  EXPECT_EQ(device->connectionAttempts(), 1U);
  EXPECT_EQ(count(EventKind::disconnected), 1U);
  EXPECT_FALSE(device->connected());
}

TEST_F(AttemptTest, AConnectionThatNeverCompletesReportsNothingAndCanBeCancelled) {
  device->simulateConnectionNeverCompleting();
  connect(*central, device);
  loop->runFor(24h);
  EXPECT_EQ(recorder->count(), 0U);
  EXPECT_EQ(device->connectionAttempts(), 1U);
  central->cancelPeripheralConnection(device->peripheral());
  run();
  EXPECT_EQ(recorder->count(), 1U);
  EXPECT_EQ(events(EventKind::disconnected).at(0).error, std::nullopt);
}

TEST_F(AttemptTest, AConnectionThatCompletesAfterAllIsMade) {
  device->simulateConnectionNeverCompleting();
  connect(*central, device);
  run();
  device->simulateConnectionNeverCompleting(false);
  run();
  EXPECT_EQ(count(EventKind::connected), 1U);
}

TEST_F(AttemptTest, AVanishedDeviceIsNotAttemptedAndIsAttemptedOnceItAppears) {
  device->simulateVanishing();
  connect(*central, device);
  loop->runFor(1h);
  EXPECT_EQ(device->connectionAttempts(), 0U);
  device->simulateAppearing();
  run();
  EXPECT_EQ(device->connectionAttempts(), 1U);
  EXPECT_EQ(count(EventKind::connected), 1U);
}

TEST_F(AttemptTest, ASecondRequestForTheSameLinkGivesNoSecondReport) {
  connect(*central, device);
  connect(*central, device);
  run();
  connect(*central, device);
  run();
  EXPECT_EQ(count(EventKind::connected), 1U);
}

TEST_F(AttemptTest, TwoCentralManagersShareOneAttempt) {
  const auto other = makeCentral();
  connect(*central, device);
  connect(*other, device);
  run();
  EXPECT_EQ(device->connectionAttempts(), 1U);
  EXPECT_EQ(count(EventKind::connected), 2U);
}

TEST_F(AttemptTest, ALinkEndsWithItsLastShare) {
  const auto other = makeCentral();
  connect(*central, device);
  connect(*other, device);
  run();
  central->cancelPeripheralConnection(device->peripheral());
  run();
  EXPECT_TRUE(device->connected());
  ASSERT_EQ(count(EventKind::disconnected), 1U);
  EXPECT_EQ(events(EventKind::disconnected)[0].central, central.get());
  other->cancelPeripheralConnection(device->peripheral());
  run();
  EXPECT_FALSE(device->connected());
  ASSERT_EQ(count(EventKind::disconnected), 2U);
  EXPECT_EQ(events(EventKind::disconnected)[1].central, other.get());
}

TEST_F(AttemptTest, AskingAgainForASharedLinkIsReportedOnlyAfterTheEndOfTheFirstRequest) {
  const auto other = makeCentral();
  connect(*other, device);
  run();
  recorder->clear();
  std::vector<EventKind> order;
  recorder->onEvent = [&](const Event& event) { order.push_back(event.kind); };
  connect(*central, device);
  central->cancelPeripheralConnection(device->peripheral());
  connect(*central, device);
  run();
  EXPECT_EQ(order, (std::vector<EventKind>{EventKind::disconnected, EventKind::connected}));
}

TEST_F(AttemptTest, ALinkLostBeforeItsReportIsTriedAgainAndReportedOnce) {
  connect(*central, device);
  ASSERT_TRUE(loop->runUntil(loop->now() + 1s, [&] { return device->connected(); }));
  ASSERT_EQ(count(EventKind::connected), 0U) << "the report is still to come";
  device->simulateLinkLoss();
  run();
  EXPECT_TRUE(device->connected());
  EXPECT_EQ(count(EventKind::connected), 1U);
  EXPECT_EQ(count(EventKind::disconnected), 0U);
  EXPECT_EQ(device->connectionAttempts(), 2U);
}

TEST_F(AttemptTest, AVanishedDevicesLinkIsLostAfterTheSupervisionTimeout) {
  connect(*central, device);
  run();
  const Time begin = loop->now();
  device->simulateVanishing();
  EXPECT_FALSE(device->connected());
  device->simulateAppearing();
  ASSERT_TRUE(loop->runUntil(begin + 1min, [&] { return count(EventKind::disconnected) == 1; }));
  EXPECT_EQ(loop->now() - begin, Options().supervisionTimeout);
}

}  // namespace
}  // namespace kestrin::simulated
