// Reading and building packets. Everything on this side of the air is little-endian (Bluetooth Core
// Document, Vol 4, Part E, 5.2 and Vol 3, Part F, 3.3.1).
//
// Threads: plain values. Lifetime: a `ByteReader` views bytes that its maker keeps.
// Errors: reading past the end never touches memory; it gives zero and is remembered, see
// `ByteReader::overrun`.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kestrin::vreader {

using Bytes = std::vector<std::uint8_t>;
using ByteView = std::span<const std::uint8_t>;

/// Takes fields from the front of a packet. A handler reads all its fields, then asks `overrun`
/// once, so that a packet that is too short is refused in one place.
class ByteReader {
 public:
  explicit ByteReader(ByteView bytes) noexcept : left_(bytes) {}

  std::uint8_t u8() noexcept { return static_cast<std::uint8_t>(number(1)); }
  std::uint16_t u16() noexcept { return static_cast<std::uint16_t>(number(2)); }
  /// The next `count` bytes; none of them when there are fewer.
  ByteView take(std::size_t count) noexcept {
    if (count > left_.size()) {
      overrun_ = true;
      left_ = {};
      return {};
    }
    const ByteView taken = left_.first(count);
    left_ = left_.subspan(count);
    return taken;
  }
  /// Everything that is left.
  ByteView rest() noexcept { return take(left_.size()); }
  [[nodiscard]] std::size_t left() const noexcept { return left_.size(); }
  /// Whether something was read that was not there.
  [[nodiscard]] bool overrun() const noexcept { return overrun_; }

 private:
  std::uint32_t number(std::size_t size) noexcept {
    const ByteView bytes = take(size);
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
      value |= static_cast<std::uint32_t>(bytes[i]) << (8 * i);
    }
    return value;
  }

  ByteView left_;
  bool overrun_ = false;
};

/// Appends fields to a packet.
class ByteWriter {
 public:
  ByteWriter& u8(unsigned value) {
    bytes_.push_back(static_cast<std::uint8_t>(value));
    return *this;
  }
  ByteWriter& u16(unsigned value) { return u8(value & 0xFF).u8((value >> 8) & 0xFF); }
  ByteWriter& append(ByteView bytes) {
    bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
    return *this;
  }
  ByteWriter& append(std::initializer_list<std::uint8_t> bytes) {
    bytes_.insert(bytes_.end(), bytes);
    return *this;
  }
  ByteWriter& text(std::string_view text) {
    bytes_.insert(bytes_.end(), text.begin(), text.end());
    return *this;
  }
  ByteWriter& zeros(std::size_t count) {
    bytes_.resize(bytes_.size() + count);
    return *this;
  }
  [[nodiscard]] std::size_t size() const noexcept { return bytes_.size(); }
  [[nodiscard]] const Bytes& bytes() const noexcept { return bytes_; }
  [[nodiscard]] Bytes take() noexcept { return std::move(bytes_); }

 private:
  Bytes bytes_;
};

/// Lower-case hexadecimal without blanks; empty for no bytes.
inline std::string hex(ByteView bytes) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string text;
  text.reserve(2 * bytes.size());
  for (const std::uint8_t byte : bytes) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 0x0F];
  }
  return text;
}

/// A number as "0x" and two or four lower-case hexadecimal digits.
inline std::string hexByte(std::uint8_t value) { return "0x" + hex({&value, 1}); }
inline std::string hexWord(std::uint16_t value) {
  const std::uint8_t bytes[] = {static_cast<std::uint8_t>(value >> 8),
                                static_cast<std::uint8_t>(value & 0xFF)};
  return "0x" + hex(bytes);
}

}  // namespace kestrin::vreader
