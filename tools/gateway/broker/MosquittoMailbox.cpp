#include "tools/gateway/broker/MosquittoMailbox.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <iterator>
#include <utility>

namespace kestrin::gateway {
namespace {

// A broker that sends faster than the gateway reads is read no further meanwhile.
constexpr std::size_t kMostUntaken = 1024;
constexpr std::size_t kMostUntakenBytes = std::size_t{4} << 20U;

}  // namespace

std::shared_ptr<MosquittoMailbox> MosquittoMailbox::create(std::function<void()> announce) {
  std::array<int, 2> ends{-1, -1};
  if (::pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0) return nullptr;
  return std::shared_ptr<MosquittoMailbox>(
      new MosquittoMailbox(std::move(announce), ends[0], ends[1]));
}

MosquittoMailbox::MosquittoMailbox(std::function<void()> announce, int readEnd, int writeEnd)
    : announce_(std::move(announce)), readEnd_(readEnd), writeEnd_(writeEnd) {}

MosquittoMailbox::~MosquittoMailbox() {
  ::close(readEnd_);
  ::close(writeEnd_);
}

void MosquittoMailbox::wakeLocked() {
  if (!waiting_ || signalled_) return;
  const char byte = 0;
  signalled_ = ::write(writeEnd_, &byte, 1) == 1;
}

void MosquittoMailbox::hand(HandedMessage message) {
  const std::scoped_lock lock(mutex_);
  orders_.messages.push_back(std::move(message));
}

void MosquittoMailbox::wake() {
  const std::scoped_lock lock(mutex_);
  wakeLocked();
}

void MosquittoMailbox::sayFarewell() {
  const std::scoped_lock lock(mutex_);
  orders_.farewell = true;
  wakeLocked();
}

bool MosquittoMailbox::end() {
  const std::scoped_lock lock(mutex_);
  orders_.end = true;
  wakeLocked();
  return !heldUp_;
}

std::vector<LinkEvent> MosquittoMailbox::take() {
  const std::scoped_lock lock(mutex_);
  announced_ = false;
  if (isFullLocked()) wakeLocked();
  bytes_ = 0;
  return std::exchange(events_, {});
}

LinkOrders MosquittoMailbox::takeOrders() {
  const std::scoped_lock lock(mutex_);
  LinkOrders taken{std::exchange(orders_.messages, {}), orders_.farewell, orders_.end};
  waiting_ = true;
  return taken;
}

bool MosquittoMailbox::mustEnd() const {
  const std::scoped_lock lock(mutex_);
  return orders_.end;
}

void MosquittoMailbox::awake() {
  const std::scoped_lock lock(mutex_);
  waiting_ = false;
  if (!std::exchange(signalled_, false)) return;
  char byte = 0;
  while (::read(readEnd_, &byte, 1) == 1) {
  }
}

void MosquittoMailbox::report(std::vector<LinkEvent>& events) {
  if (events.empty()) return;
  {
    const std::scoped_lock lock(mutex_);
    for (const LinkEvent& event : events) {
      if (const auto* const message = std::get_if<Message>(&event)) {
        bytes_ += message->payload.size();
      }
    }
    events_.insert(events_.end(), std::make_move_iterator(events.begin()),
                   std::make_move_iterator(events.end()));
    if (std::exchange(announced_, true)) {
      events.clear();
      return;
    }
  }
  events.clear();
  announce_();
}

bool MosquittoMailbox::isFull() const {
  const std::scoped_lock lock(mutex_);
  return isFullLocked();
}

bool MosquittoMailbox::isFullLocked() const {
  return events_.size() >= kMostUntaken || bytes_ >= kMostUntakenBytes;
}

void MosquittoMailbox::beginHoldUp() {
  const std::scoped_lock lock(mutex_);
  heldUp_ = true;
}

bool MosquittoMailbox::endHoldUp() {
  const std::scoped_lock lock(mutex_);
  heldUp_ = false;
  return !orders_.end;
}

}  // namespace kestrin::gateway
