#include "tools/kestrin/text/Hex.h"

#include "tools/kestrin/text/SafeText.h"

namespace kestrin::app {
namespace {

bool isBlank(char c) { return c == ' ' || c == '\t'; }

std::optional<std::uint8_t> digitValue(char c) {
  if (c >= '0' && c <= '9') return static_cast<std::uint8_t>(c - '0');
  if (c >= 'a' && c <= 'f') return static_cast<std::uint8_t>(c - 'a' + 10);
  if (c >= 'A' && c <= 'F') return static_cast<std::uint8_t>(c - 'A' + 10);
  return std::nullopt;
}

HexError noDigit(std::string_view text, std::size_t place) {
  const char c = text[place];
  if ((c == 'x' || c == 'X') && place > 0 && text[place - 1] == '0') {
    return {place + 1, "bytes are written without 0x, as in BB 00 03"};
  }
  return {place + 1, "'" + printable({&c, 1}) + "' is not a hexadecimal digit"};
}

}  // namespace

std::optional<HexError> appendHex(std::string_view text, std::vector<std::uint8_t>& bytes) {
  std::size_t place = 0;
  while (place < text.size()) {
    if (isBlank(text[place])) {
      ++place;
      continue;
    }
    const auto high = digitValue(text[place]);
    if (!high) return noDigit(text, place);
    if (place + 1 == text.size() || isBlank(text[place + 1])) {
      return HexError{place + 1, "a byte is two hexadecimal digits, here is one"};
    }
    const auto low = digitValue(text[place + 1]);
    if (!low) return noDigit(text, place + 1);
    bytes.push_back(static_cast<std::uint8_t>(*high << 4 | *low));
    place += 2;
  }
  return std::nullopt;
}

std::string upperHex(std::span<const std::uint8_t> bytes) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string text;
  text.reserve(bytes.size() * 3);
  for (const std::uint8_t byte : bytes) {
    if (!text.empty()) text += ' ';
    text += {kDigits[byte >> 4], kDigits[byte & 0x0F]};
  }
  return text;
}

std::string lowerHex(std::span<const std::uint8_t> bytes) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  text.reserve(bytes.size() * 2);
  for (const std::uint8_t byte : bytes) text += {kDigits[byte >> 4], kDigits[byte & 0x0F]};
  return text;
}

}  // namespace kestrin::app
