#include "NotificationStream.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <optional>
#include <system_error>
#include <utility>

namespace kestrin::bluez {
namespace {

// An attribute value has at most 512 bytes (Bluetooth Core, Vol 3, Part F, 3.2.9).
constexpr std::size_t kLargestValue = 512;

bool hasHungUp(int descriptor) {
  pollfd polled{.fd = descriptor, .events = POLLIN, .revents = 0};
  return ::poll(&polled, 1, 0) > 0 && (polled.revents & (POLLHUP | POLLERR)) != 0;
}

/// The next value; absent at the end.
std::optional<NSData> receive(int descriptor) {
  std::array<std::uint8_t, kLargestValue> bytes{};
  alignas(cmsghdr) std::array<std::byte, 256> control{};
  iovec part{.iov_base = bytes.data(), .iov_len = bytes.size()};
  ssize_t length = -1;
  msghdr message{};
  do {
    message = {};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    length = ::recvmsg(descriptor, &message, MSG_CMSG_CLOEXEC);
    // A reset is said once, ahead of values that are still there.
  } while (length < 0 && (errno == EINTR || errno == ECONNRESET));
  if (length < 0) return std::nullopt;
  const bool isMessage = length > 0 || message.msg_controllen > 0 || !hasHungUp(descriptor);
  if (!isMessage) return std::nullopt;
  return NSData::dataWithBytes_length(bytes.data(), static_cast<std::size_t>(length));
}

}  // namespace

bool ValueInbox::add(NSData value) {
  const std::scoped_lock lock(mutex_);
  values_.push_back(std::move(value));
  return open_ && values_.size() == 1;
}

bool ValueInbox::open() {
  const std::scoped_lock lock(mutex_);
  open_ = true;
  return !values_.empty();
}

std::vector<NSData> ValueInbox::take() {
  const std::scoped_lock lock(mutex_);
  return std::exchange(values_, {});
}

NotificationStream::NotificationStream(int descriptor, Handlers handlers)
    : descriptor_(descriptor), handlers_(std::move(handlers)) {}

std::unique_ptr<NotificationStream> NotificationStream::start(int descriptor, Handlers handlers) {
  std::unique_ptr<NotificationStream> stream(
      new NotificationStream(descriptor, std::move(handlers)));
  if (!stream->prepare()) return nullptr;
  try {
    stream->thread_ = std::thread([raw = stream.get()] { raw->drain(); });
  } catch (const std::system_error&) {
    return nullptr;
  }
  return stream;
}

NotificationStream::~NotificationStream() {
  stop();
  ::close(descriptor_);
}

bool NotificationStream::prepare() const {
  const int flags = ::fcntl(descriptor_, F_GETFL);
  const int on = 1;
  return flags >= 0 && ::fcntl(descriptor_, F_SETFL, flags & ~O_NONBLOCK) == 0 &&
         ::fcntl(descriptor_, F_SETFD, FD_CLOEXEC) == 0 &&
         ::setsockopt(descriptor_, SOL_SOCKET, SO_PASSCRED, &on, sizeof on) == 0;
}

void NotificationStream::drain() {
  while (auto value = receive(descriptor_)) handlers_.arrived(std::move(*value));
  if (!stopping_) handlers_.hungUp();
}

void NotificationStream::stop() {
  stopping_ = true;
  // What was sent before is still received; then the receive ends.
  ::shutdown(descriptor_, SHUT_RDWR);
  if (thread_.joinable()) thread_.join();
}

}  // namespace kestrin::bluez
