#include "kestrin/bluez/Bluez.h"

#include <utility>

#include "BluezRadio.h"
#include "KestrinBLESDK/platform/MainRunLoop.h"
#include "KestrinBLESDK/platform/Platform.h"
#include "RadioCore.h"
#include "Session.h"

namespace kestrin::bluez {

std::shared_ptr<Radio> makeRadio(std::weak_ptr<RunLoop> mainRunLoop, Options options) {
  auto session = Session::forBus(options.busAddress);
  if (options.linkNames) {
    session->post([file = *options.linkNames](RadioCore& core) { core.keepLinkNames(file); });
  }
  return std::make_shared<BluezRadio>(std::move(session), std::move(mainRunLoop),
                                      std::move(options.adapter));
}

void install(Options options) {
  Platform::installRadio(makeRadio(MainRunLoop::main(), std::move(options)));
}

}  // namespace kestrin::bluez
