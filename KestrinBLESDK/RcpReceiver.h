/// \class kestrin::RcpReceiver
/// The receiver: what an application hears of a connected reader. Derive from it, override what you
/// want to hear, and hand a `std::shared_ptr` of your own class to
/// `KestrinBleMgr::setRcpReceiverDelegate`.
///
/// Threads: every callback comes while the main run loop's thread waits for it, one at a time and
/// in order. A receiver must not count on running on any particular thread in
/// `dispatchRcpFrmReader`, and must not wait there for the main run loop.
///
/// Lifetime: the manager holds the receiver weakly and reads it again before each callback; a
/// receiver may drop itself, or another, from inside one.
///
/// Errors: callbacks are `noexcept`: an exception that escapes one ends the program.
#pragma once

#include <optional>
#include <type_traits>

#include "KestrinBLESDK/Selector.h"
#include "KestrinBLESDK/platform/Export.h"
#include "KestrinBLESDK/platform/NSData.h"

namespace kestrin {
/// \addtogroup application
/// @{

// Virtual, so that one object can be scan delegate and receiver at once.
class KESTRIN_EXPORT RcpReceiver : public virtual SelectorResponder {
 public:
  /// `plugChangedStatus:` True: the reader is plugged in and its link can be used, 2.0 s after the
  /// reader's characteristics were found. False: it is unplugged; `close` on a connected reader
  /// gives false twice, at once and when the link is down.
  virtual void plugChangedStatus(bool plugged) noexcept;
  /// `dispatchRcpFrmReader:` One whole, CRC-checked frame, from the preamble through the CRC low
  /// byte. From a reader whose name begins with "KVR-Q62T" instead the bytes of each notification
  /// as they came, unchecked and possibly absent.
  virtual void dispatchRcpFrmReader(const std::optional<NSData>& frame) noexcept;
};

/// @}

namespace detail {

template <class Receiver>
concept HidesNoReceiverCallback = requires {
  callbackOwner<bool>(&Receiver::plugChangedStatus);
  callbackOwner<const std::optional<NSData>&>(&Receiver::dispatchRcpFrmReader);
};

/// The receiver callbacks that `Receiver` implements.
template <class Receiver>
constexpr SelectorTable implementedReceiverCallbacks() {
  static_assert(HidesNoReceiverCallback<Receiver>,
                "a receiver callback of this class is not public, or has other arguments than "
                "RcpReceiver: declare it public, with the same arguments and `override`");
  SelectorTable found;
  using Plug = decltype(callbackOwner<bool>(&Receiver::plugChangedStatus));
  using Frame =
      decltype(callbackOwner<const std::optional<NSData>&>(&Receiver::dispatchRcpFrmReader));
  if (overridden<Plug, RcpReceiver>) found.add(Selector::plugChangedStatus);
  if (overridden<Frame, RcpReceiver>) found.add(Selector::dispatchRcpFrmReader);
  return found;
}

}  // namespace detail
}  // namespace kestrin
