/// \file
/// Where the fields of an RCP frame lie, and the update step of its CRC. Knows nothing else.
///
/// | Offset | Size | Field |
/// |---|---|---|
/// | 0 | 1 | preamble, 0xBB |
/// | 1 | 1 | message type |
/// | 2 | 1 | code |
/// | 3 | 2 | payload length L, high byte first |
/// | 5 | L | payload |
/// | 5+L | 1 | end mark, 0x7E |
/// | 6+L | 2 | CRC over offsets 1 to 5+L, high byte first |
///
/// Threads: constants and pure functions.
///
/// Errors: none.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace kestrin::rcp {
/// \addtogroup application
/// @{

/// The first byte of every frame.
inline constexpr std::uint8_t kPreamble = 0xBB;
/// The byte behind the payload of every frame.
inline constexpr std::uint8_t kEndMark = 0x7E;
/// Where the message type lies.
inline constexpr std::size_t kTypePlace = 1;
/// Where the code lies.
inline constexpr std::size_t kCodePlace = 2;
/// Where the two bytes of the payload length lie.
inline constexpr std::size_t kPayloadLengthPlace = 3;
/// A received message type must have one of these bits set; the host's own commands have none.
inline constexpr std::uint8_t kReceivedTypeMask = 0x03;
/// Preamble, type, code and the two length bytes.
inline constexpr std::uint16_t kHeaderLength = 5;
/// End mark and CRC.
inline constexpr std::uint16_t kTrailerLength = 3;
/// A frame without a payload is so long.
inline constexpr std::uint16_t kSmallestFrame = kHeaderLength + kTrailerLength;
/// The largest payload that the length field can say.
inline constexpr std::size_t kLargestPayload = 0xFFFF;
/// The first payload length that a receiver rejects.
inline constexpr std::uint16_t kRejectedPayloadLength = 0x3FE;
/// What the CRC starts from, before the message type.
inline constexpr std::uint16_t kCrcInitial = 0xFFFF;

/// The running CRC `accumulator`, moved on by one byte: the same as eight steps of polynomial
/// 0x1021, most significant bit first, by shifts instead of a table.
constexpr std::uint16_t crcStep(std::uint8_t byte, std::uint16_t accumulator) noexcept {
  // Cut back to 16 bits at each step, as the definition has it; compilers need no more than that to
  // keep it short.
  auto acc = static_cast<std::uint16_t>(accumulator >> 8 | accumulator << 8);
  acc = static_cast<std::uint16_t>(acc ^ byte);
  acc = static_cast<std::uint16_t>(acc ^ (acc & 0x00FF) >> 4);
  acc = static_cast<std::uint16_t>(acc ^ acc << 12);
  acc = static_cast<std::uint16_t>(acc ^ (acc & 0x00FF) << 5);
  return acc;
}

/// The running CRC moved on by every byte in order.
constexpr std::uint16_t crcOver(std::span<const std::uint8_t> bytes,
                                std::uint16_t accumulator = kCrcInitial) noexcept {
  for (const std::uint8_t byte : bytes) accumulator = crcStep(byte, accumulator);
  return accumulator;
}

/// @}

}  // namespace kestrin::rcp
