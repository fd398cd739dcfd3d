/// \class kestrin::CBService
/// A service of a connected peripheral, as one link sees it.
///
/// Threads: read on the main run loop.
///
/// Lifetime: each link has objects of its own; see CBCharacteristic.h.
///
/// Errors: none.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "KestrinBLESDK/platform/CBCharacteristic.h"
#include "KestrinBLESDK/platform/CBUUID.h"
#include "KestrinBLESDK/platform/Export.h"

namespace kestrin {
/// \addtogroup platform
/// @{

class KESTRIN_EXPORT CBService {
 public:
  virtual ~CBService();
  /// `UUID` Which service it is.
  [[nodiscard]] virtual CBUUID UUID() const = 0;
  /// `characteristics` Those that were asked for and have been answered, in handle order; absent
  /// before the first answer.
  [[nodiscard]] virtual std::optional<std::vector<std::shared_ptr<CBCharacteristic>>>
  characteristics() const = 0;
  /// `debugDescription` A descriptive text for a log line.
  [[nodiscard]] virtual std::string debugDescription() const = 0;
};

/// @}

}  // namespace kestrin
