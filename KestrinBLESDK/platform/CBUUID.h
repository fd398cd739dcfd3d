/// \class kestrin::CBUUID
/// A Bluetooth UUID as a value. A 16-bit UUID is short for a 128-bit one in the Bluetooth base
/// range (xxxxxxxx-0000-1000-8000-00805F9B34FB; Bluetooth Core, Vol 3, Part B, 2.5.1), so both
/// forms are the same value here.
///
/// Threads: a plain value.
///
/// Errors: text that is not a UUID is refused, see `UUIDWithString`.
#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "KestrinBLESDK/platform/Export.h"
#include "KestrinBLESDK/platform/NSError.h"

namespace kestrin {
/// \addtogroup platform
/// @{

class KESTRIN_EXPORT CBUUID {
 public:
  /// The 16 bytes, most significant first, as the text form writes them.
  using Bytes = std::array<std::uint8_t, 16>;

  /// The UUID of these 16 bytes.
  explicit constexpr CBUUID(const Bytes& bytes) noexcept : bytes_(bytes) {}
  /// The UUID that a 16-bit value stands for.
  explicit constexpr CBUUID(std::uint16_t shortUUID) noexcept : bytes_(kBase) {
    bytes_[2] = static_cast<std::uint8_t>(shortUUID >> 8);
    bytes_[3] = static_cast<std::uint8_t>(shortUUID & 0xFF);
  }

  /// `UUIDWithString:` Reads 4 or 8 hexadecimal digits (a UUID of the Bluetooth base range), or 32
  /// with hyphens as 8-4-4-4-12; either case. Anything else gives no UUID and, where `error` is
  /// given, says there what was wrong and what would be right.
  static std::optional<CBUUID> UUIDWithString(std::string_view text, NSError* error = nullptr);

  /// `UUIDString` The canonical text: four upper-case hexadecimal digits for a 16-bit UUID, else 36
  /// upper-case characters with hyphens (also for a value of the base range that needs 32 bits).
  [[nodiscard]] std::string UUIDString() const;
  /// Whether `UUIDString` is `text`, letter for letter; makes no string.
  [[nodiscard]] bool hasUUIDString(std::string_view text) const noexcept;
  /// `isEqual:` The same UUID, in whichever form either was given.
  [[nodiscard]] bool isEqual(const CBUUID& other) const noexcept { return *this == other; }
  /// The 16-bit value, absent when this UUID has none.
  [[nodiscard]] std::optional<std::uint16_t> shortUUID() const noexcept;
  /// The 16 bytes, most significant first.
  [[nodiscard]] constexpr const Bytes& bytes() const noexcept { return bytes_; }

  /// Orders UUIDs by their bytes; equal in whichever form either was given.
  // NOLINTNEXTLINE(modernize-use-nullptr): the generated comparison with 0 is not a pointer's.
  friend constexpr auto operator<=>(const CBUUID&, const CBUUID&) noexcept = default;

 private:
  static constexpr Bytes kBase = {0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x10, 0x00,
                                  0x80, 0x00, 0x00, 0x80, 0x5F, 0x9B, 0x34, 0xFB};
  Bytes bytes_{};
};

/// @}

}  // namespace kestrin
