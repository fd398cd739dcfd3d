#include "Radio.h"

#include "Central.h"
#include "KestrinBLESDK/platform/Platform.h"
#include "StateReason.h"

namespace kestrin::corebluetooth {

// The queue is not asked for: the system reports on the main queue, which hosts the main run loop.
std::shared_ptr<CBCentralManager> CoreBluetoothRadio::initWithDelegate_queue(
    std::weak_ptr<CBCentralManagerDelegate> delegate, std::shared_ptr<RunLoop> /*queue*/) {
  return std::make_shared<Central>(core_, std::move(delegate));
}

std::string CoreBluetoothRadio::stateReason() const {
  return corebluetooth::stateReason(core_->state());
}

std::shared_ptr<Radio> makeRadio(std::weak_ptr<RunLoop> mainRunLoop, Options options) {
  return std::make_shared<CoreBluetoothRadio>(std::move(mainRunLoop), options);
}

void install(Options options) {
  hostMainRunLoop();
  Platform::installRadio(makeRadio(MainRunLoop::main(), options));
}

}  // namespace kestrin::corebluetooth
