// What the system reports of a linked device: its delegate, which passes it on.
//
// Threads: the main thread's. Lifetime: a link's; the system holds it weakly. Errors: none.
#pragma once

#include "Values.h"

namespace kestrin::corebluetooth {

/// What a device's delegate passes on.
class DeviceEvents {
 public:
  virtual ~DeviceEvents() = default;
  virtual void didDiscoverServices(const std::optional<NSError>& error) = 0;
  virtual void didDiscoverCharacteristics(::CBService* service,
                                          const std::optional<NSError>& error) = 0;
  virtual void didUpdateValue(::CBCharacteristic* attribute,
                              const std::optional<NSError>& error) = 0;
  virtual void didUpdateNotificationState(::CBCharacteristic* attribute,
                                          const std::optional<NSError>& error) = 0;
};

}  // namespace kestrin::corebluetooth

@interface KestrinPeripheralEvents : NSObject <CBPeripheralDelegate> {
 @public
  kestrin::corebluetooth::DeviceEvents* owner;  // Null when the link has ended.
}
@end
