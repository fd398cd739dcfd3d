// Connection: from a chosen reader to a plugged-in one, and its end.
#include "KestrinBLESDK/KestrinBleMgr.h"
#include "KestrinBLESDK/link/RadioMistakes.h"
#include "KestrinBLESDK/link/ReaderLayout.h"
#include "KestrinBLESDK/platform/NSString.h"

namespace kestrin {
namespace {

/// Asks for the reader's information. Constant, its CRC included.
constexpr std::uint8_t kGetReaderInfo[] = {0xBB, 0x00, 0x03, 0x00, 0x01, 0xB1, 0x7E, 0x65, 0x97};

constexpr double kReaderInfoDelay = 0.5;  // Seconds after the last characteristic report.
constexpr double kPluggedDelay = 2.0;     // Likewise.

CBUUID uuid(std::string_view text) { return *CBUUID::UUIDWithString(text); }

bool isKVRReader(const CBPeripheral& peripheral) {
  return hasPrefix(peripheral.name(), reader::kKVRNamePrefix);
}

template <class T>
std::vector<std::shared_ptr<T>> orNone(std::optional<std::vector<std::shared_ptr<T>>> list) {
  return list ? std::move(*list) : std::vector<std::shared_ptr<T>>();
}

}  // namespace

void KestrinBleMgr::connectBLE(const std::shared_ptr<CBPeripheral>& peripheral) noexcept {
  // Not by `stopSacnBLE`: the scan delegate is not told.
  if (centralManager) centralManager->stopScan();
  discoveredPeripheral = peripheral;
  if (discoveredPeripheral) {
    discoveredPeripheral->setDelegate(
        std::shared_ptr<CBPeripheralDelegate>(shared_from_this(), this));
  }
  if (centralManager) {
    centralManager->connectPeripheral_options(discoveredPeripheral, std::nullopt);
  }
}

void KestrinBleMgr::centralManager_didConnectPeripheral(
    const std::shared_ptr<CBCentralManager>& /*central*/,
    const std::shared_ptr<CBPeripheral>& peripheral) noexcept {
  if (!hasPeripheral(peripheral)) return;
  log("BLE Connected");
  isConnected = true;
  std::optional<std::vector<CBUUID>> wanted;
  if (!isKVRReader(*peripheral)) wanted = {uuid(reader::kStandardService)};
  if (discoveredPeripheral) discoveredPeripheral->discoverServices(wanted);
}

void KestrinBleMgr::peripheral_didDiscoverServices(const std::shared_ptr<CBPeripheral>& peripheral,
                                                   const std::optional<NSError>& error) noexcept {
  if (error) {
    log("Error discovering services: %@", *error);
    return;
  }
  if (!hasPeripheral(peripheral)) return;
  const bool kvr = isKVRReader(*peripheral);
  for (const auto& service : orNone(peripheral->services())) {
    if (!hasService(service)) continue;
    if (kvr) {
      log("searching : %@", service->UUID());
      peripheral->discoverCharacteristics_forService(std::nullopt, service);
      continue;
    }
    log("Service id : %@", service->UUID().UUIDString());
    log("Service Description : %@", service->debugDescription());
    if (!service->UUID().hasUUIDString(reader::kStandardService)) continue;
    log("Found correct service");
    if (!discoveredPeripheral) continue;
    // The service itself leads the list of its characteristics, by design.
    discoveredPeripheral->discoverCharacteristics_forService(
        {{uuid(reader::kStandardService), uuid(reader::kStandardTx), uuid(reader::kStandardRx)}},
        service);
  }
}

void KestrinBleMgr::peripheral_didDiscoverCharacteristicsForService_error(
    const std::shared_ptr<CBPeripheral>& peripheral, const std::shared_ptr<CBService>& service,
    const std::optional<NSError>& error) noexcept {
  if (error) {
    log("Error discovering characteristics: %@", *error);
    return;
  }
  if (!hasPeripheral(peripheral)) return;
  if (isKVRReader(*peripheral)) {
    findCharacteristicsKVR(peripheral);
  } else {
    if (!hasService(service)) return;
    findCharacteristicsStandard(service);
    isConnected = true;
    rearm(selectorOf<&KestrinBleMgr::p_getReaderInfo>("p_getReaderInfo"), kReaderInfoDelay);
  }
  rearm(selectorOf<&KestrinBleMgr::p_pluggedEvent>("p_pluggedEvent"), kPluggedDelay);
}

void KestrinBleMgr::findCharacteristicsKVR(
    const std::shared_ptr<CBPeripheral>& peripheral) noexcept {
  // Every report walks all that is known so far, so what it asks for is asked again each time.
  for (const auto& service : orNone(peripheral->services())) {
    if (!hasService(service)) continue;
    for (const auto& found : orNone(service->characteristics())) {
      if (hasCharacteristic(found)) takeCharacteristicKVR(peripheral, found);
    }
  }
}

void KestrinBleMgr::takeCharacteristicKVR(const std::shared_ptr<CBPeripheral>& peripheral,
                                          const std::shared_ptr<CBCharacteristic>& found) noexcept {
  const CBUUID foundUUID = found->UUID();
  if (foundUUID.isEqual(uuid(reader::kKVRRx))) {
    peripheral->setNotifyValue_forCharacteristic(true, found);
    rxCharacteristic = found;
    if (bothCharacteristicsFound()) log("Found TX - didDiscoverCharacteristicsForService");
  } else if (foundUUID.hasUUIDString(reader::kManufacturerName)) {
    peripheral->readValueForCharacteristic(found);
  } else if (foundUUID.isEqual(uuid(reader::kKVRTx))) {
    peripheral->setNotifyValue_forCharacteristic(true, found);
    txCharacteristic = found;
    if (bothCharacteristicsFound()) log("Found TX - didDiscoverCharacteristicsForService");
  }
}

void KestrinBleMgr::findCharacteristicsStandard(
    const std::shared_ptr<CBService>& service) noexcept {
  for (const auto& found : orNone(service->characteristics())) {
    if (hasCharacteristic(found)) takeCharacteristicStandard(found);
  }
}

void KestrinBleMgr::takeCharacteristicStandard(
    const std::shared_ptr<CBCharacteristic>& found) noexcept {
  const CBUUID foundUUID = found->UUID();
  if (foundUUID.hasUUIDString(reader::kStandardRx)) {
    log("Found RX characteristic");
    rxCharacteristic = found;
    if (discoveredPeripheral) {
      discoveredPeripheral->setNotifyValue_forCharacteristic(true, rxCharacteristic);
    }
    if (bothCharacteristicsFound()) log("Found RX - didDiscoverCharacteristicsForService");
  } else if (foundUUID.hasUUIDString(reader::kStandardTx)) {
    log("Found TX characteristic");
    txCharacteristic = found;
    if (bothCharacteristicsFound()) log("Found TX - didDiscoverCharacteristicsForService");
  } else if (foundUUID.hasUUIDString(reader::kHardwareRevision)) {
    log("Found Hardware Revision String characteristic");
    if (discoveredPeripheral) discoveredPeripheral->readValueForCharacteristic(found);
  }
}

bool KestrinBleMgr::bothCharacteristicsFound() const noexcept {
  return rxCharacteristic && txCharacteristic;
}

void KestrinBleMgr::p_getReaderInfo() noexcept {
  log("==========get Reader Info==============");
  send(NSData::dataWithBytes_length(kGetReaderInfo, sizeof kGetReaderInfo));
}

void KestrinBleMgr::p_pluggedEvent() noexcept { tellPlugged(isConnected); }

void KestrinBleMgr::centralManager_didDisconnectPeripheral_error(
    const std::shared_ptr<CBCentralManager>& /*central*/,
    const std::shared_ptr<CBPeripheral>& /*peripheral*/,
    const std::optional<NSError>& /*error*/) noexcept {
  log("BLE Disconnected");
  isConnected = false;
  tellPlugged(isConnected);
}

void KestrinBleMgr::p_disconnectBLE() noexcept {
  if (centralManager) {
    if (discoveredPeripheral) centralManager->cancelPeripheralConnection(discoveredPeripheral);
    centralManager->stopScan();
  }
  tellPlugged(false);
}

void KestrinBleMgr::tellPlugged(bool plugged) noexcept {
  if (const auto receiver = rcpReceiverDelegate();
      respondsToSelector(receiver.get(), Selector::plugChangedStatus)) {
    receiver->plugChangedStatus(plugged);
  }
}

bool KestrinBleMgr::p_isConnectedBLE() const noexcept {
  log("isConnected %hhd", isConnected);
  return isConnected;
}

}  // namespace kestrin
