#include "KestrinBLESDK/platform/CBUUID.h"

#include <algorithm>

namespace kestrin {
namespace {

constexpr std::size_t kShortDigits = 4;
constexpr std::size_t kLongDigits = 8;
constexpr std::size_t kFullText = 36;

constexpr bool isHyphenPlace(std::size_t index) {
  return index == 8 || index == 13 || index == 18 || index == 23;
}

constexpr std::optional<std::uint8_t> digitValue(char c) {
  if (c >= '0' && c <= '9') return static_cast<std::uint8_t>(c - '0');
  if (c >= 'a' && c <= 'f') return static_cast<std::uint8_t>(c - 'a' + 10);
  if (c >= 'A' && c <= 'F') return static_cast<std::uint8_t>(c - 'A' + 10);
  return std::nullopt;
}

void explain(NSError* error, std::string_view text, const std::string& what) {
  if (error == nullptr) return;
  *error = {KestrinErrorDomain, 1,
            "\"" + std::string(text) + "\" is not a UUID: " + what +
                "; a UUID is 4, 8 or, with hyphens as 8-4-4-4-12, 32 hexadecimal digits"};
}

/// The canonical text, character by character.
template <class Take>
void eachCharacter(const CBUUID::Bytes& bytes, bool isShort, const Take& take) {
  static constexpr char kHexadecimal[] = "0123456789ABCDEF";
  const std::size_t first = isShort ? 2 : 0;
  const std::size_t last = isShort ? 4 : bytes.size();
  for (std::size_t i = first; i < last; ++i) {
    if (!isShort && (i == 4 || i == 6 || i == 8 || i == 10)) take('-');
    take(kHexadecimal[bytes[i] >> 4]);
    take(kHexadecimal[bytes[i] & 0x0F]);
  }
}

}  // namespace

std::optional<CBUUID> CBUUID::UUIDWithString(std::string_view text, NSError* error) {
  const bool full = text.size() == kFullText;
  if (!full && text.size() != kShortDigits && text.size() != kLongDigits) {
    explain(error, text, "it has " + std::to_string(text.size()) + " characters");
    return std::nullopt;
  }
  Bytes bytes = kBase;
  // Two digits make a byte; a 16-bit UUID fills bytes 2 and 3 of the base.
  std::size_t nibble = text.size() == kShortDigits ? 4 : 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (full && isHyphenPlace(i)) {
      if (text[i] == '-') continue;
      explain(error, text, "character " + std::to_string(i + 1) + " is not a hyphen");
      return std::nullopt;
    }
    const auto value = digitValue(text[i]);
    if (!value) {
      explain(error, text, "character " + std::to_string(i + 1) + " is not a hexadecimal digit");
      return std::nullopt;
    }
    std::uint8_t& byte = bytes[nibble / 2];
    byte = nibble % 2 == 0 ? static_cast<std::uint8_t>(*value << 4)
                           : static_cast<std::uint8_t>(byte | *value);
    ++nibble;
  }
  return CBUUID(bytes);
}

std::optional<std::uint16_t> CBUUID::shortUUID() const noexcept {
  const auto value = static_cast<std::uint16_t>(bytes_[2] << 8 | bytes_[3]);
  if (CBUUID(value) == *this) return value;
  return std::nullopt;
}

std::string CBUUID::UUIDString() const {
  std::string text;
  const bool isShort = shortUUID().has_value();
  text.reserve(isShort ? kShortDigits : kFullText);
  eachCharacter(bytes_, isShort, [&text](char character) { text += character; });
  return text;
}

bool CBUUID::hasUUIDString(std::string_view text) const noexcept {
  const bool isShort = shortUUID().has_value();
  if (text.size() != (isShort ? kShortDigits : kFullText)) return false;
  bool same = true;
  auto wanted = text.begin();
  eachCharacter(bytes_, isShort, [&](char character) { same = *wanted++ == character && same; });
  return same;
}

}  // namespace kestrin
