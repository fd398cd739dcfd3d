// A reader's frames: out, in, and which answers which.
#include <algorithm>
#include <utility>

#include "KestrinBLESDK/link/ReaderLayout.h"
#include "KestrinBLESDK/platform/NSString.h"
#include "KestrinBLESDK/reader/Errors.h"
#include "KestrinBLESDK/reader/ReaderCore.h"

namespace kestrin::reader {

std::optional<NSError> ReaderCore::whyNotSent() const {
  if (phase_ != ReaderPhase::pluggedIn) {
    return errorOf(ReaderError::unplugged, "the reader is unplugged (" +
                                               std::string(nameOf(phase_)) +
                                               "); send when it is plugged in");
  }
  if (sends_->size() >= options_.mostWaitingFrames) {
    return errorOf(ReaderError::queueFull,
                   std::to_string(sends_->size()) +
                       " frames wait to be sent already; send the next one when one is done");
  }
  return std::nullopt;
}

void ReaderCore::enqueue(const NSData& frame, std::function<void()> begun, SendHandler done) {
  SendQueue::Frame entry{
      .bytes = frame, .begun = std::move(begun), .ended = {}, .done = std::move(done)};
  if (auto error = whyNotSent()) {
    sends_->finish(std::move(entry), std::move(error));
  } else {
    if (manager_->records()) record(entry);
    sends_->add(std::move(entry));
  }
}

bool ReaderCore::write(const NSData& slice) {
  const auto self = shared_from_this();  // A log sink may drop the reader.
  const bool taken = manager_->writeRawData(slice);
  if (manager_ && slice.length() == SendQueue::kSlice) {
    manager_->notePause(SendQueue::kPauseAfterFullSlice);
  }
  return taken;
}

void ReaderCore::record(SendQueue::Frame& entry) {
  entry.begun = [this, frame = entry.bytes, begun = std::move(entry.begun)] {
    manager_->noteSend(frame);
    if (begun) begun();
  };
  entry.ended = [this](bool taken) { manager_->noteSent(taken); };
}

void ReaderCore::send(const NSData& frame, SendHandler done) {
  enqueue(frame, {}, std::move(done));
}

Reader::ExchangeId ReaderCore::exchange(const NSData& frame, Time limit, AnswerHandler done) {
  const ExchangeId id = ++lastAwaited_;
  RcpFrameError fault;
  const auto command = parseRcpFrame(frame.span(), &fault);
  if (!command) {
    sends_->finish({.bytes = {},
                    .begun = {},
                    .ended = {},
                    .done =
                        [done = std::move(done)](const auto& error) {
                          if (done) done(std::nullopt, error);
                        }},
                   errorOf(ReaderError::noFrame, "what is to be sent is not a whole frame: " +
                                                     fault.text + "; buildRcpFrame makes one"));
    return id;
  }
  awaited_.push_back({.id = id, .code = command->code, .done = std::move(done), .limit = {}});
  // The queue calls nobody once this has dropped it.
  const auto begun = [this, id] {
    if (const auto each = awaited(id); each != awaited_.end()) each->begun = true;
  };
  enqueue(frame, begun, [this, id, limit](const auto& error) {
    if (error) {
      answer(id, std::nullopt, error);
    } else {
      startAnswerLimit(id, limit);
    }
  });
  return id;
}

void ReaderCore::forget(ExchangeId exchange) {
  const auto found = awaited(exchange);
  if (found == awaited_.end()) return;
  disarm(found->limit);
  awaited_.erase(found);
}

std::vector<ReaderCore::Awaited>::iterator ReaderCore::awaited(ExchangeId id) {
  return std::find_if(awaited_.begin(), awaited_.end(),
                      [id](const Awaited& each) { return each.id == id; });
}

void ReaderCore::answer(ExchangeId id, const std::optional<RcpFrame>& frame,
                        const std::optional<NSError>& error) {
  const auto found = awaited(id);
  if (found == awaited_.end()) return;
  disarm(found->limit);
  const AnswerHandler done = std::move(found->done);
  awaited_.erase(found);
  if (done && owner_ != nullptr) done(frame, error);
}

void ReaderCore::startAnswerLimit(ExchangeId id, Time limit) {
  const auto found = awaited(id);
  const auto loop = platform_.mainRunLoop.lock();
  if (found == awaited_.end() || !loop) return;
  found->limit = loop->arm(limit, [weak = weak_from_this(), id, limit] {
    const auto self = weak.lock();
    if (!self) return;
    self->answer(id, std::nullopt,
                 errorOf(ReaderError::noAnswer, "no answer came within " + inSeconds(limit)));
  });
}

void ReaderCore::endFrames() {
  sends_->end(
      errorOf(ReaderError::unplugged, "the reader was unplugged before the frame was sent"));
  const NSError error =
      errorOf(ReaderError::unplugged, "the reader was unplugged before it answered");
  for (Awaited& each : std::exchange(awaited_, {})) {
    disarm(each.limit);
    sends_->finish({.bytes = {},
                    .begun = {},
                    .ended = {},
                    .done =
                        [done = std::move(each.done)](const auto& why) {
                          if (done) done(std::nullopt, why);
                        }},
                   error);
  }
}

bool ReaderCore::takeAnswer(const RcpFrame& frame) {
  const auto found = std::find_if(awaited_.begin(), awaited_.end(), [&](const Awaited& each) {
    return each.begun && each.code == frame.code;
  });
  if (found == awaited_.end()) return false;
  answer(found->id, frame, std::nullopt);
  return true;
}

void ReaderCore::dispatchRcpFrmReader(const std::optional<NSData>& frame) noexcept {
  if (!frame || phase_ == ReaderPhase::closed) return;
  const auto parsed = parseRcpFrame(frame->span());
  if (parsed && takeAnswer(*parsed)) return;
  if (device_ && hasPrefix(device_->name(), kKVRNamePrefix)) {
    tell(&ReaderHandlers::onValue, *frame);
  } else if (parsed) {
    tell(&ReaderHandlers::onFrame, *parsed);
  }
}

}  // namespace kestrin::reader
