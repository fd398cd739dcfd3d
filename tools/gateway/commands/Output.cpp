#include "tools/gateway/commands/Output.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>

#include "tools/gateway/commands/SafeText.h"

namespace kestrin::gateway {
namespace {

constexpr std::size_t kLargeWrite = 65536;
constexpr int kPatienceMs = 1000;
// A pipe that has room has room for so much.
constexpr std::size_t kPiece = 4096;

bool hasRoom(int descriptor, int patienceMs) {
  pollfd room{descriptor, POLLOUT, 0};
  return ::poll(&room, 1, patienceMs) != 0;
}

}  // namespace

std::optional<std::error_code> writeAll(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = ::write(descriptor, text.data(), text.size());
    if (written >= 0) {
      text.remove_prefix(static_cast<std::size_t>(written));
      continue;
    }
    const int reason = errno;
    if (reason == EINTR) continue;
    if (reason != EAGAIN) return std::error_code(reason, std::generic_category());
    pollfd room{descriptor, POLLOUT, 0};
    ::poll(&room, 1, -1);
  }
  return std::nullopt;
}

void Output::line(std::string_view text) {
  held_ += text;
  held_ += '\n';
  if (held_.size() >= kLargeWrite) flush();
}

void Output::flush() {
  if (!error_) error_ = writeAll(output_, held_);
  held_.clear();
}

void Output::sync() {
  flush();
  if (error_ || ::fdatasync(output_) == 0) return;
  // A pipe or a terminal is not on any disk.
  if (errno != EINVAL && errno != EROFS && errno != ENOTSUP) {
    error_ = std::error_code(errno, std::generic_category());
  }
}

void Output::note(const Line& line) {
  Line safe = line;
  safe.text = lineText(line.text);
  safe.reader = lineText(line.reader);
  if (!journal_ || !journal_(safe)) noteOnErrors(safe.text);
}

void Output::noteOnErrors(const std::string& text) {
  std::string whole = "kestrin-gateway: " + text + "\n";
  if (unwritten_ > 0) {
    whole.insert(0, (isTorn_ ? "\nkestrin-gateway: " : "kestrin-gateway: ") +
                        ("nobody has read, so " + std::to_string(unwritten_)) +
                        " lines are missing here\n");
  }
  // Who does not read holds up nothing but the first line, and that not for long.
  const int patienceMs = unwritten_ > 0 ? 0 : kPatienceMs;
  std::string_view rest = whole;
  while (!rest.empty() && hasRoom(errors_, patienceMs)) {
    const auto piece = rest.substr(0, kPiece);
    writeAll(errors_, piece);
    rest.remove_prefix(piece.size());
  }
  isTorn_ = !rest.empty() && (isTorn_ || rest.size() < whole.size());
  unwritten_ = rest.empty() ? 0 : unwritten_ + 1;
}

}  // namespace kestrin::gateway
