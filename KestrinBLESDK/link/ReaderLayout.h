// The readers' names and GATT layout, as the link logic knows them.
#pragma once

#include <string_view>

namespace kestrin::reader {

/// Readers whose name begins so speak raw notifications on "FFF1" and "FFF2"; every other reader,
/// one without a name too, is of the standard family.
inline constexpr std::string_view kKVRNamePrefix = "KVR-Q62T";

/// The standard family's data service.
inline constexpr std::string_view kStandardService = "BA821000-3B5B-4654-85FE-E998B123ADEA";
/// The standard family's transmit characteristic, host to reader.
inline constexpr std::string_view kStandardTx = "BA821001-3B5B-4654-85FE-E998B123ADEA";
/// The standard family's receive characteristic, reader to host.
inline constexpr std::string_view kStandardRx = "BA821002-3B5B-4654-85FE-E998B123ADEA";
/// The KVR-Q62T family's receive characteristic.
inline constexpr std::string_view kKVRRx = "FFF1";
/// The KVR-Q62T family's transmit characteristic.
inline constexpr std::string_view kKVRTx = "FFF2";
/// Hardware Revision String (Bluetooth Assigned Numbers).
inline constexpr std::string_view kHardwareRevision = "2A27";
/// Manufacturer Name String (Bluetooth Assigned Numbers).
inline constexpr std::string_view kManufacturerName = "2A29";

}  // namespace kestrin::reader
