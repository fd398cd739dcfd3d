// The two delays after the characteristics are found: get-reader-info and the plugged report.
#include "link/LinkTest.h"
#include "support/WorkedClock.h"

namespace kestrin::test {
namespace {

class Delays : public LinkTest {
 protected:
  void report(const Reader& reader) {
    platform.didDiscoverCharacteristics(reader.peripheral, reader.service, {reader.rx, reader.tx});
  }
};

TEST_F(Delays, OfAStandardReaderEndAfterHalfASecondAndTwoSecondsToTheNanosecond) {
  linkUp(standardReader());
  platform.run(0.499999999);
  EXPECT_EQ(platform.takeTimed(), kNothing);
  platform.run(0.000000001);
  EXPECT_EQ(platform.takeTimed(), R"(
at 0.5 s
log "==========get Reader Info=============="
peripheral "TQM_HOLV-1" writeValue <bb000300 01b17e65 97> to BA821001-3B5B-4654-85FE-E998B123ADEA type 0
log "[TX BLE] <bb000300 01b17e65 97>"
)");
  platform.run(1.499999999);
  EXPECT_EQ(platform.takeTimed(), kNothing);
  platform.run(0.000000001);
  EXPECT_EQ(platform.takeTimed(), R"(
at 2 s
receiver plugChangedStatus true
)");
  platform.run(3600.0);
  EXPECT_EQ(platform.takeTimed(), kNothing);
}

TEST_F(Delays, OfAKvrReaderAreThePluggedReportOnly) {
  linkUp(kvrReader());
  platform.run(3600.0);
  EXPECT_EQ(platform.takeTimed(), R"(
at 2 s
receiver plugChangedStatus true
)");
}

TEST_F(Delays, StartAnewWithEachReportSoEachEndsOnce) {
  const Reader reader = standardReader();
  linkUp(reader);
  platform.run(0.4);
  report(reader);
  platform.run(0.4);
  report(reader);
  platform.take();
  platform.run(3600.0);
  EXPECT_EQ(platform.takeTimed(), R"(
at 1.3 s
log "==========get Reader Info=============="
peripheral "TQM_HOLV-1" writeValue <bb000300 01b17e65 97> to BA821001-3B5B-4654-85FE-E998B123ADEA type 0
log "[TX BLE] <bb000300 01b17e65 97>"
at 2.8 s
receiver plugChangedStatus true
)");
}

TEST_F(Delays, StartAnewAlsoWhenOneOfThemHasEnded) {
  const Reader reader = standardReader();
  linkUp(reader);
  platform.run(1.0);
  platform.takeTimed();
  report(reader);
  platform.takeTimed();
  platform.run(3600.0);
  EXPECT_EQ(platform.takeTimed(), R"(
at 1.5 s
log "==========get Reader Info=============="
peripheral "TQM_HOLV-1" writeValue <bb000300 01b17e65 97> to BA821001-3B5B-4654-85FE-E998B123ADEA type 0
log "[TX BLE] <bb000300 01b17e65 97>"
at 3 s
receiver plugChangedStatus true
)");
}

TEST_F(Delays, OfAKvrReportLeavePendingReaderInformationAlone) {
  const Reader standard = standardReader();
  linkUp(standard);
  platform.run(0.25);
  const Reader kvr = kvrReader();
  manager->connectBLE(kvr.peripheral);
  platform.didConnect(kvr.peripheral);
  platform.didDiscoverServices(kvr.peripheral, {kvr.service});
  report(kvr);
  platform.takeTimed();
  platform.run(3600.0);
  EXPECT_EQ(platform.takeTimed(), R"(
at 0.5 s
log "==========get Reader Info=============="
peripheral "KVR-Q62T 0012" writeValue <bb000300 01b17e65 97> to FFF2 type 0
log "[TX BLE] <bb000300 01b17e65 97>"
at 2.25 s
receiver plugChangedStatus true
)");
}

TEST_F(Delays, SurviveALostLinkWhichIsToldFalseTwiceAndWrittenToTheOldCharacteristic) {
  const Reader reader = standardReader();
  linkUp(reader);
  platform.run(0.25);
  platform.didDisconnect(reader.peripheral);
  platform.run(3600.0);
  EXPECT_EQ(platform.takeTimed(), R"(
at 0.25 s
* central#1 didDisconnectPeripheral "TQM_HOLV-1"
log "BLE Disconnected"
receiver plugChangedStatus false
at 0.5 s
log "==========get Reader Info=============="
peripheral "TQM_HOLV-1" writeValue <bb000300 01b17e65 97> to BA821001-3B5B-4654-85FE-E998B123ADEA type 0
log "[TX BLE] <bb000300 01b17e65 97>"
at 2 s
receiver plugChangedStatus false
)");
}

TEST_F(Delays, WithoutATransmitCharacteristicFailToAskButStillReport) {
  const Reader reader = standardReader();
  connect(reader.peripheral);
  platform.didDiscoverServices(reader.peripheral, {reader.service});
  platform.didDiscoverCharacteristics(reader.peripheral, reader.service, {reader.rx});
  platform.take();
  platform.run(3600.0);
  EXPECT_EQ(platform.takeTimed(), R"(
at 0.5 s
log "==========get Reader Info=============="
log "No write property on TX characteristic, 0."
at 2 s
receiver plugChangedStatus true
)");
}

TEST_F(Delays, ReportWhateverTheFlagIsWhenTheyEnd) {
  linkUp(standardReader());
  Peer::isConnected(*manager) = false;
  platform.run(1.9);
  platform.take();
  Peer::isConnected(*manager) = true;
  platform.run(0.1);
  EXPECT_EQ(platform.take(), "\nreceiver plugChangedStatus true\n");
}

TEST_F(Delays, OfAQuickReconnectionAreCountedFromTheLastReport) {
  const Reader reader = standardReader();
  linkUp(reader);
  platform.run(1.0);
  platform.didDisconnect(reader.peripheral);
  manager->connectBLE(reader.peripheral);
  platform.didConnect(reader.peripheral);
  platform.didDiscoverServices(reader.peripheral, {reader.service});
  platform.run(0.5);
  report(reader);
  platform.takeTimed();
  platform.run(3600.0);
  EXPECT_EQ(platform.takeTimed(), R"(
at 2 s
log "==========get Reader Info=============="
peripheral "TQM_HOLV-1" writeValue <bb000300 01b17e65 97> to BA821001-3B5B-4654-85FE-E998B123ADEA type 0
log "[TX BLE] <bb000300 01b17e65 97>"
at 3.5 s
receiver plugChangedStatus true
)");
}

TEST_F(Delays, WaitForTheEndOfALongFrameThatIsBeingSent) {
  const Reader reader = standardReader();
  linkUp(reader);
  platform.take();
  platform.run(0.4);
  manager->send(NSData(std::vector<std::uint8_t>(60, 0x11)));
  platform.run(0.0);
  EXPECT_TRUE(platform.takeTimed().ends_with(R"(
at 0.55 s
peripheral "TQM_HOLV-1" writeValue <> to BA821001-3B5B-4654-85FE-E998B123ADEA type 0
log "[TX BLE] <>"
log "==========get Reader Info=============="
peripheral "TQM_HOLV-1" writeValue <bb000300 01b17e65 97> to BA821001-3B5B-4654-85FE-E998B123ADEA type 0
log "[TX BLE] <bb000300 01b17e65 97>"
)"));
}

TEST_F(Delays, KeepTheirManagerUntilTheyHaveEnded) {
  linkUp(standardReader());
  const std::weak_ptr<KestrinBleMgr> pending = manager;
  manager.reset();
  platform.run(0.5);
  EXPECT_FALSE(pending.expired());
  platform.take();
  platform.run(1.5);
  EXPECT_EQ(platform.take(), R"(
receiver plugChangedStatus true
central#1 released
)");
  EXPECT_TRUE(pending.expired());
}

TEST_F(Delays, OfTwoManagersAreTheirOwn) {
  const Reader reader = standardReader();
  linkUp(reader);
  const auto other = platform.makeManager();
  const auto otherReceiver = std::make_shared<RecordingReceiver>(platform, "other receiver");
  other->setRcpReceiverDelegate(otherReceiver);
  platform.run(0.25);
  Peer::peripheral_didDiscoverCharacteristicsForService_error(*other, reader.peripheral,
                                                              reader.service, std::nullopt);
  platform.takeTimed();
  platform.run(3600.0);
  EXPECT_EQ(platform.takeTimed(), R"(
at 0.5 s
log "==========get Reader Info=============="
peripheral "TQM_HOLV-1" writeValue <bb000300 01b17e65 97> to BA821001-3B5B-4654-85FE-E998B123ADEA type 0
log "[TX BLE] <bb000300 01b17e65 97>"
at 0.75 s
log "==========get Reader Info=============="
log "[TX BLE] <bb000300 01b17e65 97>"
at 2 s
receiver plugChangedStatus true
at 2.25 s
other receiver plugChangedStatus true
)");
}

TEST_F(Delays, SkipAReceiverThatIsGone) {
  linkUp(kvrReader());
  receiver.reset();
  platform.take();
  platform.run(2.0);
  EXPECT_EQ(platform.take(), kNothing);
}

/// In real time: what runs before the delays are armed takes its time.
class DelaysAfterLongWork : public LinkTest {
 protected:
  DelaysAfterLongWork() : DelaysAfterLongWork(std::make_shared<WorkedClock>()) {}

  static constexpr char kBothDelays[] = R"(
at 0.9 s
log "==========get Reader Info=============="
peripheral "TQM_HOLV-1" writeValue <bb000300 01b17e65 97> to BA821001-3B5B-4654-85FE-E998B123ADEA type 0
log "[TX BLE] <bb000300 01b17e65 97>"
at 2.4 s
receiver plugChangedStatus true
)";

  const std::shared_ptr<WorkedClock> clock;

 private:
  explicit DelaysAfterLongWork(const std::shared_ptr<WorkedClock>& worked)
      : LinkTest(worked), clock(worked) {}
};

TEST_F(DelaysAfterLongWork, AreNotShortenedByALogSinkThatWorkedBeforeInTheSameReport) {
  platform.onLog = [this](const std::string& line) {
    if (line == "Found TX characteristic") clock->work(std::chrono::milliseconds(400));
  };
  linkUp(standardReader());
  platform.takeTimed();
  platform.run(10.0);
  EXPECT_EQ(platform.takeTimed(), kBothDelays);
}

TEST_F(DelaysAfterLongWork, AreNotShortenedByATaskThatWorkedBeforeInTheSameTurn) {
  const Reader reader = standardReader();
  connect(reader.peripheral);
  platform.didDiscoverServices(reader.peripheral, {reader.service});
  platform.platform().mainRunLoop.lock()->post(
      [this] { clock->work(std::chrono::milliseconds(400)); });
  platform.didDiscoverCharacteristics(reader.peripheral, reader.service, {reader.rx, reader.tx});
  platform.takeTimed();
  platform.run(10.0);
  EXPECT_EQ(platform.takeTimed(), kBothDelays);
}

}  // namespace
}  // namespace kestrin::test
