// The one class that tests reach the manager's inside with: its fields, its `p_` and frame
// operations, and the platform's callbacks, each under its own name. Application code has no way to
// them, and tests need no other. An event's caller holds the manager, as a radio does.
//
// Threads: the manager's.
// Lifetime: holds nothing; a reference to a field is valid as long as its manager.
// Errors: none.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "KestrinBLESDK/KestrinBleMgr.h"

namespace kestrin {

class KestrinBleMgrTestPeer {
 public:
  using Peripherals = std::vector<std::shared_ptr<CBPeripheral>>;

  /// Made as `init` makes one, but given its memory back the moment it ends.
  static std::shared_ptr<KestrinBleMgr> withMemoryOfItsOwn(const Platform& platform) {
    // NOLINTNEXTLINE(modernize-make-shared)
    return std::shared_ptr<KestrinBleMgr>(new KestrinBleMgr(KestrinBleMgr::OnlyInit(), platform));
  }

  // The fields, in their declared order.
  static std::array<std::uint8_t, 255>& _buf(KestrinBleMgr& m) { return m._buf; }
  static std::uint16_t& _bufHead(KestrinBleMgr& m) { return m._bufHead; }
  static std::shared_ptr<CBCentralManager>& centralManager(KestrinBleMgr& m) {
    return m.centralManager;
  }
  static std::shared_ptr<CBPeripheral>& discoveredPeripheral(KestrinBleMgr& m) {
    return m.discoveredPeripheral;
  }
  static std::shared_ptr<CBCharacteristic>& characteristic(KestrinBleMgr& m) {
    return m.characteristic;
  }
  static std::optional<Peripherals>& peripheralList(KestrinBleMgr& m) { return m.peripheralList; }
  static std::optional<std::vector<std::string>>& peripheralNameList(KestrinBleMgr& m) {
    return m.peripheralNameList;
  }
  static std::shared_ptr<CBCharacteristic>& rxCharacteristic(KestrinBleMgr& m) {
    return m.rxCharacteristic;
  }
  static std::shared_ptr<CBCharacteristic>& txCharacteristic(KestrinBleMgr& m) {
    return m.txCharacteristic;
  }
  static bool& isConnected(KestrinBleMgr& m) { return m.isConnected; }
  static std::optional<NSMutableData>& _mutableReceivedData(KestrinBleMgr& m) {
    return m._mutableReceivedData;
  }
  static std::weak_ptr<KestrinBLEProtocols>& _delegate(KestrinBleMgr& m) { return m._delegate; }
  static std::weak_ptr<RcpReceiver>& _rcpReceiverDelegate(KestrinBleMgr& m) {
    return m._rcpReceiverDelegate;
  }

  // Frames.
  static std::uint16_t getCrcPolynomial_acc(std::uint8_t abyte, std::uint16_t acc) {
    return KestrinBleMgr::getCrcPolynomial_acc(abyte, acc);
  }
  static void clearRcpFrmReader(RcpFrmReader* reader) { KestrinBleMgr::clearRcpFrmReader(reader); }
  static std::int32_t parseRcpFrmReader(KestrinBleMgr& m) { return m.parseRcpFrmReader(); }

  // Background.
  static void easEnterBackground(KestrinBleMgr& m) { m.easEnterBackground(); }
  static void accessoryDidDisconnect(KestrinBleMgr& m) { m.accessoryDidDisconnect(); }
  static void peripheralManagerDidUpdateState(KestrinBleMgr& m,
                                              const std::shared_ptr<void>& peripheral) {
    m.peripheralManagerDidUpdateState(peripheral);
  }

  // Scanning.
  static void p_initCentralManager(KestrinBleMgr& m) { m.p_initCentralManager(); }
  static bool p_isKVXDevice(std::string_view name) { return KestrinBleMgr::p_isKVXDevice(name); }
  static void centralManagerDidUpdateState(KestrinBleMgr& m,
                                           const std::shared_ptr<CBCentralManager>& central) {
    const auto held = m.shared_from_this();
    m.centralManagerDidUpdateState(central);
  }
  static void centralManager_didDiscoverPeripheral_advertisementData_RSSI(
      KestrinBleMgr& m, const std::shared_ptr<CBCentralManager>& central,
      const std::shared_ptr<CBPeripheral>& peripheral, const CBAdvertisementData& advertisementData,
      int RSSI) {
    const auto held = m.shared_from_this();
    m.centralManager_didDiscoverPeripheral_advertisementData_RSSI(central, peripheral,
                                                                  advertisementData, RSSI);
  }

