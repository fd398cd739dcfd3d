// The model's events: the radio's state, discovery, the life of a link, values, delayed requests.
#include <array>

#include "model/ManagerModel.h"

namespace kestrin::test {
namespace {

constexpr std::string_view kErrorDescription =
    "Error Domain=CBATTErrorDomain Code=14 \"Unlikely Error\"";
constexpr std::string_view kErrorText = "Unlikely Error";

const std::string kStandardService(kStandardServiceText);

bool isKVXDevice(const std::string& name) {
  static constexpr std::array<std::string_view, 6> kFragments = {"TQM_HOLV", "R7ZTM", "KVR",
                                                                 "417",      "58",    "KVR-Q62T"};
  for (const std::string_view fragment : kFragments) {
    if (name.find(fragment) != std::string::npos) return true;
  }
  return false;
}

std::optional<std::string> asciiText(const std::optional<Bytes>& value) {
  if (!value) return std::nullopt;
  std::string text;
  for (const std::uint8_t byte : *value) {
    if (byte >= 0x80) return std::nullopt;
    text += static_cast<char>(byte);
  }
  return text;
}

}  // namespace

bool ModelManager::isKVR(unsigned peripheral) const {
  const auto& name = world_.peripherals[peripheral].name;
  return name && name->rfind("KVR-Q62T", 0) == 0;
}

void ModelManager::didUpdateState(std::int64_t state) {
  static constexpr std::array<std::string_view, 6> kTexts = {
      " CBManager state is unknown",        " CBManager hardware is resetting",
      " CBManager hardware is unsupported", " CBManager state is unauthorized",
      " CBManager is powered off",          " CBManager is powered on"};
  if (state > 5) return;
  world_.log(std::string(kTexts[static_cast<std::size_t>(state)]));
  if (state != 5) return;
  world_.log("start San");
  startScan();
}

void ModelManager::didDiscoverPeripheral(unsigned peripheral) {
  const auto name = world_.peripherals[peripheral].name;
  world_.log("DiscoverPeripheral  " + name.value_or("(null)"));
  if (discoveredPeripheral == peripheral) return;
  if (!name) return;
  if (!isKVXDevice(*name)) return;
  discoveredPeripheral = peripheral;
  if (peripheralList_) peripheralList_->push_back(peripheral);
  tellDevice(peripheral);
}

void ModelManager::didConnect(unsigned peripheral) {
  world_.log("BLE Connected");
  isConnected = true;
  askPeripheral(discoveredPeripheral,
                "discoverServices " +
                    (isKVR(peripheral) ? std::string("(absent)") : '[' + kStandardService + ']'));
}

void ModelManager::didDisconnect() {
  world_.log("BLE Disconnected");
  isConnected = false;
  tellPlugged(isConnected);
}

void ModelManager::didDiscoverServices(unsigned peripheral, bool error) {
  if (error) {
    world_.log("Error discovering services: " + std::string(kErrorDescription));
    return;
  }
  const auto services = world_.peripherals[peripheral].services;
  if (!services) return;
  for (const unsigned service : *services) {
    const std::string uuid(kServices[service]);
    if (isKVR(peripheral)) {
      world_.log("searching : " + uuid);
      askPeripheral(peripheral, "discoverCharacteristics (absent) forService " + uuid);
    } else {
      takeServiceStandard(service);
    }
  }
}

void ModelManager::takeServiceStandard(unsigned service) {
  const std::string uuid(kServices[service]);
  world_.log("Service id : " + uuid);
  world_.log("Service Description : <service " + uuid + ">");
  if (uuid != kStandardService) return;
  world_.log("Found correct service");
  askPeripheral(discoveredPeripheral, "discoverCharacteristics [" + kStandardService + ' ' +
                                          std::string(kStandardTxText) + ' ' +
                                          std::string(kStandardRxText) + "] forService " + uuid);
}

void ModelManager::didDiscoverCharacteristics(unsigned peripheral, unsigned service, bool error) {
  if (error) {
    world_.log("Error discovering characteristics: " + std::string(kErrorDescription));
    return;
  }
  static const std::vector<unsigned> kNone;
  if (isKVR(peripheral)) {
    for (const unsigned each : world_.peripherals[peripheral].services.value_or(kNone)) {
      for (const unsigned characteristic : world_.services[each].value_or(kNone)) {
        takeCharacteristicKVR(peripheral, characteristic);
      }
    }
  } else {
    for (const unsigned characteristic : world_.services[service].value_or(kNone)) {
      takeCharacteristicStandard(characteristic);
    }
    isConnected = true;
    world_.rearm(shared_from_this(), "p_getReaderInfo", "0.5", 500'000'000);
  }
  world_.rearm(shared_from_this(), "p_pluggedEvent", "2", 2'000'000'000);
}

void ModelManager::logBothFound(const std::string& which) {
  if (!rxCharacteristic_ || !txCharacteristic_) return;
  world_.log("Found " + which + " - didDiscoverCharacteristicsForService");
}

void ModelManager::takeCharacteristicKVR(unsigned peripheral, unsigned characteristic) {
  const std::string uuid(kCharacteristics[characteristic].canonical);
  if (uuid == "FFF1") {
    askPeripheral(peripheral, "setNotifyValue true for " + uuid);
    rxCharacteristic_ = characteristic;
    logBothFound("TX");
  } else if (uuid == "2A29") {
    askPeripheral(peripheral, "readValue of " + uuid);
  } else if (uuid == "FFF2") {
    askPeripheral(peripheral, "setNotifyValue true for " + uuid);
    txCharacteristic_ = characteristic;
    logBothFound("TX");
  }
}

void ModelManager::takeCharacteristicStandard(unsigned characteristic) {
  const std::string uuid(kCharacteristics[characteristic].canonical);
  if (uuid == kStandardRxText) {
    world_.log("Found RX characteristic");
    rxCharacteristic_ = characteristic;
    askPeripheral(discoveredPeripheral, "setNotifyValue true for " + uuid);
    logBothFound("RX");
  } else if (uuid == kStandardTxText) {
    world_.log("Found TX characteristic");
    txCharacteristic_ = characteristic;
    logBothFound("TX");
  } else if (uuid == "2A27") {
    world_.log("Found Hardware Revision String characteristic");
    askPeripheral(discoveredPeripheral, "readValue of " + uuid);
  }
}

void ModelManager::didUpdateValue(unsigned peripheral, unsigned characteristic, bool error) {
  const auto value = world_.characteristics[characteristic].value;
  if (error) {
    world_.log(" [ERROR] " + std::string(kErrorText));
  } else if (kCharacteristics[characteristic].canonical == "2A29") {
    world_.log("BLE_D5_NOVA_Manufacturer_Name : " + asciiText(value).value_or("(null)"));
  } else if (isKVR(peripheral)) {
    tellFrame(bytesText(value, "(absent)"));
  } else if (value) {
    readData(*value);
  }
}

void ModelManager::didUpdateNotificationState(unsigned characteristic, bool error) {
  if (error) world_.log("[ERROR]: " + std::string(kErrorText));
  if (const auto value = world_.characteristics[characteristic].value) readData(*value);
}

void ModelManager::perform(const std::string& operation) {
  if (operation == "accessoryDidDisconnect") {
    close();
  } else if (operation == "p_pluggedEvent") {
    tellPlugged(isConnected);
  } else {
    world_.log("==========get Reader Info==============");
    send(Bytes{0xBB, 0x00, 0x03, 0x00, 0x01, 0xB1, 0x7E, 0x65, 0x97});
  }
}

}  // namespace kestrin::test
