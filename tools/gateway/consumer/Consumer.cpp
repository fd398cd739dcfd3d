#include "tools/gateway/consumer/Consumer.h"

#include "tools/gateway/message/LogStanding.h"

#include <algorithm>
#include <utility>

namespace kestrin::gateway {
namespace {

constexpr std::size_t kLongestName = 64;
constexpr unsigned kMostTicksBetween = 32;

/// What is wrong with the numbers of a record, and what would be right.
std::optional<std::string> complaintOf(const Record& record) {
  const auto isNumber = [](RecordNumber n) { return n >= 1 && n <= Stream::kLastNumber; };
  if (!isNumber(record.number)) {
    return "n is " + std::to_string(record.number) + "; right are 1 to " +
           std::to_string(Stream::kLastNumber);
  }
  if (!record.gap) return std::nullopt;
  const Gap& gap = *record.gap;
  if (isNumber(gap.from) && isNumber(gap.to) && gap.from <= gap.to) return std::nullopt;
  return "the gap is from " + std::to_string(gap.from) + " to " + std::to_string(gap.to) +
         "; right are two numbers from 1 on, the higher one last";
}

bool isNameCharacter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
         c == '-';
}

}  // namespace

std::optional<std::string> nameComplaint(std::string_view name) {
  if (name.empty()) return "is empty; right are 1 to 64 of A-Z a-z 0-9 _ -";
  if (name.size() > kLongestName) {
    return "has " + std::to_string(name.size()) + " characters; right are 1 to 64";
  }
  if (std::all_of(name.begin(), name.end(), isNameCharacter)) return std::nullopt;
  return "has other characters than A-Z a-z 0-9 _ -";
}

Consumer::Consumer(std::string gateway, std::string name, Handlers handlers)
    : Consumer(std::move(gateway), std::move(name), std::move(handlers), Limits()) {}

Consumer::Consumer(std::string gateway, std::string name, Handlers handlers, Limits limits)
    : gateway_(std::move(gateway)),
      name_(std::move(name)),
      topics_(gateway_),
      handlers_(std::move(handlers)),
      limits_(limits) {}

std::vector<std::string> Consumer::filters() const {
  std::vector<std::string> filters = topics_.deliveryFilters();
  filters.push_back(topics_.info());
  filters.push_back(topics_.health());
  return filters;
}

void Consumer::connected() {
  commit(true);
  askAtStanding_ = true;
  missingAt_ = 0;
}

void Consumer::take(const Message& message) {
  if (message.topic == topics_.info() || message.topic == topics_.health()) {
    takeStanding(message);
  } else {
    takeDelivery(message);
  }
}

void Consumer::tick() {
  for (auto& [log, known] : logs_) handOut(log, known.stream);
  commit(std::exchange(commitAgain_, false));
  askAgain();
}

std::map<LogIdentity, RecordNumber> Consumer::saved() const {
  std::map<LogIdentity, RecordNumber> saved;
  for (const auto& [log, known] : logs_) saved.emplace(log, known.stream.next());
  return saved;
}

void Consumer::restore(const std::map<LogIdentity, RecordNumber>& saved) {
  logs_.clear();
  current_.reset();
  stated_ = false;
  for (const auto& [log, next] : saved) {
    logs_.emplace(log, Known{Stream(log, limits_.waiting, next)});
  }
}

Consumer::Known& Consumer::known(const LogIdentity& log) {
  auto found = logs_.find(log);
  if (found == logs_.end()) {
    makeRoom();
    found = logs_.emplace(log, Known{Stream(log, limits_.waiting, std::nullopt)}).first;
  }
  found->second.used = ++uses_;
  return found->second;
}

void Consumer::makeRoom() {
  while (logs_.size() >= std::max<std::size_t>(limits_.logs, 2)) {
    auto oldest = logs_.end();
    for (auto each = logs_.begin(); each != logs_.end(); ++each) {
      if (each->first == current_) continue;
      if (oldest == logs_.end() || each->second.used < oldest->second.used) oldest = each;
    }
    logs_.erase(oldest);
  }
}

