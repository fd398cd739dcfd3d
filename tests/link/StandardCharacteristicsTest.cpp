// Characteristics found on a reader of the standard family.
#include "link/LinkTest.h"

namespace kestrin::test {
namespace {

class StandardCharacteristics : public LinkTest {
 protected:
  StandardCharacteristics() {
    connect(reader.peripheral);
    platform.didDiscoverServices(reader.peripheral, {reader.service});
    platform.take();
  }
  const Reader reader = standardReader();
};

TEST_F(StandardCharacteristics, RxFirst) {
  platform.didDiscoverCharacteristics(reader.peripheral, reader.service, {reader.rx, reader.tx});
  EXPECT_EQ(platform.take(), R"(
* "TQM_HOLV-1" didDiscoverCharacteristicsForService BA821000-3B5B-4654-85FE-E998B123ADEA
log "Found RX characteristic"
peripheral "TQM_HOLV-1" setNotifyValue true for BA821002-3B5B-4654-85FE-E998B123ADEA
log "Found TX characteristic"
log "Found TX - didDiscoverCharacteristicsForService"
cancel p_getReaderInfo on manager#1
perform p_getReaderInfo on manager#1 after 0.5
cancel p_pluggedEvent on manager#1
perform p_pluggedEvent on manager#1 after 2
)");
  EXPECT_EQ(Peer::rxCharacteristic(*manager), reader.rx);
  EXPECT_EQ(Peer::txCharacteristic(*manager), reader.tx);
}

TEST_F(StandardCharacteristics, TxFirst) {
  platform.didDiscoverCharacteristics(reader.peripheral, reader.service, {reader.tx, reader.rx});
  EXPECT_EQ(platform.take(), R"(
* "TQM_HOLV-1" didDiscoverCharacteristicsForService BA821000-3B5B-4654-85FE-E998B123ADEA
log "Found TX characteristic"
log "Found RX characteristic"
peripheral "TQM_HOLV-1" setNotifyValue true for BA821002-3B5B-4654-85FE-E998B123ADEA
log "Found RX - didDiscoverCharacteristicsForService"
cancel p_getReaderInfo on manager#1
perform p_getReaderInfo on manager#1 after 0.5
cancel p_pluggedEvent on manager#1
perform p_pluggedEvent on manager#1 after 2
)");
}

TEST_F(StandardCharacteristics, AreWalkedToTheEndAndTheHardwareRevisionIsReadEachTime) {
  platform.didDiscoverCharacteristics(
      reader.peripheral, reader.service,
      {characteristicOf("2A27"), characteristicOf("2A29"), reader.rx, characteristicOf("FFF1"),
       characteristicOf("FFF2"), characteristicOf(kService), reader.tx, characteristicOf("2A27")});
  EXPECT_EQ(platform.take(), R"(
* "TQM_HOLV-1" didDiscoverCharacteristicsForService BA821000-3B5B-4654-85FE-E998B123ADEA
log "Found Hardware Revision String characteristic"
peripheral "TQM_HOLV-1" readValue of 2A27
log "Found RX characteristic"
peripheral "TQM_HOLV-1" setNotifyValue true for BA821002-3B5B-4654-85FE-E998B123ADEA
log "Found TX characteristic"
log "Found TX - didDiscoverCharacteristicsForService"
log "Found Hardware Revision String characteristic"
peripheral "TQM_HOLV-1" readValue of 2A27
cancel p_getReaderInfo on manager#1
perform p_getReaderInfo on manager#1 after 0.5
cancel p_pluggedEvent on manager#1
perform p_pluggedEvent on manager#1 after 2
)");
}

TEST_F(StandardCharacteristics, WithOnlyRxAreNotBothFound) {
  platform.didDiscoverCharacteristics(reader.peripheral, reader.service, {reader.rx});
  EXPECT_EQ(platform.transcript().takeThoseThatBegin("log"), R"(
log "Found RX characteristic"
)");
}

TEST_F(StandardCharacteristics, WithOnlyTxAreNotBothFoundAndNotificationsStayOff) {
  platform.didDiscoverCharacteristics(reader.peripheral, reader.service, {reader.tx});
  EXPECT_EQ(platform.take(), R"(
* "TQM_HOLV-1" didDiscoverCharacteristicsForService BA821000-3B5B-4654-85FE-E998B123ADEA
log "Found TX characteristic"
cancel p_getReaderInfo on manager#1
perform p_getReaderInfo on manager#1 after 0.5
cancel p_pluggedEvent on manager#1
perform p_pluggedEvent on manager#1 after 2
)");
}

TEST_F(StandardCharacteristics, CountWithThoseOfAnEarlierLinkWhichAreNeverCleared) {
  platform.didDiscoverCharacteristics(reader.peripheral, reader.service, {reader.rx, reader.tx});
  platform.take();
  const auto freshRx = characteristicOf(kRx);
  platform.didDiscoverCharacteristics(reader.peripheral, reader.service, {freshRx});
  EXPECT_EQ(platform.transcript().takeThoseThatBegin("log"), R"(
log "Found RX characteristic"
log "Found RX - didDiscoverCharacteristicsForService"
)");
  EXPECT_EQ(Peer::rxCharacteristic(*manager), freshRx);
  EXPECT_EQ(Peer::txCharacteristic(*manager), reader.tx);
}

TEST_F(StandardCharacteristics, ThatAreNoneOrAbsentStillArmBothDelays) {
  const std::string armed = R"(
cancel p_getReaderInfo on manager#1
perform p_getReaderInfo on manager#1 after 0.5
cancel p_pluggedEvent on manager#1
perform p_pluggedEvent on manager#1 after 2
)";
  Peer::peripheral_didDiscoverCharacteristicsForService_error(*manager, reader.peripheral,
                                                              reader.service, std::nullopt);
  EXPECT_EQ(platform.take(), armed);
  reader.service->shownCharacteristics.emplace();
  Peer::peripheral_didDiscoverCharacteristicsForService_error(*manager, reader.peripheral,
                                                              reader.service, std::nullopt);
  EXPECT_EQ(platform.take(), armed);
}

TEST_F(StandardCharacteristics, AreThoseOfTheReportedServiceOnly) {
  const auto other = serviceOf(kService);
  other->shownCharacteristics = {reader.rx};
  reader.peripheral->shownServices = {other, reader.service};
  platform.didDiscoverCharacteristics(reader.peripheral, reader.service, {reader.tx});
  EXPECT_EQ(Peer::rxCharacteristic(*manager), nullptr);
  EXPECT_EQ(Peer::txCharacteristic(*manager), reader.tx);
}

TEST_F(StandardCharacteristics, OfAnyReportedServiceAreTaken) {
  platform.didDiscoverCharacteristics(reader.peripheral, serviceOf("FFF0"), {reader.tx});
  EXPECT_EQ(Peer::txCharacteristic(*manager), reader.tx);
}

TEST_F(StandardCharacteristics, AreAskedOfTheStoredReader) {
  manager->connectBLE(platform.peripheral("KVR-Q62T 2"));
  platform.take();
  platform.didDiscoverCharacteristics(reader.peripheral, reader.service,
                                      {reader.rx, characteristicOf("2A27")});
  EXPECT_EQ(platform.transcript().takeThoseThatBegin("peripheral"), R"(
peripheral "KVR-Q62T 2" setNotifyValue true for BA821002-3B5B-4654-85FE-E998B123ADEA
peripheral "KVR-Q62T 2" readValue of 2A27
)");
}

TEST_F(StandardCharacteristics, WithoutAStoredReaderAreStoredAndNobodyIsAsked) {
  manager->connectBLE(nullptr);
  platform.take();
  platform.didDiscoverCharacteristics(reader.peripheral, reader.service,
                                      {reader.rx, reader.tx, characteristicOf("2A27")});
  EXPECT_EQ(platform.transcript().takeThoseThatBegin("peripheral"), kNothing);
  EXPECT_EQ(Peer::rxCharacteristic(*manager), reader.rx);
}

TEST_F(StandardCharacteristics, AreLoggedThenStoredThenAskedFor) {
  std::vector<std::string> seen;
  const auto note = [&](const std::string& line) {
    seen.push_back(line + (Peer::rxCharacteristic(*manager) ? " rx" : "") +
                   (Peer::txCharacteristic(*manager) ? " tx" : ""));
  };
  platform.onLog = note;
  platform.onRequest = [&](const std::string&) { note("request"); };
  platform.didDiscoverCharacteristics(reader.peripheral, reader.service, {reader.rx, reader.tx});
  EXPECT_EQ(seen, (std::vector<std::string>{
                      "Found RX characteristic", "request rx", "Found TX characteristic rx",
                      "Found TX - didDiscoverCharacteristicsForService rx tx"}));
}

TEST_F(StandardCharacteristics, SetTheLinkFlagAfterTheWalkAlsoWhenTheLinkWasLost) {
  platform.didDisconnect(reader.peripheral);
  bool during = true;
  platform.onLog = [&](const std::string&) { during = manager->open(); };
  platform.didDiscoverCharacteristics(reader.peripheral, reader.service, {reader.rx});
  EXPECT_FALSE(during);
  EXPECT_TRUE(manager->open());
}

TEST_F(StandardCharacteristics, SetTheLinkFlagBeforeADelayIsCancelledOrArmed) {
  platform.didDisconnect(reader.peripheral);
  std::vector<bool> seen;
  platform.onDelay = [&](const std::string&) { seen.push_back(manager->open()); };
  platform.didDiscoverCharacteristics(reader.peripheral, reader.service, {reader.rx});
  EXPECT_EQ(seen, std::vector<bool>(4, true));
}

TEST_F(StandardCharacteristics, AreThoseOfEveryReaderWhoseNameDoesNotBeginSo) {
  for (const auto& [name, kvr] : kFamilies) {
    reader.peripheral->nameReads.set({name});
    platform.take();
    platform.didDiscoverCharacteristics(reader.peripheral, reader.service, {reader.rx});
    const bool standard = platform.take().find("p_getReaderInfo") != std::string::npos;
    EXPECT_EQ(standard, !kvr) << name.value_or("(no name)");
  }
}

TEST_F(StandardCharacteristics, WhoseTextOnlyBeginsLikeOneThatIsLookedForAreNone) {
  platform.didDiscoverCharacteristics(reader.peripheral, reader.service,
                                      {characteristicOf("2A270000-3B5B-4654-85FE-E998B123ADEA"),
                                       characteristicOf("BA821003-3B5B-4654-85FE-E998B123ADEA"),
                                       characteristicOf("BA821002-3B5B-4654-85FE-E998B123ADEB")});
  EXPECT_EQ(platform.transcript().takeThoseThatBegin("log"), kNothing);
  EXPECT_EQ(Peer::rxCharacteristic(*manager), nullptr);
  EXPECT_EQ(Peer::txCharacteristic(*manager), nullptr);
}

TEST_F(StandardCharacteristics, WithAnErrorAreOneLineAndNothingElse) {
  platform.didDisconnect(reader.peripheral);
  reader.service->shownCharacteristics = {reader.rx, reader.tx};
  platform.take();
  platform.failToDiscoverCharacteristics(reader.peripheral, reader.service, kError);
  platform.run(3600.0);
  EXPECT_EQ(platform.take(), R"(
* "TQM_HOLV-1" didDiscoverCharacteristicsForService BA821000-3B5B-4654-85FE-E998B123ADEA error Error Domain=CBATTErrorDomain Code=14 "Unlikely Error"
log "Error discovering characteristics: Error Domain=CBATTErrorDomain Code=14 "Unlikely Error""
)");
  EXPECT_EQ(Peer::rxCharacteristic(*manager), nullptr);
  EXPECT_FALSE(manager->open());
}

TEST_F(StandardCharacteristics, WithAnErrorLeaveWhatAnotherReportArmed) {
  platform.didDiscoverCharacteristics(reader.peripheral, reader.service, {reader.rx, reader.tx});
  platform.run(0.25);
  platform.failToDiscoverCharacteristics(reader.peripheral, serviceOf("180A"), kError);
  platform.takeTimed();
  platform.run(3600.0);
  EXPECT_EQ(platform.takeTimed(), R"(
at 0.5 s
log "==========get Reader Info=============="
peripheral "TQM_HOLV-1" writeValue <bb000300 01b17e65 97> to BA821001-3B5B-4654-85FE-E998B123ADEA type 0
log "[TX BLE] <bb000300 01b17e65 97>"
at 2 s
receiver plugChangedStatus true
)");
}

}  // namespace
}  // namespace kestrin::test
