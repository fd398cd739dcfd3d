#include "tools/gateway/commands/PipeWriter.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace kestrin::gateway {
namespace {

// A pipe that has room has room for so much.
constexpr std::size_t kAtOnce = 4096;

}  // namespace

void PipeWriter::add(std::string_view text) {
  if (isGone_) return;
  text_.erase(0, at_);
  at_ = 0;
  text_ += text;
  if (isEmpty() || watch_) return;
  watch_ = loop_.watch(descriptor_, Readiness::writable, [this](Readiness) { writeSome(); });
  if (!watch_) gone(EBADF);
}

void PipeWriter::look() {
  pollfd look{descriptor_, 0, 0};
  if (::poll(&look, 1, 0) > 0 && (look.revents & POLLERR) != 0) gone(EPIPE);
}

void PipeWriter::drain() {
  pollfd look{descriptor_, POLLOUT, 0};
  while (!isGone_ && !isEmpty() && ::poll(&look, 1, 0) > 0) writeSome();
}

void PipeWriter::writeSome() {
  const auto written =
      ::write(descriptor_, text_.data() + at_, std::min(kAtOnce, text_.size() - at_));
  if (written < 0) {
    if (errno != EAGAIN && errno != EINTR) gone(errno);
    return;
  }
  at_ += static_cast<std::size_t>(written);
  if (!isEmpty()) return;
  rest();
  handlers_.onWritten();
}

void PipeWriter::gone(int number) {
  if (isGone_) return;
  isGone_ = true;
  rest();
  text_.clear();
  at_ = 0;
  handlers_.onGone(std::error_code(number, std::generic_category()));
}

void PipeWriter::rest() {
  if (watch_) loop_.unwatch(*watch_);
  watch_.reset();
}

}  // namespace kestrin::gateway
