// What the tests of whole conversations share: the application's side with its lines, and the
// beginnings and ends that many conversations have, as literal transcripts.
//
// Lines that begin with `>` are what the application does, with `*` what the radio reports; the
// others are what the manager asks for, tells and logs.
//
// Threads: the test's own. Lifetime: one test. Errors: none.
#pragma once

#include <string>

#include "link/LinkTest.h"

namespace kestrin::test {

class ConversationTest : public LinkTest {
 protected:
  template <class Work>
  void application(const std::string& line, Work work) {
    platform.transcript().add("> " + line);
    work();
  }
  void scanBLE() {
    application("scanBLE", [this] { manager->scanBLE(); });
  }
  void connectBLE(const std::shared_ptr<RecordingPeripheral>& peripheral) {
    application("connectBLE", [&] { manager->connectBLE(peripheral); });
  }
  void send(const std::optional<NSData>& frame, bool expected) {
    application("send", [&] { EXPECT_EQ(manager->send(frame), expected); });
  }
  void close() {
    application("close", [this] { manager->close(); });
  }
  void closeAndLoseTheLink(const Reader& reader) {
    close();
    platform.didDisconnect(reader.peripheral);
  }

  void fromScanToConnect(const Reader& reader) {
    scanBLE();
    platform.didUpdateState(5);
    platform.didDiscover(reader.peripheral);
    connectBLE(reader.peripheral);
  }
  void fromScanToLink(const Reader& reader) {
    fromScanToConnect(reader);
    platform.didConnect(reader.peripheral);
  }
  void fromScanToServices(const Reader& reader) {
    fromScanToLink(reader);
    platform.didDiscoverServices(reader.peripheral, {reader.service});
  }
  /// Both delays are over by the end, so that the reader is plugged in.
  void fromScanToPlug(const Reader& reader) {
    fromScanToServices(reader);
    platform.didDiscoverCharacteristics(reader.peripheral, reader.service, {reader.rx, reader.tx});
    platform.run(2.0);
  }
};

/// With the reader "TQM_HOLV-1", each up to where the member function of that name ends.
inline const std::string kFromScanToConnect = R"(
> scanBLE
delegate scanBleStatus 0
central#1 initWithDelegate manager#1 queue (absent)
central#1 scanForPeripheralsWithServices (absent) options (absent)
* central#1 didUpdateState 5
log " CBManager is powered on"
log "start San"
central#1 scanForPeripheralsWithServices (absent) options (absent)
* central#1 didDiscoverPeripheral "TQM_HOLV-1"
log "DiscoverPeripheral  TQM_HOLV-1"
delegate scanningBleDeive "TQM_HOLV-1"
> connectBLE
central#1 stopScan
peripheral "TQM_HOLV-1" setDelegate manager#1
central#1 connectPeripheral "TQM_HOLV-1" options (absent)
)";
inline const std::string kFromScanToLink =
    kFromScanToConnect + R"(* central#1 didConnectPeripheral "TQM_HOLV-1"
log "BLE Connected"
peripheral "TQM_HOLV-1" discoverServices [BA821000-3B5B-4654-85FE-E998B123ADEA]
)";
inline const std::string kFromScanToServices =
    kFromScanToLink + R"(* "TQM_HOLV-1" didDiscoverServices
log "Service id : BA821000-3B5B-4654-85FE-E998B123ADEA"
log "Service Description : <service BA821000-3B5B-4654-85FE-E998B123ADEA>"
log "Found correct service"
peripheral "TQM_HOLV-1" discoverCharacteristics [BA821000-3B5B-4654-85FE-E998B123ADEA BA821001-3B5B-4654-85FE-E998B123ADEA BA821002-3B5B-4654-85FE-E998B123ADEA] forService BA821000-3B5B-4654-85FE-E998B123ADEA
)";
inline const std::string kFromScanToPlug =
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
peripheral "TQM_HOLV-1" writeValue <bb000300 01b17e65 97> to BA821001-3B5B-4654-85FE-E998B123ADEA type 0
log "[TX BLE] <bb000300 01b17e65 97>"
at 2 s
receiver plugChangedStatus true
)";
inline const std::string kClosed = R"(> close
central#1 cancelPeripheralConnection "TQM_HOLV-1"
central#1 stopScan
receiver plugChangedStatus false
* central#1 didDisconnectPeripheral "TQM_HOLV-1"
log "BLE Disconnected"
receiver plugChangedStatus false
)";

/// The same with the reader "KVR-Q62T 0012".
inline const std::string kKvrFromScanToLink = R"(
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
)";
inline const std::string kKvrFromScanToServices =
    kKvrFromScanToLink + R"(* "KVR-Q62T 0012" didDiscoverServices
log "searching : FFF0"
peripheral "KVR-Q62T 0012" discoverCharacteristics (absent) forService FFF0
)";
inline const std::string kKvrFromScanToPlug =
    kKvrFromScanToServices + R"(* "KVR-Q62T 0012" didDiscoverCharacteristicsForService FFF0
peripheral "KVR-Q62T 0012" setNotifyValue true for FFF1
peripheral "KVR-Q62T 0012" setNotifyValue true for FFF2
log "Found TX - didDiscoverCharacteristicsForService"
cancel p_pluggedEvent on manager#1
perform p_pluggedEvent on manager#1 after 2
at 2 s
receiver plugChangedStatus true
)";
inline const std::string kKvrClosed = R"(> close
central#1 cancelPeripheralConnection "KVR-Q62T 0012"
central#1 stopScan
receiver plugChangedStatus false
* central#1 didDisconnectPeripheral "KVR-Q62T 0012"
log "BLE Disconnected"
receiver plugChangedStatus false
)";

}  // namespace kestrin::test
