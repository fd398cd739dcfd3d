#include "tools/gateway/commands/SafeText.h"

#include "tools/gateway/message/Bytes.h"

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

std::string lineText(std::string_view text) {
  const std::string whole(text);
  const std::string mended = mendedUtf8(whole).value_or(whole);
  std::string line;
  line.reserve(mended.size());
  for (std::size_t i = 0; i < mended.size(); ++i) {
    const auto byte = static_cast<std::uint8_t>(mended[i]);
    // In UTF-8 the controls from U+0080 to U+009F are this byte and one of those.
    const bool isLongControl =
        byte == 0xC2 && i + 1 < mended.size() && static_cast<std::uint8_t>(mended[i + 1]) < 0xA0;
    if (byte >= ' ' && byte != 0x7F && !isLongControl) {
      line += mended[i];
      continue;
    }
    line += "\\x";
    addHex(line, isLongControl ? static_cast<std::uint8_t>(mended[++i]) : byte);
  }
  return line;
}

std::string hexText(std::span<const std::uint8_t> bytes) {
  std::string text;
  text.reserve(bytes.size() * 2);
  for (const std::uint8_t byte : bytes) addHex(text, byte);
  return text;
}

}  // namespace kestrin::gateway
