#include "LinkEvents.h"

#include "Posting.h"

namespace kestrin::bluez {

NSError linkGivenUp() {
  constexpr std::int64_t kNotConnected = 3;  // Of CBErrorDomain.
  return {CBErrorDomain, kNotConnected, "the link was given up"};
}

void postConnected(const LinkHolder& holder, const LinkAddress& link,
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
