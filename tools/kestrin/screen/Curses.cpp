#include "tools/kestrin/screen/Curses.h"

#include <curses.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <clocale>
#include <csignal>
#include <utility>

namespace kestrin::app {
namespace {

constexpr short kGood = 1;
constexpr short kBad = 2;
constexpr short kBusy = 3;
constexpr short kDefault = -1;
constexpr int kFirstFree = STDERR_FILENO + 1;

/// Keeps the library's hands off signals: it leaves those alone that have a handler when it starts.
/// It would otherwise ignore SIGTSTP whenever it paints, which loses one that is on its way.
class OwnSignals {
 public:
  OwnSignals() {
    struct sigaction own {};
    own.sa_handler = [](int) {};
    for (auto& [number, action] : before_) sigaction(number, &own, &action);
  }
  ~OwnSignals() {
    for (const auto& [number, action] : before_) sigaction(number, &action, nullptr);
  }
  OwnSignals(const OwnSignals&) = delete;
  OwnSignals& operator=(const OwnSignals&) = delete;

 private:
  std::array<std::pair<int, struct sigaction>, 4> before_{
      {{SIGINT, {}}, {SIGTERM, {}}, {SIGTSTP, {}}, {SIGWINCH, {}}}};
};

/// Text is UTF-8 here whatever the locale of the process is.
class Utf8Locale {
 public:
  Utf8Locale() : before_(::uselocale(utf8())) {}
  ~Utf8Locale() { ::uselocale(before_); }
  Utf8Locale(const Utf8Locale&) = delete;
  Utf8Locale& operator=(const Utf8Locale&) = delete;

 private:
  static locale_t utf8() {
    static const locale_t locale = ::newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    return locale;
  }
  const locale_t before_;
};

void setStyle(WINDOW* window, Style style) {
  switch (style) {
    case Style::plain:
      wattr_set(window, WA_NORMAL, 0, nullptr);
      break;
    case Style::bold:
      wattr_set(window, WA_BOLD, 0, nullptr);
      break;
    case Style::dim:
      wattr_set(window, WA_DIM, 0, nullptr);
      break;
    case Style::good:
      wattr_set(window, WA_BOLD, kGood, nullptr);
      break;
    case Style::bad:
      wattr_set(window, WA_BOLD, kBad, nullptr);
      break;
    case Style::busy:
      wattr_set(window, WA_BOLD, kBusy, nullptr);
      break;
  }
}

}  // namespace

std::unique_ptr<Curses> Curses::open(int output, bool coloured) {
  const OwnSignals signals;
  const Utf8Locale utf8;
  const int descriptor = ::fcntl(output, F_DUPFD_CLOEXEC, kFirstFree);
  FILE* const out = descriptor < 0 ? nullptr : ::fdopen(descriptor, "w");
  FILE* const in = std::fopen("/dev/null", "re");
  screen* const terminal = out == nullptr || in == nullptr ? nullptr : newterm(nullptr, out, in);
  if (terminal == nullptr) {
    if (out != nullptr) std::fclose(out);
    if (in != nullptr) std::fclose(in);
    return nullptr;
  }
  return std::unique_ptr<Curses>(new Curses(out, in, terminal, coloured));
}

Curses::Curses(FILE* output, FILE* input, screen* terminal, bool coloured)
    : output_(output), input_(input), terminal_(terminal), coloured_(coloured) {
  use_legacy_coding(0);  // Whatever the locale of the process is.
  typeahead(-1);
  leaveok(stdscr, true);
  curs_set(0);
  if (!coloured_ || !has_colors()) return;
  start_color();
  use_default_colors();
  init_pair(kGood, COLOR_GREEN, kDefault);
  init_pair(kBad, COLOR_RED, kDefault);
  init_pair(kBusy, COLOR_YELLOW, kDefault);
}

Curses::~Curses() {
  set_term(terminal_);
  delscreen(terminal_);
  std::fclose(output_);
  std::fclose(input_);
}

void Curses::show(const std::vector<ScreenLine>& lines, ScreenSize size) {
  const Utf8Locale utf8;
  set_term(terminal_);
  const auto rows = static_cast<int>(size.rows);
  const auto columns = static_cast<int>(size.columns);
  if (rows != getmaxy(stdscr) || columns != getmaxx(stdscr)) resizeterm(rows, columns);
  werase(stdscr);
  for (int row = 0; row < std::min(rows, static_cast<int>(lines.size())); ++row) {
    wmove(stdscr, row, 0);
    for (const Span& span : fitted(lines[static_cast<std::size_t>(row)], size.columns)) {
      setStyle(stdscr, coloured_ ? span.style : Style::plain);
      waddstr(stdscr, span.text.c_str());
    }
  }
  setStyle(stdscr, Style::plain);
  wrefresh(stdscr);
}

void Curses::forget() {
  set_term(terminal_);
  clearok(stdscr, true);
}

}  // namespace kestrin::app
