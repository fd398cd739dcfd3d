/// \file
/// What a peripheral's attribute server holds: services with their characteristics, in handle
/// order. The layouts of both reader families stand here once, for virtual readers of every kind.
///
/// Threads: plain values and pure functions.
///
/// Errors: none.
#pragma once

#include <optional>
#include <vector>

#include "KestrinBLESDK/platform/CBCharacteristic.h"
#include "KestrinBLESDK/platform/CBUUID.h"
#include "KestrinBLESDK/platform/Export.h"
#include "KestrinBLESDK/platform/NSData.h"

namespace kestrin::simulated {
/// \addtogroup simulated
/// @{

/// One characteristic of a service.
struct GattCharacteristic {
  /// Which characteristic it is.
  CBUUID uuid;
  /// A mask of `CBCharacteristicProperty...` bits.
  CBCharacteristicProperties properties = 0;
  /// What a read answers.
  NSData value;
};

/// One service of a peripheral.
struct GattService {
  /// Which service it is.
  CBUUID uuid;
  /// What belongs to it, in handle order.
  std::vector<GattCharacteristic> characteristics;
};

/// Services in handle order.
using GattLayout = std::vector<GattService>;

/// The two families of readers. The name that a reader advertises tells them apart: one that begins
/// with "KVR-Q62T" is of that family.
enum class ReaderFamily {
  standard,  ///< Every reader whose name does not begin so.
  kvrQ62T,   ///< The KVR-Q62T family.
};

/// The two characteristics that commands and replies travel on, named from the host's side.
struct ReaderCharacteristics {
  /// Where the host writes commands.
  CBUUID tx;
  /// Where the reader notifies replies.
  CBUUID rx;
};

/// Which they are for readers of a family.
KESTRIN_EXPORT ReaderCharacteristics readerCharacteristics(ReaderFamily family);

/// The data service that a reader of the family tells in its advertisements.
KESTRIN_EXPORT CBUUID readerService(ReaderFamily family);

/// A reader's layout. `txProperties` replaces the property mask of the TX characteristic, which is
/// otherwise write and write without response for the standard family, write and notify for the
/// KVR-Q62T family.
KESTRIN_EXPORT GattLayout readerLayout(
    ReaderFamily family, std::optional<CBCharacteristicProperties> txProperties = std::nullopt);

/// A peripheral that is not a reader: generic access and a battery level.
KESTRIN_EXPORT GattLayout nonReaderLayout();

/// @}

}  // namespace kestrin::simulated
