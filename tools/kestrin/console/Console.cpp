#include "tools/kestrin/console/Console.h"

#include <unistd.h>

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

}  // namespace

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
