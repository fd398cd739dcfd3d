// The address of a Bluetooth device: six bytes and what kind of address they are.
//
// Threads: a plain value. Errors: text that is not an address gives none.
#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "tools/vreader/Bytes.h"

namespace kestrin::vreader {

struct DeviceAddress {
  /// Address types as HCI tells them (Bluetooth Core Document, Vol 4, Part E, 7.7.65.2).
  enum class Type : std::uint8_t { publicDevice = 0x00, randomDevice = 0x01 };

  /// Least significant byte first, as packets carry it.
  std::array<std::uint8_t, 6> bytes{};
  Type type = Type::publicDevice;

  /// Reads six pairs of hexadecimal digits between colons, most significant first.
  static std::optional<DeviceAddress> fromText(std::string_view text, Type type);
  /// The `number`th of the addresses that this program gives devices without one of their own: a
  /// static random address, which needs no registration (Vol 6, Part B, 1.3.2.1).
  static DeviceAddress staticRandom(std::uint16_t number);
  /// Reads type and address as packets carry them.
  static DeviceAddress read(ByteReader& packet);
  /// The text form, for example "C0:DE:00:00:00:01".
  [[nodiscard]] std::string text() const;
  /// Type and address as packets carry them.
  void write(ByteWriter& packet) const;

  // NOLINTNEXTLINE(modernize-use-nullptr): the check takes a comparison for a null pointer.
  friend auto operator<=>(const DeviceAddress&, const DeviceAddress&) = default;
};

}  // namespace kestrin::vreader
