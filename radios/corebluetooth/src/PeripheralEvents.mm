#include "PeripheralEvents.h"

using kestrin::corebluetooth::error;

@implementation KestrinPeripheralEvents
- (void)peripheral:(CBPeripheral*)peripheral didDiscoverServices:(NSError*)failure {
  if (owner != nullptr) owner->didDiscoverServices(error(failure));
}
- (void)peripheral:(CBPeripheral*)peripheral
    didDiscoverCharacteristicsForService:(CBService*)service
                                   error:(NSError*)failure {
  if (owner != nullptr) owner->didDiscoverCharacteristics(service, error(failure));
}
- (void)peripheral:(CBPeripheral*)peripheral
    didUpdateValueForCharacteristic:(CBCharacteristic*)characteristic
                              error:(NSError*)failure {
  if (owner != nullptr) owner->didUpdateValue(characteristic, error(failure));
}
- (void)peripheral:(CBPeripheral*)peripheral
    didUpdateNotificationStateForCharacteristic:(CBCharacteristic*)characteristic
                                          error:(NSError*)failure {
  if (owner != nullptr) owner->didUpdateNotificationState(characteristic, error(failure));
}
@end
