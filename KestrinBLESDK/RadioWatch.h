/// \class kestrin::RadioWatch
/// The radio's state, for an application that wants to say why nothing is found. The manager tells
/// an application nothing of it.
///
/// All who ask for the watch of one platform share it, and with it one central manager that does
/// nothing but report the state.
///
/// \code
/// const auto watch = RadioWatch::of(platform);
/// const auto token = watch->listen([&](CBManagerState) { show(watch->description()); });
/// \endcode
///
/// Threads: the main run loop's.
///
/// Lifetime: shared; it ends with its last owner. A handler is not called any more once its token
/// is dropped, also from inside a handler.
///
/// Errors: none. Handlers must not throw.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "KestrinBLESDK/platform/CBCentralManager.h"
#include "KestrinBLESDK/platform/Export.h"
#include "KestrinBLESDK/platform/Platform.h"

namespace kestrin {
/// \addtogroup application
/// @{

class KESTRIN_EXPORT RadioWatch final : public std::enable_shared_from_this<RadioWatch> {
  class Listener;
  struct Private {
    explicit Private() = default;
  };

 public:
  /// What is called with each state.
  using Handler = std::function<void(CBManagerState state)>;

  /// The one watch of `platform`'s radio on its run loop.
  static std::shared_ptr<RadioWatch> of(const Platform& platform);
  /// `of` makes watches.
  RadioWatch(Private key, const Platform& platform);
  ~RadioWatch();
  RadioWatch(const RadioWatch&) = delete;
  RadioWatch& operator=(const RadioWatch&) = delete;

  /// The state as last reported; `unknown` before the first report, which comes soon.
  [[nodiscard]] CBManagerState state() const noexcept { return state_; }
  /// Whether the radio cannot work as things stand: there is none, or it may not be used.
  [[nodiscard]] bool unusable() const noexcept;
  /// The state in words, one line for a person, with what to do about it where it is not powered
  /// on.
  [[nodiscard]] std::string description() const;
  /// Calls `handler` with the state as it is, in a later turn and once it is known, and with each
  /// one that the radio reports, until the returned token is dropped.
  [[nodiscard]] std::shared_ptr<void> listen(Handler handler);

 private:
  void take(CBManagerState state) noexcept;

  const Platform platform_;
  std::shared_ptr<Listener> listener_;
  std::shared_ptr<CBCentralManager> central_;
  CBManagerState state_ = CBManagerState::unknown;
  std::vector<std::weak_ptr<Handler>> handlers_;
};

/// @}

}  // namespace kestrin
