#include "tools/gateway/commands/SafeText.h"

namespace kestrin::gateway {
namespace {

constexpr std::string_view kDigits = "0123456789abcdef";

void addHex(std::string& text, std::uint8_t byte) {
  text += kDigits[byte >> 4U];
  text += kDigits[byte & 0x0FU];
}

}  // namespace

std::string safeText(std::string_view text) {
  std::string shown;
  shown.reserve(text.size());
  for (const char c : text) {
    if (c == '\\') {
      shown += "\\\\";
    } else if (c >= ' ' && c <= '~') {
      shown += c;
    } else {
      shown += "\\x";
      addHex(shown, static_cast<std::uint8_t>(c));
    }
  }
  return shown;
}

std::string hexText(std::span<const std::uint8_t> bytes) {
  std::string text;
  text.reserve(bytes.size() * 2);
  for (const std::uint8_t byte : bytes) addHex(text, byte);
  return text;
}

}  // namespace kestrin::gateway
