#include "tools/gateway/core/Publisher.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace kestrin::gateway {
namespace {

constexpr std::size_t kBatch = 100;
constexpr std::size_t kBatchBytes = 256U << 10U;
constexpr std::size_t kLastGaps = 20;
constexpr Time kPauseAfterReadError = std::chrono::seconds(5);

}  // namespace

Publisher::Publisher(std::weak_ptr<RunLoop> loop, Log& log, Window& window, Troubles& troubles,
                     const How& how)
    : log_(log),
      window_(window),
      troubles_(troubles),
      topics_(how.gateway),
      format_(how.format),
      readAgain_(std::move(loop)),
      // An earlier run may have published everything that it has left in the log.
      published_(log.next() - 1),
      settled_(log.forgotten()) {
  restart(log.forgotten() + 1);
}

void Publisher::restart(RecordNumber number) {
  const RecordNumber from = std::max(number, log_.first());
  settled_ = std::max(settled_, log_.first() - 1);
  waiting_.clear();
  batch_.clear();
  // What lies between is not settled by what comes behind it.
  heldBack_ = from > settled_ + 1;
  refusedInARow_ = 0;
  if (refusedFrom_ < from) refusedFrom_.reset();
  goal_ = log_.synced();
  cursor_ = from;
}

void Publisher::goBack(RecordNumber number) {
  if (number < cursor_) restart(number);
}

bool Publisher::hasCaughtUp() const noexcept {
  return cursor_ > goal_ || refusedInARow_ >= window_.size();
}

void Publisher::disconnected() { waiting_.clear(); }

void Publisher::pump() {
  while (!stopped_ && window_.hasRoom() && publishNext()) {
  }
}

bool Publisher::publishNext() {
  // Where everything is refused, the next attempt comes with a restart.
  if (refusedInARow_ >= window_.size()) return false;
  if (batch_.empty() && !fillBatch()) return false;
  const Record& record = batch_.front();
  const auto id = window_.publish(messageOf(record));
  if (!id) return false;
  if (record.kind == RecordKind::gap) noteGap(record);
  waiting_.push_back({*id, record.number});
  cursor_ = record.number + 1;
  published_ = std::max(published_, record.number);
  batch_.pop_front();
  return true;
}

void Publisher::noteGap(const Record& record) {
  if (!lastGaps_.empty() && record.number <= lastGaps_.back().number) return;
  ++gapCount_;
  lastGaps_.push_back(record);
  if (lastGaps_.size() > kLastGaps) lastGaps_.pop_front();
}

bool Publisher::fillBatch() {
  const RecordNumber synced = log_.synced();
  if (cursor_ > synced || readAgain_.isArmed()) return false;
  std::vector<Record> records;
  const auto error = log_.read(cursor_, kBatch, kBatchBytes, records);
  for (Record& record : records) {
    if (record.number <= synced) batch_.push_back(std::move(record));
  }
  if (!batch_.empty()) return true;
  if (error) {
    readFailed(error->text);
  } else {
    // What is missing here is lost, as a gap record says that comes later or has come.
    cursor_ = synced + 1;
  }
  return false;
}

void Publisher::readFailed(const std::string& why) {
  troubles_.note("read", {"the log cannot be read from number " + std::to_string(cursor_) +
                              " on; it is tried again: " + why,
                          cursor_});
  readAgain_.arm(kPauseAfterReadError, [this] { pump(); });
}

Message Publisher::messageOf(const Record& record) const {
  Message message;
  message.topic =
      record.kind == RecordKind::gap ? topics_.gap() : topics_.readerFrame(record.reader);
  message.payload = payloadOf(record, log_.identity(), format_);
  message.contentType = format_ == FrameFormat::json ? "application/json" : "application/cbor";
  return message;
}

bool Publisher::acknowledged(PublishId id, const std::optional<std::string>& refused) {
  const auto found = std::find_if(waiting_.begin(), waiting_.end(),
                                  [id](const Waiting& each) { return each.id == id; });
  if (found == waiting_.end()) return false;
  found->answered = true;
  found->refused = refused.has_value();
  answered_ = std::max(answered_, found->number);
  if (refused) {
    takeRefusal(found->number, *refused);
  } else {
    takeAcceptance(found->number);
  }
  settle();
  return true;
}

void Publisher::takeRefusal(RecordNumber number, const std::string& why) {
  ++refusedInARow_;
  // One line for all of them: a number of its own would make each of them news.
  refusedFrom_ = std::min(refusedFrom_.value_or(number), number);
  troubles_.note("refused records",
                 {"the broker refuses records, from number " + std::to_string(*refusedFrom_) +
                      " on; they are kept and published again: " + why,
                  *refusedFrom_});
}

void Publisher::takeAcceptance(RecordNumber number) {
  refusedInARow_ = 0;
  if (refusedFrom_ != number) return;
  refusedFrom_.reset();
  troubles_.clear("refused records");
}

void Publisher::settle() {
  while (!waiting_.empty() && waiting_.front().answered) {
    if (waiting_.front().refused) heldBack_ = true;
    if (!heldBack_) settled_ = std::max(settled_, waiting_.front().number);
    waiting_.pop_front();
  }
}

}  // namespace kestrin::gateway
