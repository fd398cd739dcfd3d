// Conversations whose link does not come about as it should, each from its scan to its end: the
// attempt, discovery, the delays.
#include "link/ConversationTest.h"

namespace kestrin::test {
namespace {

class FailedLink : public ConversationTest {};

TEST_F(FailedLink, WithNoReaderInRangeIsLinesOfTheLogOnly) {
  scanBLE();
  platform.didUpdateState(5);
  platform.didDiscover(platform.peripheral("Headset"));
  platform.didDiscover(platform.peripheral("nameless", std::nullopt));
  platform.didDiscover(platform.peripheral("kvr-q62t"));
  application("stopSacnBLE", [this] { manager->stopSacnBLE(); });
  EXPECT_EQ(platform.takeTimed(), R"~(
> scanBLE
delegate scanBleStatus 0
central#1 initWithDelegate manager#1 queue (absent)
central#1 scanForPeripheralsWithServices (absent) options (absent)
* central#1 didUpdateState 5
log " CBManager is powered on"
log "start San"
central#1 scanForPeripheralsWithServices (absent) options (absent)
* central#1 didDiscoverPeripheral "Headset"
log "DiscoverPeripheral  Headset"
* central#1 didDiscoverPeripheral "nameless"
log "DiscoverPeripheral  (null)"
* central#1 didDiscoverPeripheral "kvr-q62t"
log "DiscoverPeripheral  kvr-q62t"
> stopSacnBLE
delegate scanBleStatus 1
central#1 stopScan
)~");
}

TEST_F(FailedLink, WithAReaderThatNeverAnswersEndsByClose) {
  const Reader reader = standardReader();
  fromScanToConnect(reader);
  platform.run(86400.0);
  EXPECT_FALSE(manager->open());
  closeAndLoseTheLink(reader);
  EXPECT_EQ(platform.takeTimed(), kFromScanToConnect + "at 86400 s\n" + kClosed);
}

TEST_F(FailedLink, WithAReaderThatNeverAnswersEndsByANewScan) {
  fromScanToConnect(standardReader());
  platform.run(86400.0);
  scanBLE();
  EXPECT_EQ(platform.takeTimed(), kFromScanToConnect + R"(at 86400 s
> scanBLE
delegate scanBleStatus 0
central#1 cancelPeripheralConnection "TQM_HOLV-1"
central#1 stopScan
central#2 initWithDelegate manager#1 queue (absent)
central#1 released
central#2 scanForPeripheralsWithServices (absent) options (absent)
)");
}

TEST_F(FailedLink, WithServicesThatCanNotBeDiscoveredStaysUpAndUnplugged) {
  const Reader reader = standardReader();
  fromScanToLink(reader);
  platform.failToDiscoverServices(reader.peripheral, kError);
  platform.run(3600.0);
  EXPECT_TRUE(manager->open());
  closeAndLoseTheLink(reader);
  EXPECT_EQ(
      platform.takeTimed(),
      kFromScanToLink +
          R"(* "TQM_HOLV-1" didDiscoverServices error Error Domain=CBATTErrorDomain Code=14 "Unlikely Error"
log "Error discovering services: Error Domain=CBATTErrorDomain Code=14 "Unlikely Error""
at 3600 s
)" + kClosed);
}

TEST_F(FailedLink, WithServicesOfAKvrReaderThatCanNotBeDiscoveredStaysUpAndUnplugged) {
  const Reader reader = kvrReader();
  fromScanToLink(reader);
  platform.failToDiscoverServices(reader.peripheral, kError);
  platform.run(3600.0);
  EXPECT_TRUE(manager->open());
  closeAndLoseTheLink(reader);
  EXPECT_EQ(
      platform.takeTimed(),
      kKvrFromScanToLink +
          R"(* "KVR-Q62T 0012" didDiscoverServices error Error Domain=CBATTErrorDomain Code=14 "Unlikely Error"
log "Error discovering services: Error Domain=CBATTErrorDomain Code=14 "Unlikely Error""
at 3600 s
)" + kKvrClosed);
}

TEST_F(FailedLink, WithoutTheDataServiceStaysUpAndUnplugged) {
  const Reader reader = standardReader();
  fromScanToLink(reader);
  platform.didDiscoverServices(reader.peripheral, {serviceOf("180A")});
  platform.run(3600.0);
  EXPECT_TRUE(manager->open());
  closeAndLoseTheLink(reader);
  EXPECT_EQ(platform.takeTimed(), kFromScanToLink + R"(* "TQM_HOLV-1" didDiscoverServices
log "Service id : 180A"
log "Service Description : <service 180A>"
at 3600 s
)" + kClosed);
}

TEST_F(FailedLink, WithoutAnyServiceOfAKvrReaderStaysUpAndUnplugged) {
  const Reader reader = kvrReader();
  fromScanToLink(reader);
  platform.didDiscoverServices(reader.peripheral, {});
  platform.run(3600.0);
  EXPECT_TRUE(manager->open());
  closeAndLoseTheLink(reader);
  EXPECT_EQ(
      platform.takeTimed(),
      kKvrFromScanToLink + "* \"KVR-Q62T 0012\" didDiscoverServices\nat 3600 s\n" + kKvrClosed);
}

TEST_F(FailedLink, WithCharacteristicsThatCanNotBeDiscoveredArmsNothing) {
  const Reader reader = standardReader();
  fromScanToServices(reader);
  platform.failToDiscoverCharacteristics(reader.peripheral, reader.service, kError);
  platform.run(3600.0);
  EXPECT_TRUE(manager->open());
  closeAndLoseTheLink(reader);
  EXPECT_EQ(
      platform.takeTimed(),
      kFromScanToServices +
          R"(* "TQM_HOLV-1" didDiscoverCharacteristicsForService BA821000-3B5B-4654-85FE-E998B123ADEA error Error Domain=CBATTErrorDomain Code=14 "Unlikely Error"
log "Error discovering characteristics: Error Domain=CBATTErrorDomain Code=14 "Unlikely Error""
at 3600 s
)" + kClosed);
}

TEST_F(FailedLink, WithOneOfTwoServicesOfAKvrReaderIsPluggedInByTheOther) {
  const Reader reader = kvrReader();
  const auto information = serviceOf("180A");
  fromScanToLink(reader);
  platform.didDiscoverServices(reader.peripheral, {reader.service, information});
  platform.didDiscoverCharacteristics(reader.peripheral, reader.service, {reader.rx, reader.tx});
  platform.run(1.0);
  platform.failToDiscoverCharacteristics(reader.peripheral, information, kError);
  platform.run(3600.0);
  closeAndLoseTheLink(reader);
  EXPECT_EQ(platform.takeTimed(), kKvrFromScanToServices + R"(log "searching : 180A"
peripheral "KVR-Q62T 0012" discoverCharacteristics (absent) forService 180A
* "KVR-Q62T 0012" didDiscoverCharacteristicsForService FFF0
peripheral "KVR-Q62T 0012" setNotifyValue true for FFF1
peripheral "KVR-Q62T 0012" setNotifyValue true for FFF2
log "Found TX - didDiscoverCharacteristicsForService"
cancel p_pluggedEvent on manager#1
perform p_pluggedEvent on manager#1 after 2
at 1 s
* "KVR-Q62T 0012" didDiscoverCharacteristicsForService 180A error Error Domain=CBATTErrorDomain Code=14 "Unlikely Error"
log "Error discovering characteristics: Error Domain=CBATTErrorDomain Code=14 "Unlikely Error""
at 2 s
receiver plugChangedStatus true
at 3601 s
)" + kKvrClosed);
}

TEST_F(FailedLink, WithoutATransmitCharacteristicCanNotAskTheReaderAndIsPluggedInAllTheSame) {
  const Reader reader = standardReader();
  fromScanToServices(reader);
  platform.didDiscoverCharacteristics(reader.peripheral, reader.service, {reader.rx});
  platform.run(2.0);
  send(kFrame, false);
  closeAndLoseTheLink(reader);
  EXPECT_EQ(
      platform.takeTimed(),
      kFromScanToServices +
          R"(* "TQM_HOLV-1" didDiscoverCharacteristicsForService BA821000-3B5B-4654-85FE-E998B123ADEA
log "Found RX characteristic"
peripheral "TQM_HOLV-1" setNotifyValue true for BA821002-3B5B-4654-85FE-E998B123ADEA
cancel p_getReaderInfo on manager#1
perform p_getReaderInfo on manager#1 after 0.5
cancel p_pluggedEvent on manager#1
perform p_pluggedEvent on manager#1 after 2
at 0.5 s
log "==========get Reader Info=============="
log "No write property on TX characteristic, 0."
at 2 s
receiver plugChangedStatus true
> send
log "No write property on TX characteristic, 0."
)" + kClosed);
}

TEST_F(FailedLink, WithoutAReceiveCharacteristicAsksTheReaderAndIsPluggedIn) {
  const Reader reader = standardReader();
  fromScanToServices(reader);
  platform.didDiscoverCharacteristics(reader.peripheral, reader.service, {reader.tx});
  platform.run(2.0);
  closeAndLoseTheLink(reader);
  EXPECT_EQ(
      platform.takeTimed(),
      kFromScanToServices +
          R"(* "TQM_HOLV-1" didDiscoverCharacteristicsForService BA821000-3B5B-4654-85FE-E998B123ADEA
log "Found TX characteristic"
cancel p_getReaderInfo on manager#1
perform p_getReaderInfo on manager#1 after 0.5
cancel p_pluggedEvent on manager#1
perform p_pluggedEvent on manager#1 after 2
at 0.5 s
log "==========get Reader Info=============="
peripheral "TQM_HOLV-1" writeValue <bb000300 01b17e65 97> to BA821001-3B5B-4654-85FE-E998B123ADEA type 0
log "[TX BLE] <bb000300 01b17e65 97>"
at 2 s
receiver plugChangedStatus true
)" + kClosed);
}

TEST_F(FailedLink, WithNeitherCharacteristicOfAKvrReaderIsPluggedInAndCanNotBeSentTo) {
  const Reader reader = kvrReader();
  fromScanToServices(reader);
  platform.didDiscoverCharacteristics(reader.peripheral, reader.service, {});
  platform.run(2.0);
  send(kFrame, false);
  closeAndLoseTheLink(reader);
  EXPECT_EQ(platform.takeTimed(),
            kKvrFromScanToServices + R"(* "KVR-Q62T 0012" didDiscoverCharacteristicsForService FFF0
cancel p_pluggedEvent on manager#1
perform p_pluggedEvent on manager#1 after 2
at 2 s
receiver plugChangedStatus true
> send
log "No write property on TX characteristic, 0."
)" + kKvrClosed);
}

TEST_F(FailedLink, ThatIsLostBeforeTheReportsAreDueIsToldFalseTwiceAndWrittenTo) {
  const Reader reader = standardReader();
  fromScanToServices(reader);
  platform.didDiscoverCharacteristics(reader.peripheral, reader.service, {reader.tx, reader.rx});
  platform.run(0.25);
  platform.didDisconnect(reader.peripheral, kError);
  platform.run(3600.0);
  EXPECT_FALSE(manager->open());
  EXPECT_EQ(
      platform.takeTimed(),
      kFromScanToServices +
          R"(* "TQM_HOLV-1" didDiscoverCharacteristicsForService BA821000-3B5B-4654-85FE-E998B123ADEA
log "Found TX characteristic"
log "Found RX characteristic"
peripheral "TQM_HOLV-1" setNotifyValue true for BA821002-3B5B-4654-85FE-E998B123ADEA
log "Found RX - didDiscoverCharacteristicsForService"
cancel p_getReaderInfo on manager#1
perform p_getReaderInfo on manager#1 after 0.5
cancel p_pluggedEvent on manager#1
perform p_pluggedEvent on manager#1 after 2
at 0.25 s
* central#1 didDisconnectPeripheral "TQM_HOLV-1" error Error Domain=CBATTErrorDomain Code=14 "Unlikely Error"
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

TEST_F(FailedLink, OfAKvrReaderThatIsLostIsNeitherLookedForNorConnectedAgain) {
  const Reader reader = kvrReader();
  fromScanToPlug(reader);
  platform.didDisconnect(reader.peripheral, kError);
  platform.run(3600.0);
  EXPECT_EQ(
      platform.takeTimed(),
      kKvrFromScanToPlug +
          R"(* central#1 didDisconnectPeripheral "KVR-Q62T 0012" error Error Domain=CBATTErrorDomain Code=14 "Unlikely Error"
log "BLE Disconnected"
receiver plugChangedStatus false
)");
}

TEST_F(FailedLink, ThatGoesToTheBackgroundIsClosedATurnLater) {
  const Reader reader = standardReader();
  fromScanToPlug(reader);
  platform.enterBackground();
  platform.runOneTurn();
  platform.didDisconnect(reader.peripheral);
  platform.run(3600.0);
  EXPECT_EQ(platform.takeTimed(),
            kFromScanToPlug + R"(* post UIApplicationDidEnterBackgroundNotification
cancel accessoryDidDisconnect on manager#1
perform accessoryDidDisconnect on manager#1 after 0
central#1 cancelPeripheralConnection "TQM_HOLV-1"
central#1 stopScan
receiver plugChangedStatus false
* central#1 didDisconnectPeripheral "TQM_HOLV-1"
log "BLE Disconnected"
receiver plugChangedStatus false
)");
}

}  // namespace
}  // namespace kestrin::test
