#include "tools/kestrin/screen/TerminalText.h"

#include <string_view>

#include "tools/kestrin/text/SafeText.h"

namespace kestrin::app {
namespace {

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
