#include "tools/kestrin/text/SafeText.h"

#include <utf8proc.h>

#include <cstdint>

namespace kestrin::app {
namespace {

constexpr std::string_view kCut = "...";
constexpr char kDigits[] = "0123456789abcdef";
constexpr std::size_t kEscapeCells = 4;  // `\xNN`, for each byte.
constexpr std::int32_t kNoCharacter = -1;

/// A character, or a byte that is none.
struct Letter {
  std::string_view bytes;
  std::int32_t code = kNoCharacter;
};

/// The letter that `text`, which is not empty, begins with.
Letter firstLetter(std::string_view text) {
  std::int32_t code = kNoCharacter;
  const auto length = utf8proc_iterate(reinterpret_cast<const std::uint8_t*>(text.data()),
                                       static_cast<utf8proc_ssize_t>(text.size()), &code);
  if (length <= 0) return {text.substr(0, 1)};
  return {text.substr(0, static_cast<std::size_t>(length)), code};
}

template <class Taker>
void forEachLetter(std::string_view text, Taker&& taker) {
  while (!text.empty()) {
    const Letter letter = firstLetter(text);
    taker(letter);
    text.remove_prefix(letter.bytes.size());
  }
}

/// The codes that are never to be given to a character. XML cannot hold some of them.
bool isReserved(std::int32_t code) {
  return (code & 0xFFFE) == 0xFFFE || (code >= 0xFDD0 && code <= 0xFDEF);
}

bool isSafe(const Letter& letter) {
  if (letter.code == kNoCharacter || isReserved(letter.code)) return false;
  switch (utf8proc_category(letter.code)) {
    case UTF8PROC_CATEGORY_CC:
    case UTF8PROC_CATEGORY_CF:
    case UTF8PROC_CATEGORY_ZL:
    case UTF8PROC_CATEGORY_ZP:
      return false;
    default:
      return true;
  }
}

std::size_t cellsOfLetter(const Letter& letter) {
  if (!isSafe(letter)) return kEscapeCells * letter.bytes.size();
  // Some terminals give a mark that stands beside its letter a cell of its own.
  if (utf8proc_category(letter.code) == UTF8PROC_CATEGORY_MC) return 1;
  return static_cast<std::size_t>(utf8proc_charwidth(letter.code));
}

/// The beginning of `text` that takes at most `cells` cells.
std::string_view beginning(std::string_view text, std::size_t cells) {
  std::size_t taken = 0;
  std::size_t length = 0;
  while (length < text.size()) {
    const Letter next = firstLetter(text.substr(length));
    taken += cellsOfLetter(next);
    if (taken > cells) break;
    length += next.bytes.size();
  }
  return text.substr(0, length);
}

}  // namespace

std::string printable(std::string_view text) {
  std::string safe;
  safe.reserve(text.size());
  forEachLetter(text, [&](const Letter& letter) {
    if (letter.code == '\\') {
      safe += "\\\\";
    } else if (isSafe(letter)) {
      safe += letter.bytes;
    } else {
      for (const char c : letter.bytes) {
        const auto byte = static_cast<std::uint8_t>(c);
        safe += {'\\', 'x', kDigits[byte >> 4], kDigits[byte & 0x0F]};
      }
    }
  });
  return safe;
}

std::string xmlText(std::string_view text) {
  std::string xml;
  for (const char c : printable(text)) {
    switch (c) {
      case '&':
        xml += "&amp;";
        break;
      case '<':
        xml += "&lt;";
        break;
      case '>':
        xml += "&gt;";
        break;
      case '"':
        xml += "&quot;";
        break;
      case '\'':
        xml += "&apos;";
        break;
      default:
        xml += c;
    }
  }
  return xml;
}

std::size_t cellsOf(std::string_view text) {
  std::size_t cells = 0;
  forEachLetter(text, [&](const Letter& letter) { cells += cellsOfLetter(letter); });
  return cells;
}

std::string fitted(std::string_view text, std::size_t cells) {
  if (cellsOf(text) <= cells) return std::string(text);
  if (cells <= kCut.size()) return std::string(beginning(text, cells));
  return std::string(beginning(text, cells - kCut.size())) + std::string(kCut);
}

std::string padded(std::string_view text, std::size_t cells) {
  std::string whole = fitted(text, cells);
  whole.append(cells - cellsOf(whole), ' ');
  return whole;
}

std::string shortened(std::string_view text, std::size_t cells) {
  const std::string_view begin = beginning(text, cells);
  std::string whole(begin);
  if (begin.size() < text.size()) whole += kCut;
  return whole;
}

}  // namespace kestrin::app