  // Connection.
  static bool p_isConnectedBLE(const KestrinBleMgr& m) {
    const auto held = m.shared_from_this();
    return m.p_isConnectedBLE();
  }
  static void p_disconnectBLE(KestrinBleMgr& m) { m.p_disconnectBLE(); }
  static void p_getReaderInfo(KestrinBleMgr& m) {
    const auto held = m.shared_from_this();
    m.p_getReaderInfo();
  }
  static void p_pluggedEvent(KestrinBleMgr& m) {
    const auto held = m.shared_from_this();
    m.p_pluggedEvent();
  }
  static void centralManager_didConnectPeripheral(KestrinBleMgr& m,
                                                  const std::shared_ptr<CBCentralManager>& central,
                                                  const std::shared_ptr<CBPeripheral>& peripheral) {
    const auto held = m.shared_from_this();
    m.centralManager_didConnectPeripheral(central, peripheral);
  }
  static void centralManager_didDisconnectPeripheral_error(
      KestrinBleMgr& m, const std::shared_ptr<CBCentralManager>& central,
      const std::shared_ptr<CBPeripheral>& peripheral, const std::optional<NSError>& error) {
    const auto held = m.shared_from_this();
    m.centralManager_didDisconnectPeripheral_error(central, peripheral, error);
  }
  static void peripheral_didDiscoverServices(KestrinBleMgr& m,
                                             const std::shared_ptr<CBPeripheral>& peripheral,
                                             const std::optional<NSError>& error) {
    const auto held = m.shared_from_this();
    m.peripheral_didDiscoverServices(peripheral, error);
  }
  static void peripheral_didDiscoverCharacteristicsForService_error(
      KestrinBleMgr& m, const std::shared_ptr<CBPeripheral>& peripheral,
      const std::shared_ptr<CBService>& service, const std::optional<NSError>& error) {
    const auto held = m.shared_from_this();
    m.peripheral_didDiscoverCharacteristicsForService_error(peripheral, service, error);
  }

  // Writing.
  static bool p_sendDataToBLE(KestrinBleMgr& m, const std::optional<NSData>& frame) {
    return m.p_sendDataToBLE(frame);
  }

  // Values.
  static void peripheral_didUpdateValueForCharacteristic_error(
      KestrinBleMgr& m, const std::shared_ptr<CBPeripheral>& peripheral,
      const std::shared_ptr<CBCharacteristic>& updated, const std::optional<NSError>& error) {
    const auto held = m.shared_from_this();
    m.peripheral_didUpdateValueForCharacteristic_error(peripheral, updated, error);
  }
  static void peripheral_didUpdateNotificationStateForCharacteristic_error(
      KestrinBleMgr& m, const std::shared_ptr<CBPeripheral>& peripheral,
      const std::shared_ptr<CBCharacteristic>& updated, const std::optional<NSError>& error) {
    const auto held = m.shared_from_this();
    m.peripheral_didUpdateNotificationStateForCharacteristic_error(peripheral, updated, error);
  }

  // The query before each callback, what the manager runs on, and itself in its two roles.
  static bool respondsToSelector(const SelectorResponder* delegate, Selector selector) {
    return KestrinBleMgr::respondsToSelector(delegate, selector);
  }
  static const Platform& platform(const KestrinBleMgr& m) { return m.platform_; }
  static std::shared_ptr<CBCentralManagerDelegate> asCentralManagerDelegate(
      const std::shared_ptr<KestrinBleMgr>& m) {
    return {m, static_cast<CBCentralManagerDelegate*>(m.get())};
  }
  static std::shared_ptr<CBPeripheralDelegate> asPeripheralDelegate(
      const std::shared_ptr<KestrinBleMgr>& m) {
    return {m, static_cast<CBPeripheralDelegate*>(m.get())};
  }
};

}  // namespace kestrin
