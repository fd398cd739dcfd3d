#include "tools/kestrin/screen/TerminalText.h"

#include <algorithm>
#include <cstdint>

namespace kestrin::app {
namespace {

constexpr std::string_view kCut = "...";
constexpr std::uint32_t kFirstWide = 0x1100;  // From here on there are letters of two cells.

std::size_t lengthOfLetter(std::string_view text) {
  const auto first = static_cast<std::uint8_t>(text.front());
  const std::size_t length = first < 0xC0 ? 1 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
  return std::min(length, text.size());
}

std::size_t cellsOfLetter(std::string_view letter) {
  if (letter.size() < 3) return 1;
  std::uint32_t code = static_cast<std::uint8_t>(letter.front()) & (letter.size() == 3 ? 0x0F : 7);
  for (const char c : letter.substr(1)) code = code << 6 | (static_cast<std::uint8_t>(c) & 0x3F);
  return code >= kFirstWide ? 2 : 1;
}

/// The beginning of `text` that takes at most `cells` cells.
std::string_view beginning(std::string_view text, std::size_t cells) {
  std::size_t taken = 0;
  std::size_t length = 0;
  while (length < text.size()) {
    const std::size_t next = lengthOfLetter(text.substr(length));
    taken += cellsOfLetter(text.substr(length, next));
    if (taken > cells) break;
    length += next;
  }
  return text.substr(0, length);
}

std::string_view codeOf(Style style) {
  switch (style) {
    case Style::bold:
      return "\x1b[1m";
    case Style::dim:
      return "\x1b[2m";
    case Style::good:
      return "\x1b[1;32m";
    case Style::bad:
      return "\x1b[1;31m";
    case Style::busy:
      return "\x1b[1;33m";
    case Style::plain:
      break;
  }
  return "";
}

}  // namespace

std::size_t cellsOf(std::string_view text) {
  std::size_t cells = 0;
  while (!text.empty()) {
    const std::size_t length = lengthOfLetter(text);
    cells += cellsOfLetter(text.substr(0, length));
    text.remove_prefix(length);
  }
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

std::string rendered(const ScreenLine& line, std::size_t cells, bool styled) {
  std::string text;
  std::size_t left = cells;
  for (const Span& span : line) {
    const std::string shown = fitted(span.text, left);
    const std::string_view code = styled ? codeOf(span.style) : "";
    text.append(code).append(shown);
    if (!code.empty()) text += "\x1b[0m";
    left -= cellsOf(shown);
    if (shown.size() < span.text.size()) break;
  }
  return text;
}

}  // namespace kestrin::app
