#include "Core.h"

namespace kestrin::corebluetooth {

std::shared_ptr<Peripheral> Core::peripheralOf(::CBPeripheral* device) {
  const std::string identifier = text([[device identifier] UUIDString]);
  auto& known = peripherals_[identifier];
  if (!known) {
    known = std::make_shared<Peripheral>(mainThread_, identifier);
    if (::NSString* const name = [device name]; name != nil) known->takeName(text(name));
  }
  return known;
}

std::shared_ptr<Peripheral> Core::own(const std::shared_ptr<CBPeripheral>& peripheral) const {
  auto known = std::dynamic_pointer_cast<Peripheral>(peripheral);
  return known && known->isOf(*mainThread_) ? known : nullptr;
}

}  // namespace kestrin::corebluetooth
