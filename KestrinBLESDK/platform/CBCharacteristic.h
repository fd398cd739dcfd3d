/// \class kestrin::CBCharacteristic
/// A characteristic of a connected peripheral, as one link sees it.
///
/// Threads: `UUID` and `properties` may be read from any thread; `value` changes on the main run
/// loop only, immediately before the event that announces it, and is read there.
///
/// Lifetime: each link has objects of its own; what is asked of an earlier link's objects goes
/// nowhere, quietly, and they keep the value they last had.
///
/// Errors: none.
#pragma once

#include <cstdint>
#include <optional>

#include "KestrinBLESDK/platform/CBUUID.h"
#include "KestrinBLESDK/platform/Export.h"
#include "KestrinBLESDK/platform/NSData.h"

namespace kestrin {
/// \addtogroup platform
/// @{

/// A mask of property bits (Bluetooth Core, Vol 3, Part G, 3.3.1.1).
using CBCharacteristicProperties = std::uint64_t;
/// The value may be read.
inline constexpr CBCharacteristicProperties CBCharacteristicPropertyRead = 0x02;
/// The value may be written, and the device does not answer.
inline constexpr CBCharacteristicProperties CBCharacteristicPropertyWriteWithoutResponse = 0x04;
/// The value may be written, and the device answers.
inline constexpr CBCharacteristicProperties CBCharacteristicPropertyWrite = 0x08;
/// The device may notify values, which the host does not acknowledge.
inline constexpr CBCharacteristicProperties CBCharacteristicPropertyNotify = 0x10;
/// The device may indicate values, each of which the host acknowledges.
inline constexpr CBCharacteristicProperties CBCharacteristicPropertyIndicate = 0x20;

/// How a value is written. This library only ever writes with response.
enum class CBCharacteristicWriteType : std::int64_t {
  CBCharacteristicWriteWithResponse = 0,     ///< As a request, which the device answers.
  CBCharacteristicWriteWithoutResponse = 1,  ///< As a command, which it does not.
};

class KESTRIN_EXPORT CBCharacteristic {
 public:
  virtual ~CBCharacteristic();
  /// `UUID` Which characteristic it is.
  [[nodiscard]] virtual CBUUID UUID() const = 0;
  /// `properties` What may be done with it.
  [[nodiscard]] virtual CBCharacteristicProperties properties() const = 0;
  /// `value` The last read or notified value of this link; absent before the first.
  [[nodiscard]] virtual std::optional<NSData> value() const = 0;
};

/// @}

}  // namespace kestrin
