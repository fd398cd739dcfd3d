/// \class kestrin::KestrinBLEProtocols
/// The scan delegate: what an application hears of a scan. Derive from it, override what you want
/// to hear, and hand a `std::shared_ptr` of your own class to `KestrinBleMgr::setDelegate`.
///
/// Threads: every callback comes on the main run loop.
///
/// Lifetime: the manager holds the delegate weakly and reads it again before each callback; a
/// delegate may drop itself, or another, from inside one.
///
/// Errors: callbacks are `noexcept`: an exception that escapes one ends the program.
#pragma once

#include <cstdint>
#include <memory>

#include "KestrinBLESDK/Selector.h"
#include "KestrinBLESDK/platform/CBPeripheral.h"
#include "KestrinBLESDK/platform/Export.h"

namespace kestrin {
/// \addtogroup application
/// @{

// Virtual, so that one object can be scan delegate and receiver at once.
class KESTRIN_EXPORT KestrinBLEProtocols : public virtual SelectorResponder {
 public:
  /// `scanBleStatus:` 0 at the very start of `scanBLE`, 1 at the start of `stopSacnBLE`.
  virtual void scanBleStatus(std::int64_t status) noexcept;
  /// `scanningBleDeive:` A reader in range, never null, each time the scan accepts one.
  virtual void scanningBleDeive(const std::shared_ptr<CBPeripheral>& peripheral) noexcept;
};

/// @}

namespace detail {

template <class Delegate>
concept HidesNoScanCallback = requires {
  callbackOwner<std::int64_t>(&Delegate::scanBleStatus);
  callbackOwner<const std::shared_ptr<CBPeripheral>&>(&Delegate::scanningBleDeive);
};

/// The scan callbacks that `Delegate` implements.
template <class Delegate>
constexpr SelectorTable implementedScanCallbacks() {
  static_assert(HidesNoScanCallback<Delegate>,
                "a scan callback of this class is not public, or has other arguments than "
                "KestrinBLEProtocols: declare it public, with the same arguments and `override`");
  SelectorTable found;
  using Status = decltype(callbackOwner<std::int64_t>(&Delegate::scanBleStatus));
  using Device =
      decltype(callbackOwner<const std::shared_ptr<CBPeripheral>&>(&Delegate::scanningBleDeive));
  if (overridden<Status, KestrinBLEProtocols>) found.add(Selector::scanBleStatus);
  if (overridden<Device, KestrinBLEProtocols>) found.add(Selector::scanningBleDeive);
  return found;
}

}  // namespace detail
}  // namespace kestrin
