#include "tools/gateway/commands/SafeText.h"

#include <cstddef>
#include <optional>

#include "tools/gateway/message/Bytes.h"

namespace kestrin::gateway {
namespace {

constexpr std::string_view kDigits = "0123456789abcdef";

void addHex(std::string& text, std::uint8_t byte) {
  text += kDigits[byte >> 4U];
  text += kDigits[byte & 0x0FU];
}

/// A character that a terminal obeys instead of showing it, of a text that is UTF-8.
struct Steering {
  std::uint32_t number = 0;
  std::size_t bytes = 0;
};

/// Controls, and what ends a line or turns its direction, at this place of the text.
std::optional<Steering> steeringAt(std::string_view text, std::size_t at) {
  const auto byte = [&](std::size_t i) -> std::uint32_t {
    return at + i < text.size() ? static_cast<std::uint8_t>(text[at + i]) : 0U;
  };
  if (byte(0) < ' ' || byte(0) == 0x7F) return Steering{byte(0), 1};
  if (byte(0) == 0xC2 && byte(1) < 0xA0) return Steering{byte(1), 2};
  if (byte(0) == 0xD8 && byte(1) == 0x9C) return Steering{0x061C, 2};
  if (byte(0) != 0xE2) return std::nullopt;
  const std::uint32_t number = 0x2000U | (byte(1) & 0x3FU) << 6U | (byte(2) & 0x3FU);
  const bool isMark = number == 0x200E || number == 0x200F;
  const bool turns = number >= 0x2028 && number <= 0x202E;
  const bool isolates = number >= 0x2066 && number <= 0x2069;
  if (isMark || turns || isolates) return Steering{number, 3};
  return std::nullopt;
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
  for (std::size_t i = 0; i < mended.size();) {
    const auto steering = steeringAt(mended, i);
    if (!steering) {
      line += mended[i++];
      continue;
    }
    i += steering->bytes;
    if (steering->number < 0x100) {
      line += "\\x";
    } else {
      line += "\\u";
      addHex(line, static_cast<std::uint8_t>(steering->number >> 8U));
    }
    addHex(line, static_cast<std::uint8_t>(steering->number));
  }
  return line;
}

std::string safeJson(std::string_view json) {
  std::string safe;
  safe.reserve(json.size());
  for (std::size_t i = 0; i < json.size();) {
    const auto steering = steeringAt(json, i);
    if (!steering) {
      safe += json[i++];
      continue;
    }
    safe += "\\u";
    addHex(safe, static_cast<std::uint8_t>(steering->number >> 8U));
    addHex(safe, static_cast<std::uint8_t>(steering->number));
    i += steering->bytes;
  }
  return safe;
}

std::string hexText(std::span<const std::uint8_t> bytes) {
  std::string text;
  text.reserve(bytes.size() * 2);
  for (const std::uint8_t byte : bytes) addHex(text, byte);
  return text;
}

}  // namespace kestrin::gateway
