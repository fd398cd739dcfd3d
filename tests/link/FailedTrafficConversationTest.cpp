// Conversations over a link that is up, each from its scan to its end, in which frames, values or
// writes go wrong, or nobody listens.
#include "link/ConversationTest.h"

namespace kestrin::test {
namespace {

class FailedTraffic : public ConversationTest {};

TEST_F(FailedTraffic, OfEachKindOfDamagedFrameIsLoggedAndTheNextFrameIsDelivered) {
  const Reader reader = standardReader();
  fromScanToPlug(reader);
  const auto notify = [&](const NSData& value) {
    platform.didUpdateValue(reader.peripheral, reader.rx, value);
  };
  notify({0xBB, 0x00, 0x03, 0x00, 0x01, 0xB1, 0x7E, 0x65, 0x97});
  notify({0xBB, 0x01, 0x22, 0x03, 0xFE});
  notify({0xBB, 0x01, 0x03, 0x00, 0x00, 0x0A});
  notify({0xBB, 0x01, 0x03, 0x00, 0x01, 0xB1, 0x7E, 0x20, 0x36});
  notify({0xBB, 0x01, 0x03, 0x00, 0x01, 0xB1, 0x7E, 0x20, 0x37});
  notify({0xBB, 0x02, 0x11, 0x00, 0x00, 0x7E, 0xA7, 0xC5});
  closeAndLoseTheLink(reader);
  // A rejected frame is kept, and rejected again, until a later preamble is seen.
  EXPECT_EQ(
      platform.takeTimed(),
      kFromScanToPlug +
          R"(* "TQM_HOLV-1" didUpdateValueForCharacteristic BA821002-3B5B-4654-85FE-E998B123ADEA <bb000300 01b17e65 97>
log "[ERROR]parseFrmReader:MESSAGE"
* "TQM_HOLV-1" didUpdateValueForCharacteristic BA821002-3B5B-4654-85FE-E998B123ADEA <bb012203 fe>
log "[ERROR]parseFrmReader:MESSAGE"
log "[ERROR]parseFrmReader:LENGTH2"
* "TQM_HOLV-1" didUpdateValueForCharacteristic BA821002-3B5B-4654-85FE-E998B123ADEA <bb010300 000a>
log "[ERROR]parseFrmReader:LENGTH2"
log "[ERROR]parseFrmReader:ENDMARK abyte = 0A"
log "[Test] <bb012203 febb0103 00000a>"
* "TQM_HOLV-1" didUpdateValueForCharacteristic BA821002-3B5B-4654-85FE-E998B123ADEA <bb010300 01b17e20 36>
log "[ERROR]parseFrmReader:ENDMARK abyte = 0A"
log "[Test] <bb010300 000abb01 030001b1 7e2036>"
log "[parseRcpFrmReader] CRC_ERROR"
* "TQM_HOLV-1" didUpdateValueForCharacteristic BA821002-3B5B-4654-85FE-E998B123ADEA <bb010300 01b17e20 37>
log "[parseRcpFrmReader] CRC_ERROR"
log "[RX BLE] <bb010300 01b17e20 37>"
dispatch_sync priority 2
dispatch_sync priority 2
receiver dispatchRcpFrmReader <bb010300 01b17e20 37>
* "TQM_HOLV-1" didUpdateValueForCharacteristic BA821002-3B5B-4654-85FE-E998B123ADEA <bb021100 007ea7c5>
log "[RX BLE] <bb021100 007ea7c5>"
dispatch_sync priority 2
dispatch_sync priority 2
receiver dispatchRcpFrmReader <bb021100 007ea7c5>
)" + kClosed);
}

TEST_F(FailedTraffic, OfALinkThatEndsInAFrameStandsBeforeTheNextLinksBytes) {
  const Reader reader = standardReader();
  fromScanToPlug(reader);
  platform.didUpdateValue(reader.peripheral, reader.rx, NSData{0xBB, 0x01, 0x03, 0x00, 0x01});
  platform.didDisconnect(reader.peripheral);
  connectBLE(reader.peripheral);
  platform.didConnect(reader.peripheral);
  platform.didUpdateValue(reader.peripheral, reader.rx, NSData{0xB1, 0x7E, 0x20, 0x37});
  closeAndLoseTheLink(reader);
  EXPECT_EQ(
      platform.takeTimed(),
      kFromScanToPlug +
          R"(* "TQM_HOLV-1" didUpdateValueForCharacteristic BA821002-3B5B-4654-85FE-E998B123ADEA <bb010300 01>
* central#1 didDisconnectPeripheral "TQM_HOLV-1"
log "BLE Disconnected"
receiver plugChangedStatus false
> connectBLE
central#1 stopScan
peripheral "TQM_HOLV-1" setDelegate manager#1
central#1 connectPeripheral "TQM_HOLV-1" options (absent)
* central#1 didConnectPeripheral "TQM_HOLV-1"
log "BLE Connected"
peripheral "TQM_HOLV-1" discoverServices [BA821000-3B5B-4654-85FE-E998B123ADEA]
* "TQM_HOLV-1" didUpdateValueForCharacteristic BA821002-3B5B-4654-85FE-E998B123ADEA <b17e2037>
log "[RX BLE] <bb010300 01b17e20 37>"
dispatch_sync priority 2
dispatch_sync priority 2
receiver dispatchRcpFrmReader <bb010300 01b17e20 37>
)" + kClosed);
}

TEST_F(FailedTraffic, OfAStandardReadersValuesWithErrorsIsLoggedAndTheStateEventsValueTaken) {
  const Reader reader = standardReader();
  fromScanToPlug(reader);
  platform.didUpdateValue(reader.peripheral, reader.rx, kFrame, kError);
  platform.didUpdateNotificationState(reader.peripheral, reader.rx, kError);
  platform.didUpdateValue(reader.peripheral, reader.rx, std::nullopt);
  platform.didUpdateNotificationState(reader.peripheral, reader.rx, kError);
  closeAndLoseTheLink(reader);
  EXPECT_EQ(
      platform.takeTimed(),
      kFromScanToPlug +
          R"~(* "TQM_HOLV-1" didUpdateValueForCharacteristic BA821002-3B5B-4654-85FE-E998B123ADEA <bb010300 01b17e20 37> error Error Domain=CBATTErrorDomain Code=14 "Unlikely Error"
log " [ERROR] Unlikely Error"
* "TQM_HOLV-1" didUpdateNotificationStateForCharacteristic BA821002-3B5B-4654-85FE-E998B123ADEA error Error Domain=CBATTErrorDomain Code=14 "Unlikely Error"
log "[ERROR]: Unlikely Error"
log "[RX BLE] <bb010300 01b17e20 37>"
dispatch_sync priority 2
dispatch_sync priority 2
receiver dispatchRcpFrmReader <bb010300 01b17e20 37>
* "TQM_HOLV-1" didUpdateValueForCharacteristic BA821002-3B5B-4654-85FE-E998B123ADEA (absent)
* "TQM_HOLV-1" didUpdateNotificationStateForCharacteristic BA821002-3B5B-4654-85FE-E998B123ADEA error Error Domain=CBATTErrorDomain Code=14 "Unlikely Error"
log "[ERROR]: Unlikely Error"
)~" + kClosed);
}

TEST_F(FailedTraffic, OfAKvrReadersValuesIsLoggedOrHandedOverAbsent) {
  const Reader reader = kvrReader();
  const auto manufacturer = characteristicOf("2A29", 0x02);
  fromScanToPlug(reader);
  platform.didUpdateValue(reader.peripheral, reader.rx, kFrame, kError);
  platform.didUpdateValue(reader.peripheral, manufacturer, NSData{'N', 0x80});
  platform.didUpdateValue(reader.peripheral, manufacturer, std::nullopt);
  platform.didUpdateValue(reader.peripheral, reader.tx, std::nullopt);
  manager->setRcpReceiverDelegate(nullptr);
  platform.didUpdateValue(reader.peripheral, reader.rx, kFrame);
  manager->setRcpReceiverDelegate(receiver);
  closeAndLoseTheLink(reader);
  EXPECT_EQ(
      platform.takeTimed(),
      kKvrFromScanToPlug +
          R"~(* "KVR-Q62T 0012" didUpdateValueForCharacteristic FFF1 <bb010300 01b17e20 37> error Error Domain=CBATTErrorDomain Code=14 "Unlikely Error"
log " [ERROR] Unlikely Error"
* "KVR-Q62T 0012" didUpdateValueForCharacteristic 2A29 <4e80>
log "BLE_D5_NOVA_Manufacturer_Name : (null)"
* "KVR-Q62T 0012" didUpdateValueForCharacteristic 2A29 (absent)
log "BLE_D5_NOVA_Manufacturer_Name : (null)"
* "KVR-Q62T 0012" didUpdateValueForCharacteristic FFF2 (absent)
receiver dispatchRcpFrmReader (absent)
* "KVR-Q62T 0012" didUpdateValueForCharacteristic FFF1 <bb010300 01b17e20 37>
)~" + kKvrClosed);
}

TEST_F(FailedTraffic, ToATransmitCharacteristicThatCanNotBeWrittenIsLoggedForEachSlice) {
  const Reader reader = standardReader("TQM_HOLV-1", 0x12);
  fromScanToServices(reader);
  platform.didDiscoverCharacteristics(reader.peripheral, reader.service, {reader.rx, reader.tx});
  platform.run(2.0);
  send(NSData(std::vector<std::uint8_t>(21, 0x11)), false);
  closeAndLoseTheLink(reader);
  EXPECT_EQ(
      platform.takeTimed(),
      kFromScanToServices +
          R"(* "TQM_HOLV-1" didDiscoverCharacteristicsForService BA821000-3B5B-4654-85FE-E998B123ADEA
log "Found RX characteristic"
peripheral "TQM_HOLV-1" setNotifyValue true for BA821002-3B5B-4654-85FE-E998B123ADEA
log "Found TX characteristic"
log "Found TX - didDiscoverCharacteristicsForService"
cancel p_getReaderInfo on manager#1
perform p_getReaderInfo on manager#1 after 0.5
cancel p_pluggedEvent on manager#1
perform p_pluggedEvent on manager#1 after 2
at 0.5 s
log "==========get Reader Info=============="
log "No write property on TX characteristic, 18."
at 2 s
receiver plugChangedStatus true
> send
log "No write property on TX characteristic, 18."
sleep 0.05
at 2.05 s
log "No write property on TX characteristic, 18."
)" + kClosed);
}

TEST_F(FailedTraffic, OfAFrameWhoseLastSliceAloneCanBeWrittenCountsAsSent) {
  const Reader reader = standardReader();
  fromScanToPlug(reader);
  // Two tests and the log line read the mask of the first slice, one test that of the last.
  reader.tx->propertyReads.set({0x02, 0x02, 0x02, 0x08});
  send(NSData(std::vector<std::uint8_t>(21, 0x11)), true);
  closeAndLoseTheLink(reader);
  EXPECT_EQ(platform.takeTimed(), kFromScanToPlug + R"(> send
log "No write property on TX characteristic, 2."
sleep 0.05
at 2.05 s
peripheral "TQM_HOLV-1" setNotifyValue true for BA821001-3B5B-4654-85FE-E998B123ADEA
peripheral "TQM_HOLV-1" writeValue <11> to BA821001-3B5B-4654-85FE-E998B123ADEA type 0
log "[TX BLE] <11>"
)" + kClosed);
}

TEST_F(FailedTraffic, BeforeTheFirstLinkGoesNowhereAndAfterALostOneToTheOldCharacteristic) {
  const Reader reader = standardReader();
  send(kFrame, false);
  fromScanToPlug(reader);
  platform.didDisconnect(reader.peripheral);
  send(kFrame, true);
  close();
  EXPECT_EQ(platform.takeTimed(), R"(
> send
log "No write property on TX characteristic, 0.")" +
                                      kFromScanToPlug +
                                      R"(* central#1 didDisconnectPeripheral "TQM_HOLV-1"
log "BLE Disconnected"
receiver plugChangedStatus false
> send
peripheral "TQM_HOLV-1" writeValue <bb010300 01b17e20 37> to BA821001-3B5B-4654-85FE-E998B123ADEA type 0
log "[TX BLE] <bb010300 01b17e20 37>"
> close
central#1 cancelPeripheralConnection "TQM_HOLV-1"
central#1 stopScan
receiver plugChangedStatus false
)");
}

TEST_F(FailedTraffic, WithNobodyWhoListensIsTheSameConversationWithoutCallbacks) {
  const Reader reader = standardReader();
  manager->setDelegate(nullptr);
  manager->setRcpReceiverDelegate(nullptr);
  fromScanToPlug(reader);
  platform.didUpdateValue(reader.peripheral, reader.rx, kFrame);
  closeAndLoseTheLink(reader);
  std::string expected =
      kFromScanToPlug +
      R"(* "TQM_HOLV-1" didUpdateValueForCharacteristic BA821002-3B5B-4654-85FE-E998B123ADEA <bb010300 01b17e20 37>
log "[RX BLE] <bb010300 01b17e20 37>"
dispatch_sync priority 2
dispatch_sync priority 2
)" + kClosed;
  for (const std::string_view callback :
       {"delegate scanBleStatus 0\n", "delegate scanningBleDeive \"TQM_HOLV-1\"\n",
        "at 2 s\nreceiver plugChangedStatus true\n", "receiver plugChangedStatus false\n",
        "receiver plugChangedStatus false\n"}) {
    const auto at = expected.find(callback);
    ASSERT_NE(at, std::string::npos) << callback;
    expected.erase(at, callback.size());
  }
  // What comes after the plugged report that nobody heard is the first thing at that time.
  const auto value = expected.find("* \"TQM_HOLV-1\" didUpdateValue");
  expected.insert(value, "at 2 s\n");
  EXPECT_EQ(platform.takeTimed(), expected);
}

}  // namespace
}  // namespace kestrin::test
