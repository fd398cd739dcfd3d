// Frames and their CRC, written down a second time for tests: bit by bit, by the polynomial, so
// that a slip in the library's own arithmetic cannot hide in its tests.
//
// Threads: pure functions. Lifetime: plain values. Errors: none; a frame may be built wrong on
// purpose.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <vector>

#include "KestrinBLESDK/platform/NSData.h"

namespace kestrin::test {

using Bytes = std::vector<std::uint8_t>;

/// One byte through the CRC register: eight steps of polynomial 0x1021, most significant bit first.
constexpr std::uint16_t referenceCrcStep(std::uint8_t byte, std::uint16_t crc) {
  for (int bit = 7; bit >= 0; --bit) {
    const bool in = ((byte >> bit) & 1) != 0;
    const bool out = (crc & 0x8000U) != 0;
    crc = static_cast<std::uint16_t>(crc << 1);
    if (in != out) crc = static_cast<std::uint16_t>(crc ^ 0x1021U);
  }
  return crc;
}

constexpr std::uint16_t referenceCrc(std::span<const std::uint8_t> bytes) {
  std::uint16_t crc = 0xFFFF;
  for (const std::uint8_t byte : bytes) crc = referenceCrcStep(byte, crc);
  return crc;
}

/// A whole frame; `type` and the length of `payload` may be ones that a receiver rejects.
inline Bytes referenceFrame(std::uint8_t type, std::uint8_t code,
                            std::span<const std::uint8_t> payload) {
  Bytes frame;
  frame.push_back(0xBB);
  frame.push_back(type);
  frame.push_back(code);
  frame.push_back(static_cast<std::uint8_t>(payload.size() >> 8));
  frame.push_back(static_cast<std::uint8_t>(payload.size() & 0xFF));
  frame.insert(frame.end(), payload.begin(), payload.end());
  frame.push_back(0x7E);
  const std::uint16_t crc = referenceCrc(std::span(frame).subspan(1));
  frame.push_back(static_cast<std::uint8_t>(crc >> 8));
  frame.push_back(static_cast<std::uint8_t>(crc & 0xFF));
  return frame;
}

/// The parts one after another.
inline Bytes joined(std::initializer_list<Bytes> parts) {
  Bytes all;
  for (const Bytes& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

/// `count` bytes of `bytes` from `first` on.
inline Bytes part(const Bytes& bytes, std::size_t first, std::size_t count) {
  const auto from = bytes.begin() + static_cast<std::ptrdiff_t>(first);
  return Bytes(from, from + static_cast<std::ptrdiff_t>(count));
}

/// The bytes from `first` to the end.
inline Bytes from(const Bytes& bytes, std::size_t first) {
  return part(bytes, first, bytes.size() - first);
}

}  // namespace kestrin::test
