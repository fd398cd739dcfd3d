// What the system reports of a central manager: its delegate, which passes it on.
//
// Threads: the main thread's. Lifetime: a central manager's; the system holds it weakly. Errors:
// none.
#pragma once

#include "KestrinBLESDK/platform/CBCentralManager.h"
#include "Values.h"

namespace kestrin::corebluetooth {

/// What a central manager's delegate passes on.
class ManagerEvents {
 public:
  virtual ~ManagerEvents() = default;
  virtual void didUpdateState(CBManagerState state) = 0;
  virtual void didDiscover(::CBPeripheral* device, const CBAdvertisementData& advertisement,
                           int rssi) = 0;
  virtual void didConnect(::CBPeripheral* device) = 0;
  /// A link has ended, or an attempt has failed or was cancelled.
  virtual void didEnd(::CBPeripheral* device, const std::optional<NSError>& error) = 0;
};

}  // namespace kestrin::corebluetooth

@interface KestrinCentralEvents : NSObject <CBCentralManagerDelegate> {
 @public
  kestrin::corebluetooth::ManagerEvents* owner;  // Null when it is gone.
}
@end
