// A screen of the curses library on a terminal. The library paints and nothing else: it reads no
// keys, handles no signals, and does not give the terminal back.
//
// Threads: one at a time. There is one at a time.
// Lifetime: the descriptor stays the caller's. The drop leaves the terminal as it is; the caller
// puts its modes right and writes `farewell`. Errors: what the terminal refuses is left as it is.
#pragma once

#include <cstdio>
#include <memory>
#include <vector>

#include "tools/kestrin/screen/ScreenLine.h"

struct screen;  // The library's own.

namespace kestrin::app {

class Curses {
 public:
  /// Takes the terminal; null when it is of no kind that can be painted. Nothing is written before
  /// something is shown.
  static std::unique_ptr<Curses> open(int output, bool coloured);
  ~Curses();
  Curses(const Curses&) = delete;
  Curses& operator=(const Curses&) = delete;

  /// Shows these lines, top down, and nothing else. Writes only what has changed.
  void show(const std::vector<ScreenLine>& lines, ScreenSize size);
  /// Writes everything the next time.
  void forget();

 private:
  Curses(FILE* output, FILE* input, screen* terminal, bool coloured);

  FILE* const output_;
  FILE* const input_;
  screen* const terminal_;
  const bool coloured_;
};

}  // namespace kestrin::app
