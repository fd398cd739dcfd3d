#include "kestrin/bluez/Bluez.h"

#include <utility>

#include "BluezRadio.h"
#include "KestrinBLESDK/platform/MainRunLoop.h"
#include "KestrinBLESDK/platform/Platform.h"
#include "Session.h"

namespace kestrin::bluez {

std::shared_ptr<Radio> makeRadio(std::weak_ptr<RunLoop> mainRunLoop, Options options) {
  return std::make_shared<BluezRadio>(Session::forBus(options.busAddress), std::move(mainRunLoop),
                                      std::move(options.adapter));
}

void install(Options options) {
  Platform::installRadio(makeRadio(MainRunLoop::main(), std::move(options)));
}

}  // namespace kestrin::bluez
