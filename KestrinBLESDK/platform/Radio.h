/// \class kestrin::Radio
/// A radio: what makes central managers. Each radio is a library of its own.
///
/// Threads: `initWithDelegate_queue` on the main run loop; `stateReason` from any thread.
///
/// Lifetime: central managers keep alive what they need of their radio.
///
/// Errors: a radio that cannot work says so by its state, and why by `stateReason`.
#pragma once

#include <memory>
#include <string>

#include "KestrinBLESDK/platform/CBCentralManager.h"
#include "KestrinBLESDK/platform/Export.h"

namespace kestrin {
/// \addtogroup platform
/// @{

class RunLoop;

class KESTRIN_EXPORT Radio {
 public:
  virtual ~Radio();
  /// `initWithDelegate:queue:` A central manager that reports to `delegate` on `queue`; an absent
  /// queue means the main run loop. Its state is unknown until it reports it.
  virtual std::shared_ptr<CBCentralManager> initWithDelegate_queue(
      std::weak_ptr<CBCentralManagerDelegate> delegate, std::shared_ptr<RunLoop> queue) = 0;
  /// Why the radio is not powered on and what to do about it, one line for a person; empty when it
  /// is powered on.
  [[nodiscard]] virtual std::string stateReason() const = 0;
};

/// @}

}  // namespace kestrin
