#include "tools/kestrin/screen/ScreenLine.h"

#include <utility>

#include "tools/kestrin/text/SafeText.h"

namespace kestrin::app {

ScreenLine fitted(const ScreenLine& line, std::size_t cells) {
  ScreenLine whole;
  std::size_t left = cells;
  for (const Span& span : line) {
    std::string shown = fitted(span.text, left);
    const bool isCut = shown != span.text;
    left -= cellsOf(shown);
    whole.push_back({std::move(shown), span.style});
    if (isCut) break;
  }
  return whole;
}

}  // namespace kestrin::app
