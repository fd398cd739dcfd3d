/// \file
/// Frames of the reader control protocol (RCP), for applications that build commands and read
/// replies. docs/protocol.md has the layout; `kestrin::rcp` has its constants.
///
/// Threads: pure functions.
///
/// Lifetime: a parsed frame points into the bytes that it was parsed from.
///
/// Errors: a payload that does not fit the length field is refused. Bytes that are not one whole
/// frame are refused with the field that is wrong, its place, and what would be right.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "KestrinBLESDK/platform/Export.h"
#include "KestrinBLESDK/platform/NSData.h"
#include "KestrinBLESDK/platform/NSError.h"
#include "KestrinBLESDK/rcp/FrameLayout.h"

namespace kestrin {
/// \addtogroup application
/// @{

/// A whole frame: preamble, `type`, `code`, payload length, `payload`, end mark and CRC. Commands
/// to a reader have type 0x00. A payload of more than 65,535 bytes gives no frame and, where
/// `error` is given, says so there.
KESTRIN_EXPORT std::optional<NSData> buildRcpFrame(std::uint8_t type, std::uint8_t code,
                                                   std::span<const std::uint8_t> payload,
                                                   NSError* error = nullptr);

/// One whole frame, taken apart.
struct RcpFrame {
  /// The message type. Of what a reader sends one of the two low bits is set; commands have 0x00.
  std::uint8_t type = 0;
  /// The command's or the reply's code.
  std::uint8_t code = 0;
  /// The payload; empty when the frame has none.
  std::span<const std::uint8_t> payload;
  /// The whole frame, from the preamble through the CRC low byte.
  std::span<const std::uint8_t> bytes;
};

/// The fields of a frame, in their order.
enum class RcpFrameField : std::uint8_t {
  preamble,       ///< 0xBB.
  type,           ///< The message type.
  code,           ///< The command's or the reply's code.
  payloadLength,  ///< Two bytes, high byte first.
  payload,        ///< As many bytes as the payload length says.
  endMark,        ///< 0x7E.
  crc,            ///< Two bytes, high byte first.
};

/// Why bytes are not one whole frame.
struct RcpFrameError {
  /// The first field that is wrong, or that the bytes end in front of or within.
  RcpFrameField field = RcpFrameField::preamble;
  /// The place in the bytes, from 0, of the first byte of a wrong field, or of the first byte that
  /// is not there.
  std::size_t offset = 0;
  /// The bytes are right as far as they go; more of them may make a frame.
  bool incomplete = false;
  /// What is wrong and what would be right, in words, for example "its CRC is 00 00, right would
  /// be 54 73".
  std::string text;
};

/// Takes one whole frame apart: `bytes` from its preamble through its CRC, and nothing behind.
/// Every message type is taken, and every payload length. Absent when `bytes` are anything else;
/// then `error`, where given, says why.
KESTRIN_EXPORT std::optional<RcpFrame> parseRcpFrame(std::span<const std::uint8_t> bytes,
                                                     RcpFrameError* error = nullptr);

/// How many bytes the frame has that `bytes` begin with, from its preamble through its CRC, as its
/// payload length says. Absent when they do not begin with a preamble or end before the length.
KESTRIN_EXPORT std::optional<std::size_t> rcpFrameLength(
    std::span<const std::uint8_t> bytes) noexcept;

/// The CRC of `bytes`, which for a frame are those from the message type through the end mark:
/// CRC-16/IBM-3740 of the CRC catalogue (polynomial 0x1021, initial value 0xFFFF, not reflected, no
/// final XOR; its check value over "123456789" is 0x29B1). Over a frame's CRC bytes too, high byte
/// first, it is 0x0000 exactly when they are right.
KESTRIN_EXPORT std::uint16_t rcpFrameCrc(std::span<const std::uint8_t> bytes) noexcept;

/// @}

}  // namespace kestrin
