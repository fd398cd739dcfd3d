#include "Devices.h"

#include "Radio.h"

namespace kestrin::corebluetooth {

std::shared_ptr<CBPeripheral> peripheralOf(Radio& radio, ::CBPeripheral* device) {
  const auto own = dynamic_cast<CoreBluetoothRadio*>(&radio);
  return own == nullptr || device == nil ? nullptr : own->core().peripheralOf(device);
}

::CBPeripheral* deviceOf(const std::shared_ptr<CBPeripheral>& peripheral) {
  const auto own = std::dynamic_pointer_cast<Peripheral>(peripheral);
  return own ? own->newestDevice() : nil;
}

}  // namespace kestrin::corebluetooth
