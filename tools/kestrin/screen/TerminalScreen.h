// The terminal as one whole screen that is overwritten in place, and the way back to how it was.
//
// A few control sequences are all it takes: the terminals of today know them alike, and a program
// that writes them itself has no library underneath that handles signals and locales its own way.
// Colours and bold letters are the only styles, so a terminal without them loses nothing.
//
// Threads: one at a time, except for `putRight`, which any thread may call.
// Lifetime: the descriptors stay the caller's; the drop puts the terminal right.
// Errors: what the terminal refuses is left as it is; a terminal that is gone takes no more.
#pragma once

#include <termios.h>

#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/kestrin/screen/MonitorView.h"

namespace kestrin::app {

class TerminalScreen {
 public:
  TerminalScreen(int input, int output);
  ~TerminalScreen();
  TerminalScreen(const TerminalScreen&) = delete;
  TerminalScreen& operator=(const TerminalScreen&) = delete;

  /// Whether there is a terminal to show a screen on: standard output is one that knows control
  /// sequences, and this process is in its foreground.
  [[nodiscard]] bool isPossible() const;
  /// Whether colours are wanted: not with NO_COLOR set to anything (no-color.org).
  [[nodiscard]] bool hasColours() const noexcept { return coloured_; }
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
  /// Shows these lines, top down, and nothing else. Writes only what has changed; nothing if not
  /// entered.
  void show(const std::vector<std::string>& lines);
  /// Writes everything the next time, for a terminal that may have been disturbed.
  void forget();
  [[nodiscard]] int input() const noexcept { return input_; }
  /// How many bytes were written for `show`.
  [[nodiscard]] std::size_t bytesShown() const noexcept { return bytesShown_; }

 private:
  void write(std::string_view text) noexcept;
  void enterLocked();
  void putRightLocked(bool takesText) noexcept;

  const int input_;
  const int output_;
  const bool coloured_;
  std::timed_mutex mutex_;  // Guards what follows, and the order of writes.
  bool entered_ = false;
  bool isAway_ = false;  // Put right, though entered.
  std::optional<termios> before_;
  std::vector<std::string> shown_;
  bool isClean_ = false;
  std::size_t bytesShown_ = 0;
};

}  // namespace kestrin::app
