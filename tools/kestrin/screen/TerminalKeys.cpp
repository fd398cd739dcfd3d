#include "tools/kestrin/screen/TerminalKeys.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <utility>

namespace kestrin::app {

TerminalKeys::TerminalKeys(int input, MainRunLoop& loop, std::function<void(char)> onKey)
    : input_(input),
      loop_(loop),
      onKey_(std::make_shared<std::function<void(char)>>(std::move(onKey))),
      watch_(loop.watch(input, Readiness::readable, [this](Readiness found) { take(found); })) {}

TerminalKeys::~TerminalKeys() { end(); }

void TerminalKeys::end() {
  if (watch_) loop_.unwatch(*std::exchange(watch_, std::nullopt));
}

void TerminalKeys::take(Readiness found) {
  std::array<char, 64> keys{};
  const bool readable = hasAny(found, Readiness::readable);
  const ssize_t count = readable ? ::read(input_, keys.data(), keys.size()) : 0;
  if (count < 0 && errno == EINTR) return;
  if (count <= 0) {
    end();
    return;
  }
  const std::weak_ptr onKey(onKey_);
  for (std::size_t i = 0; i < static_cast<std::size_t>(count); ++i) {
    if (const auto alive = onKey.lock()) (*alive)(keys[i]);
  }
}

}  // namespace kestrin::app
