// A row of a screen: what it shows, and how that is to look.
//
// Threads: plain values. Errors: none. Text is safe for a terminal already, see `printable`.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace kestrin::app {

enum class Style { plain, bold, dim, good, bad, busy };

struct Span {
  std::string text;
  Style style = Style::plain;

  friend bool operator==(const Span&, const Span&) = default;
};

using ScreenLine = std::vector<Span>;

struct ScreenSize {
  std::size_t columns = 80;
  std::size_t rows = 24;

  friend bool operator==(const ScreenSize&, const ScreenSize&) = default;
};

/// The line, or its beginning and `...`, in at most `cells` cells.
ScreenLine fitted(const ScreenLine& line, std::size_t cells);

}  // namespace kestrin::app
