// Characteristics found on a reader of the KVR-Q62T family.
#include "link/LinkTest.h"

namespace kestrin::test {
namespace {

class KvrCharacteristics : public LinkTest {
 protected:
  KvrCharacteristics() {
    connect(reader.peripheral);
    platform.didDiscoverServices(reader.peripheral, {reader.service});
    platform.take();
  }
  const Reader reader = kvrReader();
};

TEST_F(KvrCharacteristics, AreAskedForNotificationsOnBothAndLogTheTxTextOnly) {
  platform.didDiscoverCharacteristics(reader.peripheral, reader.service, {reader.rx, reader.tx});
  EXPECT_EQ(platform.take(), R"(
* "KVR-Q62T 0012" didDiscoverCharacteristicsForService FFF0
peripheral "KVR-Q62T 0012" setNotifyValue true for FFF1
peripheral "KVR-Q62T 0012" setNotifyValue true for FFF2
log "Found TX - didDiscoverCharacteristicsForService"
cancel p_pluggedEvent on manager#1
perform p_pluggedEvent on manager#1 after 2
)");
  EXPECT_EQ(Peer::rxCharacteristic(*manager), reader.rx);
  EXPECT_EQ(Peer::txCharacteristic(*manager), reader.tx);
}

TEST_F(KvrCharacteristics, LogTheTxTextAlsoWhenRxIsTheSecond) {
  platform.didDiscoverCharacteristics(reader.peripheral, reader.service, {reader.tx, reader.rx});
  EXPECT_EQ(platform.take(), R"(
* "KVR-Q62T 0012" didDiscoverCharacteristicsForService FFF0
peripheral "KVR-Q62T 0012" setNotifyValue true for FFF2
peripheral "KVR-Q62T 0012" setNotifyValue true for FFF1
log "Found TX - didDiscoverCharacteristicsForService"
cancel p_pluggedEvent on manager#1
perform p_pluggedEvent on manager#1 after 2
)");
}

TEST_F(KvrCharacteristics, AreAskedForBeforeTheyAreStored) {
  std::vector<std::string> seen;
  const auto note = [&](const std::string& line) {
    seen.push_back(line + (Peer::rxCharacteristic(*manager) ? " rx" : "") +
                   (Peer::txCharacteristic(*manager) ? " tx" : ""));
  };
  platform.onLog = [&](const std::string&) { note("log"); };
  platform.onRequest = [&](const std::string&) { note("request"); };
  platform.didDiscoverCharacteristics(reader.peripheral, reader.service, {reader.rx, reader.tx});
  EXPECT_EQ(seen, (std::vector<std::string>{"request", "request rx", "log rx tx"}));
}

// No UUID passes two of the three tests, so that their order cannot be seen.
TEST_F(KvrCharacteristics, AreWalkedToTheEndAndTheManufacturerNameIsRead) {
  platform.didDiscoverCharacteristics(
      reader.peripheral, reader.service,
      {characteristicOf("2A29"), characteristicOf("2A27"), reader.rx, characteristicOf(kRx),
       characteristicOf(kTx), characteristicOf("2A29"), reader.tx, characteristicOf("FFF3")});
  EXPECT_EQ(platform.take(), R"(
* "KVR-Q62T 0012" didDiscoverCharacteristicsForService FFF0
peripheral "KVR-Q62T 0012" readValue of 2A29
peripheral "KVR-Q62T 0012" setNotifyValue true for FFF1
peripheral "KVR-Q62T 0012" readValue of 2A29
peripheral "KVR-Q62T 0012" setNotifyValue true for FFF2
log "Found TX - didDiscoverCharacteristicsForService"
cancel p_pluggedEvent on manager#1
perform p_pluggedEvent on manager#1 after 2
)");
}

// They are compared as UUIDs. By their text it would be the same, as the text of every UUID in the
// Bluetooth base range is the short one.
TEST_F(KvrCharacteristics, MatchInTheir128BitFormToo) {
  const auto rx = characteristicOf("0000FFF1-0000-1000-8000-00805F9B34FB");
  const auto tx = characteristicOf("0000fff2-0000-1000-8000-00805f9b34fb");
  platform.didDiscoverCharacteristics(reader.peripheral, reader.service, {rx, tx});
  EXPECT_EQ(Peer::rxCharacteristic(*manager), rx);
  EXPECT_EQ(Peer::txCharacteristic(*manager), tx);
}

TEST_F(KvrCharacteristics, OutsideTheBluetoothBaseRangeDoNotMatch) {
  platform.didDiscoverCharacteristics(reader.peripheral, reader.service,
                                      {characteristicOf("0000FFF1-0000-1000-8000-00805F9B34FC"),
                                       characteristicOf("0001FFF2-0000-1000-8000-00805F9B34FB"),
                                       characteristicOf("2A290000-3B5B-4654-85FE-E998B123ADEA")});
  EXPECT_EQ(platform.transcript().takeThoseThatBegin("peripheral"), kNothing);
  EXPECT_EQ(Peer::rxCharacteristic(*manager), nullptr);
  EXPECT_EQ(Peer::txCharacteristic(*manager), nullptr);
}

TEST_F(KvrCharacteristics, OfEveryServiceAreWalkedAgainInEveryReport) {
  const auto information = serviceOf("180A");
  const auto battery = serviceOf("180F");
  platform.didDiscoverServices(reader.peripheral, {information, reader.service, battery});
  platform.take();
  platform.didDiscoverCharacteristics(reader.peripheral, information, {characteristicOf("2A29")});
  EXPECT_EQ(platform.take(), R"(
* "KVR-Q62T 0012" didDiscoverCharacteristicsForService 180A
peripheral "KVR-Q62T 0012" readValue of 2A29
cancel p_pluggedEvent on manager#1
perform p_pluggedEvent on manager#1 after 2
)");
  platform.didDiscoverCharacteristics(reader.peripheral, reader.service, {reader.rx, reader.tx});
  EXPECT_EQ(platform.take(), R"(
* "KVR-Q62T 0012" didDiscoverCharacteristicsForService FFF0
peripheral "KVR-Q62T 0012" readValue of 2A29
peripheral "KVR-Q62T 0012" setNotifyValue true for FFF1
peripheral "KVR-Q62T 0012" setNotifyValue true for FFF2
log "Found TX - didDiscoverCharacteristicsForService"
cancel p_pluggedEvent on manager#1
perform p_pluggedEvent on manager#1 after 2
)");
  // By now both are stored, so that each logs.
  platform.didDiscoverCharacteristics(reader.peripheral, battery, {characteristicOf("2A19")});
  EXPECT_EQ(platform.take(), R"(
* "KVR-Q62T 0012" didDiscoverCharacteristicsForService 180F
peripheral "KVR-Q62T 0012" readValue of 2A29
peripheral "KVR-Q62T 0012" setNotifyValue true for FFF1
log "Found TX - didDiscoverCharacteristicsForService"
peripheral "KVR-Q62T 0012" setNotifyValue true for FFF2
log "Found TX - didDiscoverCharacteristicsForService"
cancel p_pluggedEvent on manager#1
perform p_pluggedEvent on manager#1 after 2
)");
}

TEST_F(KvrCharacteristics, DoNotDependOnTheReportedService) {
  reader.service->shownCharacteristics = {reader.rx, reader.tx};
  platform.didDiscoverCharacteristics(reader.peripheral, serviceOf("180A"),
                                      {characteristicOf("2A29")});
  EXPECT_EQ(platform.take(), R"(
* "KVR-Q62T 0012" didDiscoverCharacteristicsForService 180A
peripheral "KVR-Q62T 0012" setNotifyValue true for FFF1
peripheral "KVR-Q62T 0012" setNotifyValue true for FFF2
log "Found TX - didDiscoverCharacteristicsForService"
cancel p_pluggedEvent on manager#1
perform p_pluggedEvent on manager#1 after 2
)");
}

TEST_F(KvrCharacteristics, WithoutAnyServiceStillArmThePluggedReport) {
  reader.peripheral->shownServices.reset();
  platform.didDiscoverCharacteristics(reader.peripheral, reader.service, {reader.rx});
  EXPECT_EQ(platform.take(), R"(
* "KVR-Q62T 0012" didDiscoverCharacteristicsForService FFF0
cancel p_pluggedEvent on manager#1
perform p_pluggedEvent on manager#1 after 2
)");
}

TEST_F(KvrCharacteristics, AreAskedOfTheReportingPeripheral) {
  manager->connectBLE(platform.peripheral("TQM_HOLV-2"));
  platform.take();
  platform.didDiscoverCharacteristics(reader.peripheral, reader.service,
                                      {reader.rx, characteristicOf("2A29"), reader.tx});
  EXPECT_EQ(platform.transcript().takeThoseThatBegin("peripheral"), R"(
peripheral "KVR-Q62T 0012" setNotifyValue true for FFF1
peripheral "KVR-Q62T 0012" readValue of 2A29
peripheral "KVR-Q62T 0012" setNotifyValue true for FFF2
)");
}

TEST_F(KvrCharacteristics, DoNotSetTheLinkFlag) {
  platform.didDisconnect(reader.peripheral);
  platform.didDiscoverCharacteristics(reader.peripheral, reader.service, {reader.rx, reader.tx});
  EXPECT_FALSE(manager->open());
}

TEST_F(KvrCharacteristics, WithAnErrorAreOneLineAndNothingElse) {
  reader.service->shownCharacteristics = {reader.rx, reader.tx};
  platform.failToDiscoverCharacteristics(reader.peripheral, reader.service, kError);
  platform.run(3600.0);
  EXPECT_EQ(platform.take(), R"(
* "KVR-Q62T 0012" didDiscoverCharacteristicsForService FFF0 error Error Domain=CBATTErrorDomain Code=14 "Unlikely Error"
log "Error discovering characteristics: Error Domain=CBATTErrorDomain Code=14 "Unlikely Error""
)");
  EXPECT_EQ(Peer::rxCharacteristic(*manager), nullptr);
  EXPECT_EQ(Peer::txCharacteristic(*manager), nullptr);
  EXPECT_TRUE(manager->open());
}

TEST_F(KvrCharacteristics, AreThoseOfTheNameAtThatMoment) {
  // The family is told again in each report, so a reader that is renamed changes family.
  reader.peripheral->nameReads.set({"TQM_HOLV-1"});
  platform.didDiscoverCharacteristics(reader.peripheral, reader.service, {reader.rx, reader.tx});
  EXPECT_EQ(platform.take(), R"(
* "KVR-Q62T 0012" didDiscoverCharacteristicsForService FFF0
cancel p_getReaderInfo on manager#1
perform p_getReaderInfo on manager#1 after 0.5
cancel p_pluggedEvent on manager#1
perform p_pluggedEvent on manager#1 after 2
)");
}

}  // namespace
}  // namespace kestrin::test
