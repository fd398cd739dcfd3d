#include "tools/kestrin/console/Console.h"

#include <unistd.h>

#include <cstdint>
#include <cstdlib>

#include "tools/kestrin/console/WriteAll.h"

namespace kestrin::app {
namespace {

constexpr std::size_t kLargeWrite = 65536;

bool isTerminal(int descriptor) {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): the environment is never changed here.
  const char* const kind = std::getenv("TERM");
  return ::isatty(descriptor) == 1 && kind != nullptr && std::string_view(kind) != "dumb";
}

std::uint8_t byteAt(std::string_view text, std::size_t place) {
  return place < text.size() ? static_cast<std::uint8_t>(text[place]) : std::uint8_t{0};
}

/// The length of the character that `text` begins with, 0 when it is none that may be printed: the
/// table of well-formed UTF-8 without the control characters of either set, and without those that
/// turn the direction of text around.
std::size_t printableLength(std::string_view text) {
  const std::uint8_t first = byteAt(text, 0);
  if (first < 0x80) return first >= 0x20 && first != 0x7F ? 1 : 0;
  const auto continues = [&](std::size_t place, std::uint8_t low = 0x80, std::uint8_t high = 0xBF) {
    return byteAt(text, place) >= low && byteAt(text, place) <= high;
  };
  if (first == 0xC2) return continues(1, 0xA0) ? 2 : 0;
  if (first >= 0xC3 && first <= 0xDF) return continues(1) ? 2 : 0;
  if (first >= 0xE0 && first <= 0xEF) {
    const std::uint8_t low = first == 0xE0 ? 0xA0 : 0x80;
    const std::uint8_t high = first == 0xED ? 0x9F : 0xBF;
    if (!continues(1, low, high) || !continues(2)) return 0;
    const bool turning =
        first == 0xE2 &&
        ((byteAt(text, 1) == 0x80 && byteAt(text, 2) >= 0xA8 && byteAt(text, 2) <= 0xAE) ||
         (byteAt(text, 1) == 0x81 && byteAt(text, 2) >= 0xA6 && byteAt(text, 2) <= 0xA9));
    return turning ? 0 : 3;
  }
  if (first >= 0xF0 && first <= 0xF4) {
    const std::uint8_t low = first == 0xF0 ? 0x90 : 0x80;
    const std::uint8_t high = first == 0xF4 ? 0x8F : 0xBF;
    return continues(1, low, high) && continues(2) && continues(3) ? 4 : 0;
  }
  return 0;
}

}  // namespace

std::string printable(std::string_view text) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string safe;
  safe.reserve(text.size());
  while (!text.empty()) {
    const std::size_t length = printableLength(text);
    if (text.front() == '\\') {
      safe += "\\\\";
    } else if (length > 0) {
      safe += text.substr(0, length);
    } else {
      const auto byte = static_cast<unsigned char>(text.front());
      safe += {'\\', 'x', kDigits[byte >> 4], kDigits[byte & 0x0F]};
    }
    text.remove_prefix(length > 0 ? length : 1);
  }
  return safe;
}

Console::Console(int output, int errors)
    : output_(output), errors_(errors), terminal_(isTerminal(errors)) {}

Console::~Console() {
  eraseLive();
  flush();
}

void Console::line(std::string_view text) {
  held_ += text;
  held_ += '\n';
  if (!holding_ || held_.size() >= kLargeWrite) flush();
}

void Console::flush() {
  eraseLive();
  if (!outputError_) outputError_ = writeAll(output_, held_);
  held_.clear();
}

void Console::note(std::string_view text) {
  flush();
  if (noteTaker_) {
    noteTaker_(text);
    return;
  }
  std::string whole = "kestrin: ";
  whole += text;
  whole += '\n';
  writeAll(errors_, whole);
}

void Console::live(std::string_view text) {
  if (!terminal_) return;
  std::string whole = "\r";
  whole += text;
  whole += "\x1b[K";
  writeAll(errors_, whole);
  liveShown_ = true;
}

void Console::eraseLive() {
  if (liveShown_) writeAll(errors_, "\r\x1b[K");
  liveShown_ = false;
}

}  // namespace kestrin::app
