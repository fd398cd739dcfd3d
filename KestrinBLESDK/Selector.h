/// \file
/// Which callbacks a delegate implements.
///
/// A delegate's class is looked at when the delegate is set: a callback counts as implemented when
/// the class, or one between it and the library's own, overrides it. Before each callback the
/// manager asks `respondsToSelector`, which returns that, or however the class decides that
/// overrides it.
///
/// Threads: the main run loop's.
#pragma once

#include <cstdint>
#include <type_traits>

#include "KestrinBLESDK/platform/Export.h"

namespace kestrin {
/// \addtogroup application
/// @{

/// The callbacks of both delegates.
enum class Selector : std::uint8_t {
  scanBleStatus,         ///< `scanBleStatus:` of the scan delegate.
  scanningBleDeive,      ///< `scanningBleDeive:` of the scan delegate.
  plugChangedStatus,     ///< `plugChangedStatus:` of the receiver.
  dispatchRcpFrmReader,  ///< `dispatchRcpFrmReader:` of the receiver.
};

/// A set of callbacks; empty at first.
class SelectorTable {
 public:
  /// Adds one callback.
  constexpr void add(Selector selector) noexcept { bits_ |= bit(selector); }
  /// Adds those of another set.
  constexpr void add(SelectorTable other) noexcept { bits_ |= other.bits_; }
  /// Whether the callback is in this set.
  [[nodiscard]] constexpr bool contains(Selector selector) const noexcept {
    return (bits_ & bit(selector)) != 0;
  }
  /// Whether no callback is in this set.
  [[nodiscard]] constexpr bool empty() const noexcept { return bits_ == 0; }

 private:
  static constexpr std::uint8_t bit(Selector selector) noexcept {
    return static_cast<std::uint8_t>(1U << static_cast<unsigned>(selector));
  }
  std::uint8_t bits_ = 0;
};

/// What both delegates share: the answer to `respondsToSelector:`.
class KESTRIN_EXPORT SelectorResponder {
 public:
  virtual ~SelectorResponder();
  /// `respondsToSelector:` Whether the callback is implemented, as found when this delegate was
  /// set; override it to decide at run time.
  [[nodiscard]] virtual bool respondsToSelector(Selector selector) const noexcept {
    return implemented_.contains(selector);
  }

 protected:
  SelectorResponder() noexcept = default;
  /// What a class implements is not part of an object's value, so copies start without it.
  SelectorResponder(const SelectorResponder&) noexcept {}
  /// Keeps what was found for this object.
  SelectorResponder& operator=(const SelectorResponder&) noexcept { return *this; }

 private:
  friend class KestrinBleMgr;
  // Each setting adds what it found: a class may be known better at one place than at another.
  SelectorTable implemented_;
};

/// @}

namespace detail {

// The class that a pointer to member function belongs to, which for an inherited callback is the
// class that last overrode it.
template <class Argument, class Class>
std::type_identity<Class> callbackOwner(void (Class::*)(Argument) noexcept);
template <class Class>
std::type_identity<Class> queryOwner(bool (Class::*)(Selector) const noexcept);

/// Whether the member that `Owner` was found for is overridden below `Base`.
template <class Owner, class Base>
inline constexpr bool overridden = !std::is_same_v<typename Owner::type, Base>;

/// Whether `Delegate` decides `respondsToSelector` itself.
template <class Delegate>
inline constexpr bool decidesAtRunTime =
    overridden<decltype(queryOwner(&Delegate::respondsToSelector)), SelectorResponder>;

/// Whether `found` tells everything about an object of class `Delegate`: something is implemented,
/// or the class decides at run time, or nothing can be derived from it. Otherwise the pointer is
/// one to a base class, and setting it would silently implement nothing.
template <class Delegate>
constexpr bool isTelling(SelectorTable found) {
  return !found.empty() || decidesAtRunTime<Delegate> || std::is_final_v<Delegate>;
}

}  // namespace detail
}  // namespace kestrin
