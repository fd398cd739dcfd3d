#include "CentralEvents.h"

using kestrin::corebluetooth::error;

namespace kestrin::corebluetooth {
namespace {

CBAdvertisementData advertisementOf(::KestrinFields* fields) {
  CBAdvertisementData advertisement;
  ::NSString* const name = [fields objectForKey:CBAdvertisementDataLocalNameKey];
  if (name != nil) advertisement.localName = text(name);
  ::NSArray* const services = [fields objectForKey:CBAdvertisementDataServiceUUIDsKey];
  for (::CBUUID* each in services) advertisement.serviceUUIDs.push_back(uuid(each));
  return advertisement;
}

}  // namespace
}  // namespace kestrin::corebluetooth

@implementation KestrinCentralEvents
- (void)centralManagerDidUpdateState:(CBCentralManager*)central {
  if (owner != nullptr)
    owner->didUpdateState(static_cast<kestrin::CBManagerState>([central state]));
}
- (void)centralManager:(CBCentralManager*)central
    didDiscoverPeripheral:(CBPeripheral*)peripheral
        advertisementData:(KestrinFields*)advertisementData
                     RSSI:(NSNumber*)RSSI {
  if (owner == nullptr) return;
  owner->didDiscover(peripheral, kestrin::corebluetooth::advertisementOf(advertisementData),
                     [RSSI intValue]);
}
- (void)centralManager:(CBCentralManager*)central didConnectPeripheral:(CBPeripheral*)peripheral {
  if (owner != nullptr) owner->didConnect(peripheral);
}
- (void)centralManager:(CBCentralManager*)central
    didFailToConnectPeripheral:(CBPeripheral*)peripheral
                         error:(NSError*)failure {
  if (owner != nullptr) owner->didEnd(peripheral, error(failure));
}
- (void)centralManager:(CBCentralManager*)central
    didDisconnectPeripheral:(CBPeripheral*)peripheral
                      error:(NSError*)failure {
  if (owner != nullptr) owner->didEnd(peripheral, error(failure));
}
@end
