// What an event of a radio must have with it. One without is a mistake of the radio's: a debug
// build stops there, a release build ignores the event.
//
// Threads: pure functions. Errors: none.
#pragma once

#include <cassert>
#include <memory>

#include "KestrinBLESDK/platform/CBCentralManager.h"
#include "KestrinBLESDK/platform/CBCharacteristic.h"
#include "KestrinBLESDK/platform/CBPeripheral.h"
#include "KestrinBLESDK/platform/CBService.h"

namespace kestrin {

inline bool hasCentralManager(const std::shared_ptr<CBCentralManager>& central) noexcept {
  assert(central != nullptr && "the radio made an event without its central manager");
  return central != nullptr;
}

inline bool hasPeripheral(const std::shared_ptr<CBPeripheral>& peripheral) noexcept {
  assert(peripheral != nullptr && "the radio made an event without its peripheral");
  return peripheral != nullptr;
}

inline bool hasService(const std::shared_ptr<CBService>& service) noexcept {
  assert(service != nullptr && "the radio reported a service that is null");
  return service != nullptr;
}

inline bool hasCharacteristic(const std::shared_ptr<CBCharacteristic>& characteristic) noexcept {
  assert(characteristic != nullptr && "the radio reported a characteristic that is null");
  return characteristic != nullptr;
}

}  // namespace kestrin
