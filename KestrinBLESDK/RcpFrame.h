/// \file
/// Frames of the reader control protocol (RCP), for applications that build commands and read
/// replies. The layout stands in docs/protocol.md.
///
/// Threads: pure functions.
///
/// Errors: a payload that does not fit the length field is refused.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "KestrinBLESDK/platform/Export.h"
#include "KestrinBLESDK/platform/NSData.h"
#include "KestrinBLESDK/platform/NSError.h"

namespace kestrin {
/// \addtogroup application
/// @{

/// The largest payload that the 16-bit length field can tell. A receiver of this library accepts
/// payloads of up to 1,021 bytes only.
inline constexpr std::size_t kRcpLargestPayload = 65535;

/// A whole frame: preamble, `type`, `code`, payload length, `payload`, end mark and CRC. Commands
/// to a reader have type 0x00. A payload of more than 65,535 bytes gives no frame and, where
/// `error` is given, says so there.
KESTRIN_EXPORT std::optional<NSData> buildRcpFrame(std::uint8_t type, std::uint8_t code,
                                                   std::span<const std::uint8_t> payload,
                                                   NSError* error = nullptr);

/// The CRC of `bytes`, which for a frame are those from the message type through the end mark:
/// CRC-16/IBM-3740 of the CRC catalogue (polynomial 0x1021, initial value 0xFFFF, not reflected, no
/// final XOR; its check value over "123456789" is 0x29B1). Over a frame's CRC bytes too, high byte
/// first, it is 0x0000 exactly when they are right.
KESTRIN_EXPORT std::uint16_t rcpFrameCrc(std::span<const std::uint8_t> bytes) noexcept;

/// @}

}  // namespace kestrin
