#include "KestrinBLESDK/reader/SendQueue.h"

#include <algorithm>
#include <utility>

#include "KestrinBLESDK/reader/Errors.h"

namespace kestrin::reader {
namespace {

NSError notWritten() {
  return errorOf(ReaderError::notWritten, "the reader has no characteristic that can be written");
}

}  // namespace

SendQueue::SendQueue(std::weak_ptr<RunLoop> loop, Write write)
    : loop_(std::move(loop)), write_(std::move(write)) {}

SendQueue::~SendQueue() = default;

void SendQueue::add(Frame frame) {
  frames_.push_back(std::move(frame));
  if (!writing_) writeOn();
}

void SendQueue::writeOn() {
  const auto self = shared_from_this();  // A log sink may drop whoever holds this.
  writing_ = true;
  while (!frames_.empty() && !pause_) {
    const std::uint64_t ends = ends_;
    Frame& frame = frames_.front();
    if (!std::exchange(hasBegun_, true) && frame.begun) frame.begun();
    const std::size_t size = std::min(kSlice, frame.bytes.length() - written_);
    const bool taken = write_(frame.bytes.subdataWithRange({.location = written_, .length = size}));
    if (ends != ends_) continue;  // The frame is not there any more.
    written_ += size;
    if (size == kSlice) {
      writeAfterPause();
    } else {
      written_ = 0;
      hasBegun_ = false;
      Frame sent = std::move(frames_.front());
      frames_.pop_front();
      if (sent.ended) sent.ended(taken);
      // What became of the frame is what became of its last slice.
      finish(std::move(sent), taken ? std::nullopt : std::optional(notWritten()));
    }
  }
  writing_ = false;
}

void SendQueue::writeAfterPause() {
  const auto loop = loop_.lock();
  if (!loop) return;
  pause_ = loop->arm(kPauseAfterFullSlice, [weak = weak_from_this()] {
    const auto self = weak.lock();
    if (!self) return;
    self->pause_.reset();
    self->writeOn();
  });
}

void SendQueue::end(const NSError& error) {
  ++ends_;
  written_ = 0;
  if (std::exchange(hasBegun_, false) && frames_.front().ended) frames_.front().ended(false);
  if (const auto loop = loop_.lock(); loop && pause_) loop->cancel(*pause_);
  pause_.reset();
  for (Frame& frame : std::exchange(frames_, {})) finish(std::move(frame), error);
}

void SendQueue::finish(Frame frame, std::optional<NSError> error) {
  const auto loop = loop_.lock();
  if (!loop || !frame.done) return;
  loop->post([weak = weak_from_this(), done = std::move(frame.done), error = std::move(error)] {
    const auto self = weak.lock();
    if (self && !self->dropped_) done(error);
  });
}

void SendQueue::drop() noexcept {
  dropped_ = true;
  ++ends_;
  if (const auto loop = loop_.lock(); loop && pause_) loop->cancel(*pause_);
  pause_.reset();
  frames_.clear();
}

}  // namespace kestrin::reader
