#include "KestrinBLESDK/platform/DescriptorWaker.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>

namespace kestrin {
namespace {

bool prepareEnd(int descriptor) {
  const int flags = ::fcntl(descriptor, F_GETFL);
  return flags >= 0 && ::fcntl(descriptor, F_SETFL, flags | O_NONBLOCK) == 0 &&
         ::fcntl(descriptor, F_SETFD, FD_CLOEXEC) == 0;
}

}  // namespace

std::unique_ptr<DescriptorWaker> DescriptorWaker::create() {
  std::array<int, 2> ends{};
  if (::pipe(ends.data()) != 0) return nullptr;
  std::unique_ptr<DescriptorWaker> waker(new DescriptorWaker(ends[0], ends[1]));
  if (!prepareEnd(ends[0]) || !prepareEnd(ends[1])) return nullptr;
  try {
    waker->thread_ = std::thread([raw = waker.get()] { raw->waitAndSignal(); });
    // GCOVR_EXCL_START: no test can use up a system's threads.
  } catch (const std::system_error&) {
    return nullptr;
  }
  // GCOVR_EXCL_STOP
  return waker;
}

DescriptorWaker::DescriptorWaker(int readEnd, int writeEnd)
    : readEnd_(readEnd), writeEnd_(writeEnd) {}

DescriptorWaker::~DescriptorWaker() {
  {
    const std::scoped_lock lock(mutex_);
    ending_ = true;
    changed_.notify_one();
  }
  if (thread_.joinable()) thread_.join();
  ::close(readEnd_);
  ::close(writeEnd_);
}

void DescriptorWaker::setReadable() {
  const std::scoped_lock lock(mutex_);
  due_.reset();
  signalLocked();
}

void DescriptorWaker::setDue(std::optional<Time> due) {
  const std::scoped_lock lock(mutex_);
  drainLocked();
  const bool sooner = due && (!due_ || *due < *due_);
  due_ = due;
  // A later time needs no wake-up: the thread wakes once at the earlier one and looks again.
  if (sooner) changed_.notify_one();
}

void DescriptorWaker::waitAndSignal() {
  std::unique_lock lock(mutex_);
  while (!ending_) {
    if (due_ && *due_ <= clock_.now()) {
      due_.reset();
      signalLocked();
    } else {
      clock_.wait(changed_, lock, due_);
    }
  }
}

void DescriptorWaker::signalLocked() {
  if (signalled_) return;
  static constexpr char kByte = 1;
  while (::write(writeEnd_, &kByte, 1) < 0 && errno == EINTR) {
  }
  signalled_ = true;
}

void DescriptorWaker::drainLocked() {
  if (!signalled_) return;
  char byte = 0;
  while (::read(readEnd_, &byte, 1) < 0 && errno == EINTR) {
  }
  signalled_ = false;
}

}  // namespace kestrin
