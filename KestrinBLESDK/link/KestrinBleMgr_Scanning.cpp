// Scanning: the radio's state, discovered peripherals and the reader-name filter.
#include <string>
#include <string_view>

#include "KestrinBLESDK/KestrinBleMgr.h"
#include "KestrinBLESDK/link/RadioMistakes.h"
#include "KestrinBLESDK/platform/NSString.h"

namespace kestrin {

void KestrinBleMgr::p_initCentralManager() noexcept {
  peripheralList.emplace();
  peripheralNameList.emplace();
  const std::shared_ptr<CBCentralManagerDelegate> self(shared_from_this(), this);
  centralManager = platform_.radio->initWithDelegate_queue(self, nullptr);
}

bool KestrinBleMgr::scanBLE() noexcept {
  return keptAlive([this] {
    if (const auto listener = delegate();
        listener && respondsToSelector(listener.get(), Selector::scanBleStatus)) {
      listener->scanBleStatus(0);
    }
    if (discoveredPeripheral && centralManager) {
      centralManager->cancelPeripheralConnection(discoveredPeripheral);
    }
    if (centralManager) centralManager->stopScan();
    p_initCentralManager();
    // The radio's state is not known yet, so this request is not honoured; the powered-on report
    // starts the scan. It stays as a second start.
    startScan();
    return true;
  });
}

void KestrinBleMgr::startScan() noexcept {
  if (centralManager) {
    centralManager->scanForPeripheralsWithServices_options(std::nullopt, std::nullopt);
  }
}

void KestrinBleMgr::stopSacnBLE() noexcept {
  keptAlive([this] {
    if (const auto listener = delegate();
        respondsToSelector(listener.get(), Selector::scanBleStatus) && listener) {
      listener->scanBleStatus(1);
    }
    if (centralManager) centralManager->stopScan();
  });
}

void KestrinBleMgr::centralManagerDidUpdateState(
    const std::shared_ptr<CBCentralManager>& central) noexcept {
  if (!hasCentralManager(central)) return;
  switch (central->state()) {
    case CBManagerState::unknown:
      log(" CBManager state is unknown");
      break;
    case CBManagerState::resetting:
      log(" CBManager hardware is resetting");
      break;
    case CBManagerState::unsupported:
      log(" CBManager hardware is unsupported");
      break;
    case CBManagerState::unauthorized:
      log(" CBManager state is unauthorized");
      break;
    case CBManagerState::poweredOff:
      log(" CBManager is powered off");
      break;
    case CBManagerState::poweredOn:
      log(" CBManager is powered on");
      log("start San");
      startScan();
      break;
  }
}

void KestrinBleMgr::centralManager_didDiscoverPeripheral_advertisementData_RSSI(
    const std::shared_ptr<CBCentralManager>& /*central*/,
    const std::shared_ptr<CBPeripheral>& peripheral,
    const CBAdvertisementData& /*advertisementData*/, int /*RSSI*/) noexcept {
  if (!hasPeripheral(peripheral)) return;
  log("DiscoverPeripheral  %@", peripheral->name());
  // Only the reader accepted last counts as known: one that is reported again after another was
  // accepted is accepted again.
  if (peripheral == discoveredPeripheral) return;
  if (!peripheral->name()) return;
  // Each test reads the name afresh; one that has gone meanwhile holds no fragment.
  if (!p_isKVXDevice(peripheral->name().value_or(std::string()))) return;
  discoveredPeripheral = peripheral;
  if (peripheralList) peripheralList->push_back(peripheral);
  if (const auto listener = delegate();
      respondsToSelector(listener.get(), Selector::scanningBleDeive) && listener) {
    listener->scanningBleDeive(peripheral);
  }
}

bool KestrinBleMgr::p_isKVXDevice(std::string_view name) noexcept {
  // The last fragment holds the third and so decides nothing; it stays as part of the list.
  static constexpr std::string_view kFragments[] = {"TQM_HOLV", "R7ZTM", "KVR",
                                                    "417",      "58",    "KVR-Q62T"};
  for (const std::string_view fragment : kFragments) {
    if (containsString(name, fragment)) return true;
  }
  return false;
}

}  // namespace kestrin
