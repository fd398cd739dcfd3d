#include "tools/kestrin/console/WriteAll.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>

namespace kestrin::app {

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
    // Somebody made the descriptor non-blocking: wait for room as if it were not.
    pollfd room{descriptor, POLLOUT, 0};
    ::poll(&room, 1, -1);
  }
  return std::nullopt;
}

}  // namespace kestrin::app
