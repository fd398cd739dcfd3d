#include "tools/kestrin/screen/TerminalKeys.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <utility>

namespace kestrin::app {

TerminalKeys::TerminalKeys(int input, MainRunLoop& loop, std::function<void(char)> onKey)
    : input_(input),
      end_(::eventfd(0, EFD_CLOEXEC)),
      loop_(loop),
      onKey_(std::make_shared<std::function<void(char)>>(std::move(onKey))) {
  if (end_ >= 0) thread_ = std::thread([this] { wait(); });
}

TerminalKeys::~TerminalKeys() {
  if (!thread_.joinable()) return;
  const std::uint64_t one = 1;
  [[maybe_unused]] const auto written = ::write(end_, &one, sizeof one);
  thread_.join();
  ::close(end_);
}

void TerminalKeys::wait() {
  std::array<pollfd, 2> sources{pollfd{input_, POLLIN, 0}, pollfd{end_, POLLIN, 0}};
  while (true) {
    if (::poll(sources.data(), sources.size(), -1) < 0) {
      if (errno == EINTR) continue;
      return;
    }
    if (sources[1].revents != 0) return;
    std::array<char, 64> keys{};
    const ssize_t count = ::read(input_, keys.data(), keys.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return;
    for (std::size_t i = 0; i < static_cast<std::size_t>(count); ++i) {
      loop_.post([onKey = std::weak_ptr(onKey_), key = keys[i]] {
        if (const auto alive = onKey.lock()) (*alive)(key);
      });
    }
  }
}

}  // namespace kestrin::app
