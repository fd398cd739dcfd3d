// Whole conversations with readers of both families, from the scan to the end, as one literal
// transcript each; and what becomes of one without a radio.
#include "link/ConversationTest.h"

namespace kestrin::test {
namespace {

class Conversation : public ConversationTest {};

TEST_F(Conversation, WithAStandardReader) {
  const Reader reader = standardReader("R7ZTM 0042");
  scanBLE();
  platform.didUpdateState(5);
  platform.didDiscover(platform.peripheral("Headset"));
  platform.didDiscover(reader.peripheral);
  connectBLE(reader.peripheral);
  platform.run(0.75);
  platform.didConnect(reader.peripheral);
  platform.didDiscoverServices(reader.peripheral, {reader.service});
  platform.didDiscoverCharacteristics(reader.peripheral, reader.service, {reader.tx, reader.rx});
  platform.didUpdateNotificationState(reader.peripheral, reader.rx);
  platform.run(0.75);
  platform.didUpdateValue(reader.peripheral, reader.rx,
                          NSData{0xBB, 0x01, 0x03, 0x00, 0x01, 0xB1, 0x7E, 0x20, 0x37});
  platform.run(1.5);
  application("send", [&] {
    manager->send(NSData{0xBB, 0x00, 0x22, 0x00, 0x0D, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06,
                         0x07, 0x08, 0x09, 0x0A, 0x0B, 0x0C, 0x0D, 0x7E, 0x12, 0x34});
  });
  close();
  platform.didDisconnect(reader.peripheral);
  platform.run(3600.0);
  EXPECT_EQ(platform.takeTimed(), R"(
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
* central#1 didDiscoverPeripheral "R7ZTM 0042"
log "DiscoverPeripheral  R7ZTM 0042"
delegate scanningBleDeive "R7ZTM 0042"
> connectBLE
central#1 stopScan
peripheral "R7ZTM 0042" setDelegate manager#1
central#1 connectPeripheral "R7ZTM 0042" options (absent)
at 0.75 s
* central#1 didConnectPeripheral "R7ZTM 0042"
log "BLE Connected"
peripheral "R7ZTM 0042" discoverServices [BA821000-3B5B-4654-85FE-E998B123ADEA]
* "R7ZTM 0042" didDiscoverServices
log "Service id : BA821000-3B5B-4654-85FE-E998B123ADEA"
log "Service Description : <service BA821000-3B5B-4654-85FE-E998B123ADEA>"
log "Found correct service"
peripheral "R7ZTM 0042" discoverCharacteristics [BA821000-3B5B-4654-85FE-E998B123ADEA BA821001-3B5B-4654-85FE-E998B123ADEA BA821002-3B5B-4654-85FE-E998B123ADEA] forService BA821000-3B5B-4654-85FE-E998B123ADEA
* "R7ZTM 0042" didDiscoverCharacteristicsForService BA821000-3B5B-4654-85FE-E998B123ADEA
log "Found TX characteristic"
log "Found RX characteristic"
peripheral "R7ZTM 0042" setNotifyValue true for BA821002-3B5B-4654-85FE-E998B123ADEA
log "Found RX - didDiscoverCharacteristicsForService"
cancel p_getReaderInfo on manager#1
perform p_getReaderInfo on manager#1 after 0.5
cancel p_pluggedEvent on manager#1
perform p_pluggedEvent on manager#1 after 2
* "R7ZTM 0042" didUpdateNotificationStateForCharacteristic BA821002-3B5B-4654-85FE-E998B123ADEA
at 1.25 s
log "==========get Reader Info=============="
peripheral "R7ZTM 0042" writeValue <bb000300 01b17e65 97> to BA821001-3B5B-4654-85FE-E998B123ADEA type 0
log "[TX BLE] <bb000300 01b17e65 97>"
at 1.5 s
* "R7ZTM 0042" didUpdateValueForCharacteristic BA821002-3B5B-4654-85FE-E998B123ADEA <bb010300 01b17e20 37>
log "[RX BLE] <bb010300 01b17e20 37>"
dispatch_sync priority 2
dispatch_sync priority 2
receiver dispatchRcpFrmReader <bb010300 01b17e20 37>
at 2.75 s
receiver plugChangedStatus true
at 3 s
> send
peripheral "R7ZTM 0042" writeValue <bb002200 0d010203 04050607 08090a0b 0c0d7e12> to BA821001-3B5B-4654-85FE-E998B123ADEA type 0
log "[TX BLE] <bb002200 0d010203 04050607 08090a0b 0c0d7e12>"
sleep 0.05
at 3.05 s
peripheral "R7ZTM 0042" writeValue <34> to BA821001-3B5B-4654-85FE-E998B123ADEA type 0
log "[TX BLE] <34>"
> close
central#1 cancelPeripheralConnection "R7ZTM 0042"
central#1 stopScan
receiver plugChangedStatus false
* central#1 didDisconnectPeripheral "R7ZTM 0042"
log "BLE Disconnected"
receiver plugChangedStatus false
)");
}

TEST_F(Conversation, WithAKvrReaderOfSeveralServices) {
  const Reader reader = kvrReader("KVR-Q62T 0012");
  const auto information = serviceOf("180A");
  const auto manufacturer = characteristicOf("2A29", 0x02);
  scanBLE();
  platform.didUpdateState(5);
  platform.didDiscover(reader.peripheral);
  connectBLE(reader.peripheral);
  platform.didConnect(reader.peripheral);
  platform.didDiscoverServices(reader.peripheral, {information, reader.service});
  platform.didDiscoverCharacteristics(reader.peripheral, information, {manufacturer});
  platform.run(0.25);
  platform.didUpdateValue(reader.peripheral, manufacturer, NSData{'N', 'O', 'V', 'A'});
  platform.didDiscoverCharacteristics(reader.peripheral, reader.service, {reader.rx, reader.tx});
  platform.didUpdateNotificationState(reader.peripheral, reader.rx);
  platform.didUpdateNotificationState(reader.peripheral, reader.tx, kError);
  platform.run(2.0);
  application("send", [&] { manager->send(NSData{0xBB, 0x00, 0x03}); });
  platform.didUpdateValue(reader.peripheral, reader.rx, NSData{0xBB, 0x01, 0x03, 0x00});
  platform.didUpdateValue(reader.peripheral, reader.tx, NSData{0x01, 0xB1});
  platform.didDisconnect(reader.peripheral, kError);
  platform.run(3600.0);
  EXPECT_EQ(platform.takeTimed(), R"(
> scanBLE
delegate scanBleStatus 0
central#1 initWithDelegate manager#1 queue (absent)
central#1 scanForPeripheralsWithServices (absent) options (absent)
* central#1 didUpdateState 5
log " CBManager is powered on"
log "start San"
central#1 scanForPeripheralsWithServices (absent) options (absent)
* central#1 didDiscoverPeripheral "KVR-Q62T 0012"
log "DiscoverPeripheral  KVR-Q62T 0012"
delegate scanningBleDeive "KVR-Q62T 0012"
> connectBLE
central#1 stopScan
peripheral "KVR-Q62T 0012" setDelegate manager#1
central#1 connectPeripheral "KVR-Q62T 0012" options (absent)
* central#1 didConnectPeripheral "KVR-Q62T 0012"
log "BLE Connected"
peripheral "KVR-Q62T 0012" discoverServices (absent)
* "KVR-Q62T 0012" didDiscoverServices
log "searching : 180A"
peripheral "KVR-Q62T 0012" discoverCharacteristics (absent) forService 180A
log "searching : FFF0"
peripheral "KVR-Q62T 0012" discoverCharacteristics (absent) forService FFF0
* "KVR-Q62T 0012" didDiscoverCharacteristicsForService 180A
peripheral "KVR-Q62T 0012" readValue of 2A29
cancel p_pluggedEvent on manager#1
perform p_pluggedEvent on manager#1 after 2
at 0.25 s
* "KVR-Q62T 0012" didUpdateValueForCharacteristic 2A29 <4e4f5641>
log "BLE_D5_NOVA_Manufacturer_Name : NOVA"
* "KVR-Q62T 0012" didDiscoverCharacteristicsForService FFF0
peripheral "KVR-Q62T 0012" readValue of 2A29
peripheral "KVR-Q62T 0012" setNotifyValue true for FFF1
peripheral "KVR-Q62T 0012" setNotifyValue true for FFF2
log "Found TX - didDiscoverCharacteristicsForService"
cancel p_pluggedEvent on manager#1
perform p_pluggedEvent on manager#1 after 2
* "KVR-Q62T 0012" didUpdateNotificationStateForCharacteristic FFF1
* "KVR-Q62T 0012" didUpdateNotificationStateForCharacteristic FFF2 error Error Domain=CBATTErrorDomain Code=14 "Unlikely Error"
log "[ERROR]: Unlikely Error"
at 2.25 s
receiver plugChangedStatus true
> send
peripheral "KVR-Q62T 0012" writeValue <bb0003> to FFF2 type 0
log "[TX BLE] <bb0003>"
* "KVR-Q62T 0012" didUpdateValueForCharacteristic FFF1 <bb010300>
receiver dispatchRcpFrmReader <bb010300>
* "KVR-Q62T 0012" didUpdateValueForCharacteristic FFF2 <01b1>
receiver dispatchRcpFrmReader <01b1>
* central#1 didDisconnectPeripheral "KVR-Q62T 0012" error Error Domain=CBATTErrorDomain Code=14 "Unlikely Error"
log "BLE Disconnected"
receiver plugChangedStatus false
)");
}

TEST_F(Conversation, WithARadioThatCanNotBeUsedIsAStatusAndAtMostALineOfTheLog) {
  const std::pair<std::int64_t, std::string> kStates[] = {
      {0, "log \" CBManager state is unknown\"\n"},
      {1, "log \" CBManager hardware is resetting\"\n"},
      {2, "log \" CBManager hardware is unsupported\"\n"},
      {3, "log \" CBManager state is unauthorized\"\n"},
      {4, "log \" CBManager is powered off\"\n"},
      {6, ""},
  };
  for (const auto& [state, line] : kStates) {
    RecordingPlatform other;
    const auto one = other.makeManager();
    const auto listener = std::make_shared<RecordingDelegate>(other);
    const auto hearer = std::make_shared<RecordingReceiver>(other);
    one->setDelegate(listener);
    one->setRcpReceiverDelegate(hearer);
    other.take();
    EXPECT_TRUE(one->scanBLE());
    other.didUpdateState(state);
    other.run(3600.0);
    one->close();
    EXPECT_EQ(other.takeTimed(), R"(
delegate scanBleStatus 0
central#1 initWithDelegate manager#1 queue (absent)
central#1 scanForPeripheralsWithServices (absent) options (absent)
* central#1 didUpdateState )" + std::to_string(state) +
                                     "\n" + line + R"(at 3600 s
central#1 stopScan
receiver plugChangedStatus false
)");
  }
}

TEST_F(Conversation, WithARadioThatIsOffStartsWhenItComesOn) {
  scanBLE();
  platform.didUpdateState(4);
  platform.run(60.0);
  platform.didUpdateState(5);
  close();
  EXPECT_EQ(platform.takeTimed(), R"(
> scanBLE
delegate scanBleStatus 0
central#1 initWithDelegate manager#1 queue (absent)
central#1 scanForPeripheralsWithServices (absent) options (absent)
* central#1 didUpdateState 4
log " CBManager is powered off"
at 60 s
* central#1 didUpdateState 5
log " CBManager is powered on"
log "start San"
central#1 scanForPeripheralsWithServices (absent) options (absent)
> close
central#1 stopScan
receiver plugChangedStatus false
)");
}

TEST_F(Conversation, ThatScansAgainWhileConnectedHearsOfTheLostLinkByNobody) {
  const Reader reader = standardReader();
  fromScanToPlug(reader);
  scanBLE();
  EXPECT_TRUE(manager->open());
  // The old central manager is gone, so that its last link's end is reported to nobody; the new one
  // connects again.
  connectBLE(reader.peripheral);
  platform.didConnect(reader.peripheral);
  close();
  platform.didDisconnect(reader.peripheral);
  EXPECT_EQ(platform.takeTimed(), kFromScanToPlug + R"(> scanBLE
delegate scanBleStatus 0
central#1 cancelPeripheralConnection "TQM_HOLV-1"
central#1 stopScan
central#2 initWithDelegate manager#1 queue (absent)
central#1 released
central#2 scanForPeripheralsWithServices (absent) options (absent)
> connectBLE
central#2 stopScan
peripheral "TQM_HOLV-1" setDelegate manager#1
central#2 connectPeripheral "TQM_HOLV-1" options (absent)
* central#2 didConnectPeripheral "TQM_HOLV-1"
log "BLE Connected"
peripheral "TQM_HOLV-1" discoverServices [BA821000-3B5B-4654-85FE-E998B123ADEA]
> close
central#2 cancelPeripheralConnection "TQM_HOLV-1"
central#2 stopScan
receiver plugChangedStatus false
* central#2 didDisconnectPeripheral "TQM_HOLV-1"
log "BLE Disconnected"
receiver plugChangedStatus false
)");
}

}  // namespace
}  // namespace kestrin::test
