#include "KestrinBLESDK/platform/DescriptorWaker.h"

#include <chrono>
#include <system_error>
#include <utility>

namespace kestrin {

std::unique_ptr<DescriptorWaker> DescriptorWaker::create() {
  auto told = SignalPipe::create();
  auto wakeUp = SignalPipe::create();
  if (!told || !wakeUp) return nullptr;
  std::unique_ptr<DescriptorWaker> waker(new DescriptorWaker(std::move(told), std::move(wakeUp)));
  try {
    waker->thread_ = std::thread([raw = waker.get()] { raw->waitAndSignal(); });
    // GCOVR_EXCL_START: no test can use up a system's threads.
  } catch (const std::system_error&) {
    return nullptr;
  }
  // GCOVR_EXCL_STOP
  return waker;
}

DescriptorWaker::DescriptorWaker(std::unique_ptr<SignalPipe> told,
                                 std::unique_ptr<SignalPipe> wakeUp)
    : told_(std::move(told)), wakeUp_(std::move(wakeUp)) {}

DescriptorWaker::~DescriptorWaker() {
  {
    const std::scoped_lock lock(mutex_);
    ending_ = true;
    wakeThreadLocked();
  }
  if (thread_.joinable()) thread_.join();
}

void DescriptorWaker::setReadable() {
  const std::scoped_lock lock(mutex_);
  due_.reset();
  told_->signal();
}

void DescriptorWaker::setDue(std::optional<Time> due) {
  const std::scoped_lock lock(mutex_);
  if (!found_) told_->drain();
  const bool sooner = due && (!due_ || *due < *due_);
  due_ = due;
  // A later time needs no wake-up: the thread wakes once at the earlier one and looks again.
  if (sooner) wakeThreadLocked();
}

void DescriptorWaker::watch(Look look) {
  const std::scoped_lock lock(mutex_);
  found_ = false;
  look_ = std::move(look);
  wakeThreadLocked();
}

void DescriptorWaker::wakeThreadLocked() {
  changed_.notify_one();
  if (polling_) wakeUp_->signal();
}

void DescriptorWaker::waitAndSignal() {
  std::unique_lock lock(mutex_);
  while (!ending_) {
    if (due_ && *due_ <= clock_.now()) {
      due_.reset();
      told_->signal();
    } else if (look_.empty()) {
      clock_.wait(changed_, lock, due_);
    } else {
      waitForDescriptors(lock);
    }
  }
}

void DescriptorWaker::waitForDescriptors(std::unique_lock<std::mutex>& lock) {
  Look look = look_;
  look.addWaker(wakeUp_->readable());
  const auto limit = due_ ? std::optional(*due_ - clock_.now()) : std::nullopt;
  polling_ = true;
  lock.unlock();
  const bool taken = look.take(limit);
  lock.lock();
  polling_ = false;
  // What was found in a look that has been replaced meanwhile is found again if it still holds.
  if (wakeUp_->drain()) return;
  if (look.isReady()) {
    found_ = true;
    look_ = {};
    told_->signal();
  } else if (!taken) {
    clock_.wait(changed_, lock, clock_.now() + kPauseAfterRefusal);
  }
}

}  // namespace kestrin
