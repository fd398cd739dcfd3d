#include "LinkEvents.h"

#include "Errors.h"
#include "Posting.h"

namespace kestrin::bluez {

void postConnected(const LinkHolder& holder, const std::shared_ptr<LinkLine>& link,
                   const std::shared_ptr<Peripheral>& peripheral) {
  postTo(holder.loop, [holder, link, peripheral] {
    const auto central = holder.front.lock();
    if (!central) return;
    peripheral->beginLink(link, central);
    if (const auto delegate = holder.delegate.lock()) {
      delegate->centralManager_didConnectPeripheral(central, peripheral);
    }
  });
}

void postDisconnected(const LinkHolder& holder, std::uint64_t link,
                      const std::shared_ptr<Peripheral>& peripheral,
                      const std::optional<NSError>& error) {
  postTo(holder.loop, [holder, link, peripheral, error] {
    const auto central = holder.front.lock();
    if (!central) return;
    peripheral->endLink(link, central, error.value_or(linkGivenUp()));
    if (const auto delegate = holder.delegate.lock()) {
      delegate->centralManager_didDisconnectPeripheral_error(central, peripheral, error);
    }
  });
}

}  // namespace kestrin::bluez
