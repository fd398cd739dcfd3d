// The terminal as one whole screen that is overwritten in place, and the way back to how it was.
//
// The curses library paints it. What it would do with signals and keys, and when it would give the
// terminal back, is decided here and in InterruptSignals.
//
// Threads: one at a time, except for `putRight`, which any thread may call.
// Lifetime: the descriptors stay the caller's; the drop puts the terminal right.
// Errors: what the terminal refuses is left as it is; a terminal that is gone takes no more.
#pragma once

#include <termios.h>

#include <array>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/kestrin/screen/ScreenLine.h"

namespace kestrin::app {

class Curses;

class TerminalScreen {
 public:
  TerminalScreen(int input, int output);
  ~TerminalScreen();
  TerminalScreen(const TerminalScreen&) = delete;
  TerminalScreen& operator=(const TerminalScreen&) = delete;

  /// Whether there is a terminal to show a screen on: standard output is one of a kind that can be
  /// painted, and this process is in its foreground.
  [[nodiscard]] bool isPossible() const;
  /// Takes the terminal, clean; harmless when it is taken already. A process in the background is
  /// stopped by the system here until it is in the foreground.
  void enter();
  /// Gives it back as it was.
  void leave();
  /// Gives it back for a while; nothing is shown until `comeBack`.
  void stepAside();
  /// `stepAside` for a process that ends or stops at once, whatever its other threads do. It waits
  /// a moment, not longer, for what is under way and for a terminal that takes nothing.
  void putRight() noexcept;
  /// Takes it again, if it was taken, after a while in which anybody may have changed it.
  void comeBack();
  [[nodiscard]] ScreenSize size() const;
  /// Shows these lines, top down, and nothing else; without colours where the environment has
  /// NO_COLOR set to anything (no-color.org). Writes only what has changed; nothing if not entered.
  void show(const std::vector<ScreenLine>& lines, ScreenSize size);
  /// Writes everything the next time, for a terminal that may have been disturbed.
  void forget();
  [[nodiscard]] int input() const noexcept { return input_; }

 private:
  void write(std::string_view text) noexcept;
  void enterLocked();
  void rememberModes();
  void putRightLocked(bool takesText) noexcept;

  const int input_;
  const int output_;
  const bool coloured_;
  std::timed_mutex mutex_;  // Guards what follows, and the order of writes.
  bool entered_ = false;
  bool isAway_ = false;  // Put right, though entered.
  /// The modes before, of the input and of the output: mostly those of one terminal.
  std::array<std::optional<termios>, 2> before_;
  std::string farewell_;
  std::unique_ptr<Curses> curses_;
};

}  // namespace kestrin::app
