#include "KestrinBLESDK/BlockingReader.h"

#include <chrono>
#include <deque>
#include <functional>
#include <utility>

#include "KestrinBLESDK/reader/Errors.h"
#include "KestrinBLESDK/reader/ReaderChoice.h"
#include "KestrinBLESDK/recording/RecordedPlatform.h"

namespace kestrin {
namespace {

// What has an end of its own is waited for without another limit.
constexpr Time kUntilItsEnd = std::chrono::hours(24);

void tell(NSError* error, ReaderError code, const std::string& text) {
  if (error != nullptr) *error = reader::errorOf(code, text);
}

/// Whether somebody turns the loop at this moment, which a callback does for whoever calls from it.
bool isFree(const MainRunLoop& loop, NSError* error) {
  if (!loop.isTurning()) return true;
  tell(
      error, ReaderError::insideCallback,
      "this would wait for the callback that it is called from; return from the callback first, or "
      "use KestrinBleMgr there");
  return false;
}

/// Turns the loop until `done`, for at most `limit`.
bool waitFor(MainRunLoop& loop, const std::function<bool()>& done, Time limit, ReaderError whenLate,
             const std::string& what, NSError* error) {
  const Time deadline = timeAfter(loop.now(), limit);
  if (loop.runUntil(deadline, done)) return true;
  if (loop.now() < deadline) {
    tell(error, ReaderError::stopped, "the run loop was stopped meanwhile");
  } else {
    tell(error, whenLate, what + " within " + reader::inSeconds(limit));
  }
  return false;
}

}  // namespace

/// What the reader has reported and nobody has taken yet.
struct BlockingReader::Arrivals {
  std::deque<NSData> frames;
  NSError trouble;
};

BlockingReader::BlockingReader(std::shared_ptr<MainRunLoop> loop,
                               std::unique_ptr<Arrivals> arrivals, std::unique_ptr<Reader> reader)
    : loop_(std::move(loop)), arrivals_(std::move(arrivals)), reader_(std::move(reader)) {}

BlockingReader::~BlockingReader() = default;

std::unique_ptr<BlockingReader> BlockingReader::connect(const Platform& platform,
                                                        std::string_view name, Time limit,
                                                        NSError* error) {
  const Platform whole = platform.completed();
  auto loop = std::dynamic_pointer_cast<MainRunLoop>(unrecorded(whole).mainRunLoop.lock());
  if (!loop) {
    tell(error, ReaderError::noRunLoop, "the platform has no run loop that could be turned here");
    return nullptr;
  }
  if (!isFree(*loop, error)) return nullptr;
  auto arrivals = std::make_unique<Arrivals>();
  auto reader = Reader::create(
      whole,
      {.reader = std::string(name),
       .findLimit = limit,
       .plugInLimit = std::nullopt,
       .ambiguity = Ambiguity::takeFirst,
       .reconnect = false},
      {.onFrame = [to = arrivals.get()](
                      Reader&, const RcpFrame& frame) { to->frames.emplace_back(frame.bytes); },
       .onValue = [to = arrivals.get()](Reader&,
                                        const NSData& value) { to->frames.push_back(value); },
       .onTrouble = [to = arrivals.get()](Reader&,
                                          const NSError& trouble) { to->trouble = trouble; }},
      error);
  if (!reader) return nullptr;
  const auto isDone = [&] {
    return reader->phase() == ReaderPhase::pluggedIn || reader->phase() == ReaderPhase::closed;
  };
  if (!waitFor(*loop, isDone, limit, ReaderError::notPluggedIn, "the reader was not plugged in",
               error)) {
    return nullptr;
  }
  if (reader->phase() == ReaderPhase::closed) {
    if (error != nullptr) *error = arrivals->trouble;
    return nullptr;
  }
  return std::unique_ptr<BlockingReader>(
      new BlockingReader(std::move(loop), std::move(arrivals), std::move(reader)));
}

bool BlockingReader::isPluggedIn() const noexcept {
  return reader_->phase() == ReaderPhase::pluggedIn;
}

bool BlockingReader::canBeUsed(NSError* error) const {
  if (!isFree(*loop_, error)) return false;
  if (isPluggedIn()) return true;
  tell(error, ReaderError::unplugged, "the reader is unplugged; connect to it again");
  return false;
}

bool BlockingReader::send(const NSData& frame, NSError* error) {
  if (!canBeUsed(error)) return false;
  // Shared: a loop that is stopped leaves the sending to go on.
  const auto outcome = std::make_shared<std::optional<std::optional<NSError>>>();
  reader_->send(frame, [outcome](const std::optional<NSError>& why) { *outcome = why; });
  const auto isDone = [&] { return outcome->has_value(); };
  if (!waitFor(*loop_, isDone, kUntilItsEnd, ReaderError::stopped, "the frame was not sent",
               error)) {
    return false;
  }
  if (!**outcome) return true;
  if (error != nullptr) *error = ***outcome;
  return false;
}

std::optional<NSData> BlockingReader::receive(Time limit, NSError* error) {
  auto& frames = arrivals_->frames;
  if (frames.empty() && !canBeUsed(error)) return std::nullopt;
  const auto isDone = [&] { return !frames.empty() || !isPluggedIn(); };
  if (!isDone() && !waitFor(*loop_, isDone, limit, ReaderError::noAnswer, "no frame came", error)) {
    return std::nullopt;
  }
  if (frames.empty()) {
    tell(error, ReaderError::unplugged, "the reader was unplugged before a frame came");
    return std::nullopt;
  }
  NSData frame = std::move(frames.front());
  frames.pop_front();
  return frame;
}

std::optional<NSData> BlockingReader::exchange(const NSData& frame, Time limit, NSError* error) {
  struct Outcome {
    bool isThere = false;
    std::optional<NSData> answer;
    NSError error;
  };
  if (!isFree(*loop_, error)) return std::nullopt;
  const auto outcome = std::make_shared<Outcome>();
  reader_->exchange(
      frame, limit,
      [outcome](const std::optional<RcpFrame>& answer, const std::optional<NSError>& why) {
        outcome->isThere = true;
        if (answer) outcome->answer.emplace(answer->bytes);
        if (why) outcome->error = *why;
      });
  const auto isDone = [&] { return outcome->isThere; };
  if (!waitFor(*loop_, isDone, kUntilItsEnd, ReaderError::stopped, "no answer came", error)) {
    return std::nullopt;
  }
  if (!outcome->answer && error != nullptr) *error = outcome->error;
  return outcome->answer;
}

bool BlockingReader::close(Time limit, NSError* error) {
  if (!isFree(*loop_, error)) return false;
  const auto isDown = std::make_shared<bool>(false);
  reader_->close([isDown] { *isDown = true; });
  return waitFor(
      *loop_, [&] { return *isDown; }, limit, ReaderError::noAnswer, "the link did not go down",
      error);
}

}  // namespace kestrin
