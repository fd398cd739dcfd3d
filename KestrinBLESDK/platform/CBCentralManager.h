/// \class kestrin::CBCentralManager
/// The central role of a radio: its state, scanning and links.
///
/// What every radio promises:
/// - A scan is honoured only when powered on. A peripheral is reported once per scan request and
///   again only when its name changes. A second request while scanning starts that count again.
/// - Every event comes on the main run loop, one at a time, and never from inside a request. The
///   first is a state report.
/// - Requests made before the object was dropped are carried out; a dropped one delivers no further
///   event, and lets go of the links and attempts that are still its own.
/// - Connecting never times out: a failed attempt is repeated inside the radio, with a growing
///   pause, until it succeeds or is cancelled. It waits out a radio that is switched off and finds
///   a device that appears later.
/// - `didConnectPeripheral` comes at the first evidence of the link. Every link ends with exactly
///   one disconnection report, and so does a cancelled pending attempt; cancelling neither reports
///   nothing.
///
/// Threads: called on the main run loop.
///
/// Lifetime: the delegate is held weakly.
///
/// Errors: reported by events. Absent peripherals and those of another radio are ignored.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "KestrinBLESDK/platform/CBPeripheral.h"
#include "KestrinBLESDK/platform/CBUUID.h"
#include "KestrinBLESDK/platform/Export.h"
#include "KestrinBLESDK/platform/NSError.h"

namespace kestrin {
/// \addtogroup platform
/// @{

class CBCentralManager;

/// The radio's state. Values above 5 may be added by a radio and mean nothing to this library.
enum class CBManagerState : std::int64_t {
  unknown = 0,       ///< Not reported yet.
  resetting = 1,     ///< What the radio needs has gone and is waited for.
  unsupported = 2,   ///< This machine has no radio that can be used.
  unauthorized = 3,  ///< This user may not use the radio.
  poweredOff = 4,    ///< The radio is switched off.
  poweredOn = 5,     ///< Scans and links work.
};

/// What a sighting carried besides the name that `CBPeripheral::name` returns.
struct CBAdvertisementData {
  /// The name that came with the sighting, in the advertisement or the scan response; absent when
  /// none did. The real radio gives the one that its daemon knows, which may be an earlier one.
  std::optional<std::string> localName;
  /// The services that it advertised, as far as the radio knows them.
  std::vector<CBUUID> serviceUUIDs;
};

/// Options of a scan. None is defined yet; this library always passes none.
struct CBScanOptions {};
/// Options of a connection. None is defined yet; this library always passes none.
struct CBConnectOptions {};

/// The events of a central manager. Every handler is optional.
class KESTRIN_EXPORT CBCentralManagerDelegate {
 public:
  virtual ~CBCentralManagerDelegate();
  /// `centralManagerDidUpdateState:` The state as it is when the report is made, and each change.
  virtual void centralManagerDidUpdateState(
      const std::shared_ptr<CBCentralManager>& central) noexcept;
  /// `centralManager:didDiscoverPeripheral:advertisementData:RSSI:` A sighting; `RSSI` in
  /// dBm, from -127 to 20, or 127 when it is not available (Bluetooth Core, Vol 4, Part E,
  /// 7.7.65.2).
  virtual void centralManager_didDiscoverPeripheral_advertisementData_RSSI(
      const std::shared_ptr<CBCentralManager>& central,
      const std::shared_ptr<CBPeripheral>& peripheral, const CBAdvertisementData& advertisementData,
      int RSSI) noexcept;
  /// `centralManager:didConnectPeripheral:` The link is up.
  virtual void centralManager_didConnectPeripheral(
      const std::shared_ptr<CBCentralManager>& central,
      const std::shared_ptr<CBPeripheral>& peripheral) noexcept;
  /// `centralManager:didDisconnectPeripheral:error:` The link or the attempt has ended; `error` is
  /// absent when that was asked for.
  virtual void centralManager_didDisconnectPeripheral_error(
      const std::shared_ptr<CBCentralManager>& central,
      const std::shared_ptr<CBPeripheral>& peripheral,
      const std::optional<NSError>& error) noexcept;
};

/// The peripheral role's one event. The library declares the role without using it.
class KESTRIN_EXPORT CBPeripheralManagerDelegate {
 public:
  virtual ~CBPeripheralManagerDelegate();
  /// `peripheralManagerDidUpdateState:` `peripheral` is the peripheral manager, of no type here.
  virtual void peripheralManagerDidUpdateState(const std::shared_ptr<void>& peripheral) noexcept;
};

class KESTRIN_EXPORT CBCentralManager {
 public:
  virtual ~CBCentralManager();
  /// `state` The radio's state as last reported; `unknown` before the first report.
  [[nodiscard]] virtual CBManagerState state() const = 0;
  /// `scanForPeripheralsWithServices:options:` Reports every advertising peripheral, or those that
  /// advertise one of the listed services. Not honoured unless powered on.
  virtual void scanForPeripheralsWithServices_options(
      const std::optional<std::vector<CBUUID>>& services,
      const std::optional<CBScanOptions>& options) = 0;
  /// `stopScan` Stops scanning; harmless when not scanning.
  virtual void stopScan() = 0;
  /// `connectPeripheral:options:` Connects, however long it takes.
  virtual void connectPeripheral_options(const std::shared_ptr<CBPeripheral>& peripheral,
                                         const std::optional<CBConnectOptions>& options) = 0;
  /// `cancelPeripheralConnection:` Drops the link or abandons the attempt.
  virtual void cancelPeripheralConnection(const std::shared_ptr<CBPeripheral>& peripheral) = 0;
};

/// @}

}  // namespace kestrin
