#include "tools/kestrin/screen/TerminalScreen.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>

namespace kestrin::app {
namespace {

// The second screen, without a cursor and without wrapping; and back.
constexpr std::string_view kEnter = "\x1b[?1049h\x1b[?25l\x1b[?7l\x1b[H\x1b[2J";
constexpr std::string_view kLeave = "\x1b[0m\x1b[?7h\x1b[?25h\x1b[?1049l";
constexpr std::chrono::duration<int, std::milli> kLongestWait(1000);

/// A variable of the environment; empty if there is none.
std::string_view variable(const char* name) {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): the environment is never changed here.
  const char* const text = std::getenv(name);
  return text != nullptr ? text : "";
}

bool isForeground(int descriptor) { return ::tcgetpgrp(descriptor) == ::getpgrp(); }

}  // namespace

TerminalScreen::TerminalScreen(int input, int output)
    : input_(input), output_(output), coloured_(variable("NO_COLOR").empty()) {}

TerminalScreen::~TerminalScreen() { leave(); }

bool TerminalScreen::isPossible() const {
  const std::string_view kind = variable("TERM");
  return ::isatty(output_) == 1 && !kind.empty() && kind != "dumb" && isForeground(output_);
}

void TerminalScreen::enter() {
  const std::scoped_lock lock(mutex_);
  enterLocked();
}

void TerminalScreen::enterLocked() {
  termios now{};
  if (::isatty(input_) == 1 && ::tcgetattr(input_, &now) == 0) {
    if (!before_) before_ = now;
    // Keys come at once and are not shown; those that send signals go on doing that.
    now.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    now.c_cc[VMIN] = 1;
    now.c_cc[VTIME] = 0;
    ::tcsetattr(input_, TCSANOW, &now);
  }
  entered_ = true;
  isAway_ = false;
  isClean_ = true;
  shown_.clear();
  write(kEnter);
}

void TerminalScreen::leave() {
  const std::scoped_lock lock(mutex_);
  putRightLocked(true);
  entered_ = false;
}

void TerminalScreen::stepAside() {
  const std::scoped_lock lock(mutex_);
  putRightLocked(true);
}

void TerminalScreen::putRight() noexcept {
  // A terminal that takes nothing must not keep the process from ending.
  // NOLINTNEXTLINE(concurrency-mt-unsafe): nobody else stops or starts this terminal's output.
  ::tcflow(output_, TCOON);
  pollfd room{output_, POLLOUT, 0};
  ::poll(&room, 1, kLongestWait.count());
  const std::unique_lock lock(mutex_, kLongestWait);
  putRightLocked((room.revents & POLLOUT) != 0);
}

void TerminalScreen::putRightLocked(bool takesText) noexcept {
  if (!entered_ || isAway_) return;
  isAway_ = true;
  if (takesText) write(kLeave);
  if (before_) ::tcsetattr(input_, TCSANOW, &*before_);
  before_.reset();
}

void TerminalScreen::comeBack() {
  const std::scoped_lock lock(mutex_);
  if (entered_) enterLocked();
}

ScreenSize TerminalScreen::size() const {
  winsize window{};
  if (::ioctl(output_, TIOCGWINSZ, &window) != 0 || window.ws_col == 0 || window.ws_row == 0) {
    return {};
  }
  return {window.ws_col, window.ws_row};
}

void TerminalScreen::show(const std::vector<std::string>& lines) {
  const std::scoped_lock lock(mutex_);
  if (!entered_ || isAway_) return;
  std::string changes = isClean_ ? "" : "\x1b[H\x1b[2J";
  if (!isClean_) shown_.clear();
  isClean_ = true;
  for (std::size_t i = 0; i < lines.size() || i < shown_.size(); ++i) {
    static const std::string empty;
    const std::string& line = i < lines.size() ? lines[i] : empty;
    if (line == (i < shown_.size() ? shown_[i] : empty)) continue;
    changes.append("\x1b[").append(std::to_string(i + 1)).append(";1H").append(line);
    changes += "\x1b[K";
  }
  shown_ = lines;
  bytesShown_ += changes.size();
  write(changes);
}

void TerminalScreen::forget() {
  const std::scoped_lock lock(mutex_);
  isClean_ = false;
}

void TerminalScreen::write(std::string_view text) noexcept {
  while (!text.empty()) {
    const ssize_t written = ::write(output_, text.data(), text.size());
    if (written > 0) {
      text.remove_prefix(static_cast<std::size_t>(written));
    } else if (errno == EAGAIN) {
      // Somebody made the terminal non-blocking.
      pollfd room{output_, POLLOUT, 0};
      ::poll(&room, 1, -1);
    } else if (errno != EINTR) {
      return;
    }
  }
}

}  // namespace kestrin::app
