#include "KestrinBLESDK/platform/SignalPipe.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <utility>

namespace kestrin {
namespace {

bool prepareEnd(int descriptor) {
  const int flags = ::fcntl(descriptor, F_GETFL);
  return flags >= 0 && ::fcntl(descriptor, F_SETFL, flags | O_NONBLOCK) == 0 &&
         ::fcntl(descriptor, F_SETFD, FD_CLOEXEC) == 0;
}

}  // namespace

std::unique_ptr<SignalPipe> SignalPipe::create() {
  std::array<int, 2> ends{};
  if (::pipe(ends.data()) != 0) return nullptr;
  std::unique_ptr<SignalPipe> made(new SignalPipe(ends[0], ends[1]));
  if (!prepareEnd(ends[0]) || !prepareEnd(ends[1])) return nullptr;
  return made;
}

SignalPipe::~SignalPipe() {
  ::close(readEnd_);
  ::close(writeEnd_);
}

void SignalPipe::signal() {
  if (std::exchange(signalled_, true)) return;
  static constexpr char kByte = 1;
  while (::write(writeEnd_, &kByte, 1) < 0 && errno == EINTR) {
  }
}

bool SignalPipe::drain() {
  if (!std::exchange(signalled_, false)) return false;
  char byte = 0;
  while (::read(readEnd_, &byte, 1) < 0 && errno == EINTR) {
  }
  return true;
}

}  // namespace kestrin