void Consumer::takeDelivery(const Message& message) {
  std::string error;
  const auto delivery = deliveryOf(message.payload, error);
  if (!delivery) {
    trouble(message.topic + ": " + error);
    return;
  }
  if (const auto wrong = complaintOf(delivery->record)) {
    trouble(message.topic + ": " + *wrong);
    return;
  }
  // As long as the gateway has not said which log is its own, the newest one is.
  if (!current_ || (!stated_ && !logs_.contains(delivery->log))) use(delivery->log, false);
  Stream& stream = known(delivery->log).stream;
  if (stream.arrive(delivery->record) == Stream::Arrival::repeat) {
    ++repeats_;
    // The gateway may not have the last commit.
    if (delivery->log == current_) commitAgain_ = true;
  }
  handOut(delivery->log, stream);
}

void Consumer::takeStanding(const Message& message) {
  std::string error;
  const auto standing = logStandingOf(message.payload, error);
  if (!standing) {
    trouble(message.topic + ": " + error);
    return;
  }
  use(standing->log, true);
  Stream& stream = known(standing->log).stream;
  stream.beginAt(std::min(standing->first, Stream::kLastNumber), GapReason::budget);
  stream.knowOf(std::min(standing->published, Stream::kLastNumber));
  handOut(standing->log, stream);
  if (std::exchange(askAtStanding_, false)) ask();
}

void Consumer::use(const LogIdentity& log, bool stated) {
  stated_ = stated;
  if (current_ == log) return;
  current_ = log;
  committed_ = 0;
  missingAt_ = 0;
}

// A gap record of the current log about the log before it.
void Consumer::loseOf(const Gap& gap) {
  const auto found = logs_.find(gap.log);
  if (found == logs_.end()) {
    report(gap);
    return;
  }
  found->second.stream.beginAt(std::min(gap.to, Stream::kLastNumber) + 1, gap.reason);
  handOut(gap.log, found->second.stream);
}

void Consumer::handOut(const LogIdentity& log, Stream& stream) {
  while (handOutOne(log, stream)) {
  }
}

bool Consumer::handOutOne(const LogIdentity& log, Stream& stream) {
  if (const auto lost = stream.takeLost()) {
    report(*lost);
    return true;
  }
  const Record* const record = stream.ready();
  if (record == nullptr) return false;
  if (handlers_.onRecord && !handlers_.onRecord(log, *record)) return false;
  ++taken_;
  const std::optional<Gap> gap = record->gap;
  const auto lost = stream.pass();
  if (gap && gap->log != log) {
    loseOf(*gap);
  } else if (lost) {
    report(*lost);
  }
  return true;
}

void Consumer::report(const Gap& lost) {
  lost_ += lost.to - lost.from + 1;
  if (handlers_.onGap) handlers_.onGap(lost.log, lost);
}

void Consumer::commit(bool again) {
  if (!current_) return;
  const auto found = logs_.find(*current_);
  if (found == logs_.end()) return;
  const RecordNumber done = found->second.stream.next() - 1;
  if (done == 0 || (done == committed_ && !again)) return;
  committed_ = done;
  Message message;
  message.topic = topics_.commit(name_);
  message.payload = textOf(Commit{*current_, done});
  message.retain = true;
  if (handlers_.publish) handlers_.publish(message);
}

void Consumer::ask() {
  if (!current_) return;
  Message message;
  message.topic = topics_.replay();
  message.payload = textOf(Replay{*current_, known(*current_).stream.next(), name_});
  if (handlers_.publish) handlers_.publish(message);
}

void Consumer::askAgain() {
  if (std::exchange(askAtStanding_, false)) ask();
  if (!current_) return;
  const Stream& stream = known(*current_).stream;
  if (!stream.missing()) {
    missingAt_ = 0;
    return;
  }
  if (missingAt_ != stream.next()) {
    // It may be on its way still.
    missingAt_ = stream.next();
    ticksBetween_ = 1;
    ticksToAsk_ = 1;
    return;
  }
  if (--ticksToAsk_ > 0) return;
  ask();
  ticksBetween_ = std::min(ticksBetween_ * 2, kMostTicksBetween);
  ticksToAsk_ = ticksBetween_;
}

void Consumer::trouble(const std::string& text) {
  if (handlers_.onTrouble) handlers_.onTrouble(text);
}

}  // namespace kestrin::gateway
