// Rows of a screen: what they show, and how it is coloured.
//
// Threads: pure functions. Errors: none. Text is safe for a terminal already, see `printable`.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace kestrin::app {

enum class Style { plain, bold, dim, good, bad, busy };

struct Span {
  std::string text;
  Style style = Style::plain;
};

/// One row of a screen.
using ScreenLine = std::vector<Span>;

/// The line in at most `cells` cells; without styles when they are not wanted.
std::string rendered(const ScreenLine& line, std::size_t cells, bool styled);

}  // namespace kestrin::app
