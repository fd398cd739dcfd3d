#include "tools/gateway/commands/Output.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>

namespace kestrin::gateway {
namespace {

constexpr std::size_t kLargeWrite = 65536;

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

void Output::note(std::string_view text) {
  std::string whole = "kestrin-gateway: ";
  whole += text;
  whole += '\n';
  writeAll(errors_, whole);
}

}  // namespace kestrin::gateway
