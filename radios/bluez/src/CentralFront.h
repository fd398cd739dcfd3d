// What the radio's side reports to a central manager, on the application's side.
//
// Threads: the central manager's run loop. Lifetime: held weakly by the radio's side.
// Errors: none.
#pragma once

#include <cstdint>
#include <memory>

#include "KestrinBLESDK/platform/CBCentralManager.h"

namespace kestrin::bluez {

class Peripheral;

class CentralFront : public CBCentralManager {
 public:
  virtual void deliverState(CBManagerState state) = 0;
  /// A sighting of the scan with that number; those of an earlier one are dropped.
  virtual void deliverSighting(std::uint64_t scan, const std::shared_ptr<Peripheral>& peripheral,
                               const CBAdvertisementData& data, int rssi) = 0;
};

}  // namespace kestrin::bluez
