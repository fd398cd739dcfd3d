// Text in the cells of a terminal: how wide it is, how it is cut, and how it is coloured.
//
// Threads: pure functions. Errors: none. Text is safe for a terminal already, see `printable`.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace kestrin::app {

enum class Style { plain, bold, dim, good, bad, busy };

struct Span {
  std::string text;
  Style style = Style::plain;
};

/// One row of a screen.
using ScreenLine = std::vector<Span>;

/// How many cells `text` takes at most. A letter that some terminals show in two cells counts two,
/// so that nothing that fits by this measure is ever wrapped.
std::size_t cellsOf(std::string_view text);
/// `text`, or its beginning and `...`, in at most `cells` cells.
std::string fitted(std::string_view text, std::size_t cells);
/// `text` with spaces behind it up to `cells`, or cut.
std::string padded(std::string_view text, std::size_t cells);
/// The line in at most `cells` cells; without styles when they are not wanted.
std::string rendered(const ScreenLine& line, std::size_t cells, bool styled);

}  // namespace kestrin::app
