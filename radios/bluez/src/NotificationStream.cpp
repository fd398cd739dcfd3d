#include "NotificationStream.h"

#include <fcntl.h>
#include <pthread.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <optional>
#include <system_error>
#include <utility>

namespace kestrin::bluez {
namespace {

// An attribute value has at most 512 bytes (Bluetooth Core, Vol 3, Part F, 3.2.9).
constexpr std::size_t kLargestValue = 512;
// Values that one call receives. What is left is received by the next.
constexpr std::size_t kMostAtOnce = 32;
// Far less than the shortest connection interval, 7.5 ms, and than the time in which a reader fills
// the descriptor's room for 278 values.
constexpr Time kGathering = std::chrono::milliseconds(1);

/// Receives what is there, waiting for the first value only: a call for each would cost more than
/// the value.
class Receiver {
 public:
  explicit Receiver(int descriptor) : descriptor_(descriptor) {
    for (std::size_t i = 0; i < kMostAtOnce; ++i) {
      parts_[i] = {.iov_base = bytesOf(i), .iov_len = kLargestValue};
      messages_[i].msg_hdr.msg_iov = &parts_[i];
      messages_[i].msg_hdr.msg_iovlen = 1;
    }
  }

  /// The next values; none at the end.
  std::span<const NotificationStream::Value> receive() {
    int count = -1;
    do {
      count = ::recvmmsg(descriptor_, messages_.data(), kMostAtOnce, MSG_WAITFORONE, nullptr);
      // A reset is said once, ahead of values that are still there.
    } while (count < 0 && (errno == EINTR || errno == ECONNRESET));
    std::size_t received = 0;
    for (int i = 0; i < count && isValue(messages_[received]); ++i) {
      values_[received] = {bytesOf(received), messages_[received].msg_len};
      ++received;
    }
    return {values_.data(), received};
  }

 private:
  [[nodiscard]] std::uint8_t* bytesOf(std::size_t message) const {
    return bytes_.get() + message * kLargestValue;
  }
  // There is no room for the credentials, so the kernel says that they were cut off.
  static bool isValue(const mmsghdr& message) {
    return message.msg_len > 0 || (message.msg_hdr.msg_flags & MSG_CTRUNC) != 0;
  }

  const int descriptor_;
  // Not set to zero: small values then touch little of it.
  const std::unique_ptr<std::uint8_t[]> bytes_ =
      std::make_unique_for_overwrite<std::uint8_t[]>(kMostAtOnce * kLargestValue);
  std::array<iovec, kMostAtOnce> parts_{};
  std::array<mmsghdr, kMostAtOnce> messages_{};
  std::array<NotificationStream::Value, kMostAtOnce> values_{};
};

/// Whether to let the next values gather for a moment: to hand over each one alone wakes two
/// threads and costs more than all else that is done with it.
class Gathering {
 public:
  /// After `count` values that came at `now`.
  bool isWorthwhile(std::size_t count, Time now) {
    if (count == kMostAtOnce) return false;  // More may wait already.
    const bool soon = last_ && now - *last_ < (gathered_ ? 2 * kGathering : kGathering);
    gathered_ = soon && (count > 1 || !gathered_);
    last_ = now;
    return gathered_;
  }

 private:
  std::optional<Time> last_;
  bool gathered_ = false;  // The last time it was, so `count` values are what came of it.
};

/// Wakes without pushing the daemon off the processor, which then hands over all that it has at
/// once.
void becomePatient() {
  const sched_param none{};
  ::pthread_setschedparam(::pthread_self(), SCHED_BATCH, &none);
}

}  // namespace

NotificationStream::NotificationStream(int descriptor, Handlers handlers,
                                       std::shared_ptr<Clock> clock)
    : descriptor_(descriptor), handlers_(std::move(handlers)), clock_(std::move(clock)) {}

std::unique_ptr<NotificationStream> NotificationStream::start(int descriptor, Handlers handlers,
                                                              std::shared_ptr<Clock> clock) {
  std::unique_ptr<NotificationStream> stream(
      new NotificationStream(descriptor, std::move(handlers), std::move(clock)));
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
  becomePatient();
  Receiver receiver(descriptor_);
  Gathering gathering;
  for (auto values = receiver.receive(); !values.empty(); values = receiver.receive()) {
    const Time now = clock_->now();
    handlers_.arrived(values);
    if (gathering.isWorthwhile(values.size(), now)) clock_->sleepFor(kGathering);
  }
  if (!stopping_) handlers_.hungUp();
}

void NotificationStream::stop() {
  stopping_ = true;
  // What was sent before is still received; then the receive ends.
  ::shutdown(descriptor_, SHUT_RDWR);
  if (thread_.joinable()) thread_.join();
}

}  // namespace kestrin::bluez
