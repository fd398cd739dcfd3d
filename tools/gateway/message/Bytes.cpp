#include "tools/gateway/message/Bytes.h"

#include <algorithm>
#include <cstddef>

namespace kestrin::gateway {
namespace {

constexpr std::string_view kDigits = "0123456789abcdef";
constexpr std::string_view kReplacement = "\xEF\xBF\xBD";  // U+FFFD.

std::optional<unsigned> valueOf(char c) {
  if (c >= '0' && c <= '9') return static_cast<unsigned>(c - '0');
  if (c >= 'a' && c <= 'f') return static_cast<unsigned>(c - 'a') + 10;
  if (c >= 'A' && c <= 'F') return static_cast<unsigned>(c - 'A') + 10;
  return std::nullopt;
}

/// What a first byte of UTF-8 says of the bytes that follow it.
struct Sequence {
  std::size_t length = 0;  ///< 0: it begins nothing.
  unsigned char least = 0x80;
  unsigned char most = 0xBF;  ///< Of the second byte; of later ones it is always 0x80 to 0xBF.
};

Sequence sequenceOf(unsigned char first) {
  if (first < 0x80) return {1};
  if (first < 0xC2) return {};
  if (first < 0xE0) return {2};
  if (first == 0xE0) return {3, 0xA0};
  if (first == 0xED) return {3, 0x80, 0x9F};
  if (first < 0xF0) return {3};
  if (first == 0xF0) return {4, 0x90};
  if (first < 0xF4) return {4};
  if (first == 0xF4) return {4, 0x80, 0x8F};
  return {};
}

/// How many bytes from the front are one character; 0 when they are none.
std::size_t characterLength(std::string_view text) {
  const Sequence sequence = sequenceOf(static_cast<unsigned char>(text.front()));
  if (sequence.length > text.size()) return 0;
  for (std::size_t i = 1; i < sequence.length; ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    if (i == 1 && (byte < sequence.least || byte > sequence.most)) return 0;
    if ((byte & 0xC0U) != 0x80U) return 0;
  }
  return sequence.length;
}

}  // namespace

void addHexOf(std::span<const std::uint8_t> bytes, std::string& text) {
  std::size_t at = text.size();
  text.resize(at + bytes.size() * 2);
  for (const std::uint8_t byte : bytes) {
    text[at++] = kDigits[byte >> 4U];
    text[at++] = kDigits[byte & 0x0FU];
  }
}

std::string hexOf(std::span<const std::uint8_t> bytes) {
  std::string text;
  addHexOf(bytes, text);
  return text;
}

std::optional<std::vector<std::uint8_t>> bytesOfHex(std::string_view text, std::string& error) {
  std::vector<std::uint8_t> bytes;
  bytes.reserve(text.size() / 2);
  std::optional<unsigned> high;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] == ' ' && !high) continue;
    const auto digit = valueOf(text[at]);
    if (!digit) {
      error = "its character " + std::to_string(at + 1) +
              " is not a hexadecimal digit; two of them for each byte would be right";
      return std::nullopt;
    }
    if (high) bytes.push_back(static_cast<std::uint8_t>(*high << 4U | *digit));
    high = high ? std::nullopt : digit;
  }
  if (high) {
    error = "its last byte has one hexadecimal digit; two would be right";
    return std::nullopt;
  }
  return bytes;
}

std::optional<std::string> mendedUtf8(std::string_view text) {
  const auto isAscii = [](char c) { return static_cast<unsigned char>(c) < 0x80; };
  if (std::ranges::all_of(text, isAscii)) return std::nullopt;
  std::string mended;
  bool wrong = false;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t length = characterLength(text.substr(at));
    mended += length == 0 ? kReplacement : text.substr(at, length);
    wrong = wrong || length == 0;
    at += std::max<std::size_t>(length, 1);
  }
  if (!wrong) return std::nullopt;
  return mended;
}

std::string shown(std::string_view text) {
  constexpr std::size_t kMost = 60;
  std::string line;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t length = characterLength(text.substr(at));
    if (line.size() >= kMost) return line + "...";
    const auto first = static_cast<unsigned char>(text[at]);
    // The second set of control characters is C2 80 to C2 9F.
    const bool control =
        first < 0x20 || first == 0x7F ||
        (first == 0xC2 && length == 2 && static_cast<unsigned char>(text[at + 1]) < 0xA0);
    line += length == 0 || control ? "?" : text.substr(at, length);
    at += std::max<std::size_t>(length, 1);
  }
  return line;
}

}  // namespace kestrin::gateway
