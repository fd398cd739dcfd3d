#include "tools/kestrin/screen/TerminalScreen.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>

#include "tools/kestrin/screen/Curses.h"
#include "tools/kestrin/screen/TerminalKind.h"

namespace kestrin::app {
namespace {

constexpr std::chrono::duration<int, std::milli> kLongestWait(1000);

/// A variable of the environment; empty if there is none.
std::string_view variable(const char* name) {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): the environment is never changed here.
  const char* const text = std::getenv(name);
  return text != nullptr ? text : "";
}

/// What brings the terminal in use back to how it was, whatever is under way.
std::string farewell() {
  const std::string secondScreenEnd = controlSequence("rmcup");
  return controlSequence("sgr0") + controlSequence("op") +
         (secondScreenEnd.empty() ? controlSequence("clear") : "") + controlSequence("smam") +
         controlSequence("cnorm") + secondScreenEnd;
}

/// Keys come at once and are not shown; those that send signals go on doing that. Line ends are as
/// the library writes them.
void takeModes(int descriptor) {
  termios now{};
  if (::tcgetattr(descriptor, &now) != 0) return;
  now.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO | ECHONL);
  now.c_iflag &= ~static_cast<tcflag_t>(ICRNL | INLCR | IGNCR);
  now.c_oflag &= ~static_cast<tcflag_t>(ONLCR);
  now.c_cc[VMIN] = 1;
  now.c_cc[VTIME] = 0;
  ::tcsetattr(descriptor, TCSANOW, &now);
}

bool isForeground(int descriptor) { return ::tcgetpgrp(descriptor) == ::getpgrp(); }

}  // namespace

TerminalScreen::TerminalScreen(int input, int output)
    : input_(input), output_(output), coloured_(variable("NO_COLOR").empty()) {}

TerminalScreen::~TerminalScreen() { leave(); }

bool TerminalScreen::isPossible() const {
  return ::isatty(output_) == 1 && !variable("TERM").empty() && canBePainted(output_) &&
         isForeground(output_);
}

void TerminalScreen::enter() {
  const std::scoped_lock lock(mutex_);
  enterLocked();
}

void TerminalScreen::rememberModes() {
  const std::array<int, 2> descriptors{input_, output_};
  for (std::size_t i = 0; i < descriptors.size(); ++i) {
    termios now{};
    if (!before_[i] && ::tcgetattr(descriptors[i], &now) == 0) before_[i] = now;
  }
}

void TerminalScreen::enterLocked() {
  rememberModes();
  entered_ = true;
  isAway_ = false;
  if (!curses_) {
    curses_ = Curses::open(output_, coloured_);
    if (!curses_) return;
    curses_->show({}, size());
  } else {
    write(controlSequence("smcup") + controlSequence("civis"));
    curses_->forget();
  }
  farewell_ = farewell();
  // A letter that this terminal shows wider than the library knows must not push a row down.
  write(controlSequence("rmam"));
  for (const int descriptor : {input_, output_}) takeModes(descriptor);
  curses_->show({}, size());
}

void TerminalScreen::leave() {
  const std::scoped_lock lock(mutex_);
  putRightLocked(true);
  curses_.reset();
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
  if (takesText) write(farewell_);
  const std::array<int, 2> descriptors{input_, output_};
  for (std::size_t i = 0; i < descriptors.size(); ++i) {
    if (before_[i]) ::tcsetattr(descriptors[i], TCSANOW, &*before_[i]);
    before_[i].reset();
  }
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

void TerminalScreen::show(const std::vector<ScreenLine>& lines, ScreenSize size) {
  const std::scoped_lock lock(mutex_);
  if (entered_ && !isAway_ && curses_) curses_->show(lines, size);
}

void TerminalScreen::forget() {
  const std::scoped_lock lock(mutex_);
  if (curses_) curses_->forget();
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
