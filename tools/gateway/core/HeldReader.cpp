#include "tools/gateway/core/HeldReader.h"

#include "tools/gateway/message/Messages.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace kestrin::gateway {
namespace {

constexpr Time kLookInterval = std::chrono::seconds(1);
// After the first of a name, another one of that name gets this long to be seen.
constexpr Time kSettling = std::chrono::milliseconds(500);
constexpr Time kNotFoundAfter = std::chrono::seconds(30);

// Longer than any name can be: the library also takes a reader for a part of its name, and the
// gateway chooses by itself.
std::string nobody() { return std::string(300, '?'); }

char lowered(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool sameLetters(const std::string& a, const std::string& b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char one, char other) { return lowered(one) == lowered(other); });
}

/// A name from the air, as it can be shown.
std::string shown(const std::string& name) {
  std::string text = "'";
  for (const char c : name) text += c >= 0x20 && c < 0x7F ? c : '?';
  return text + "'";
}

std::string listOf(const std::vector<SeenReader>& readers) {
  std::string text;
  for (const SeenReader& each : readers) {
    text += (text.empty() ? "" : ", ") + shown(each.name) + " (" + each.identifier + ")";
  }
  return text;
}

}  // namespace

HeldReader::HeldReader(const Platform& platform, ReaderConfig config, Handlers handlers)
    : config_(std::move(config)), handlers_(std::move(handlers)), look_(platform.mainRunLoop) {
  NSError error;
  reader_ =
      Reader::create(platform, {.reader = nobody(), .findLimit = std::nullopt, .reconnect = true},
                     readerHandlers(), &error);
  if (!reader_) trouble_ = config_.reader + ": " + error.text;
  lookIn(kLookInterval);
}

ReaderHandlers HeldReader::readerHandlers() {
  return {.onPhase = [this](Reader&, ReaderPhase phase) { enter(phase); },
          .onFrame =
              [this](Reader&, const RcpFrame& frame) {
                handlers_.onData(*this, RecordKind::frame, frame.bytes);
              },
          .onValue =
              [this](Reader&, const NSData& value) {
                handlers_.onData(*this, RecordKind::value, value.span());
              },
          .onTrouble =
              [this](Reader&, const NSError& trouble) {
                // Its own words for a name that nobody has are no use to anybody.
                if (phase() != ReaderPhase::searching) setTrouble(trouble.text);
              },
          .onSeen = [this](Reader&) { lookIn(config_.isAddress ? Time::zero() : kSettling); }};
}

std::string HeldReader::identifier() const {
  return reader_ && !reader_->identifier().empty() ? reader_->identifier() : config_.reader;
}

std::string HeldReader::name() const {
  if (reader_ && !reader_->identifier().empty()) return reader_->name();
  return config_.isAddress ? std::string() : config_.reader;
}

ReaderPhase HeldReader::phase() const { return reader_ ? reader_->phase() : ReaderPhase::closed; }

bool HeldReader::isMeant(const std::string& part) const {
  return sameLetters(part, identifier()) || part == topicPart(identifier()) || part == key() ||
         part == topicPart(key());
}

void HeldReader::enter(ReaderPhase phase) {
  if (phase == ReaderPhase::linkingUp) link_ = handlers_.nextLink();
  if (phase == ReaderPhase::pluggedIn) trouble_.clear();
  if (phase == ReaderPhase::searching || phase == ReaderPhase::connecting) {
    // The radio is back.
    trouble_.clear();
  }
  if (phase == ReaderPhase::searching) {
    searched_ = Time::zero();
    lookIn(kLookInterval);
  }
  handlers_.onChange(*this);
}

void HeldReader::lookIn(Time pause) {
  look_.arm(pause, [this] { look(); });
}

bool HeldReader::fits(const SeenReader& seen) const {
  return config_.isAddress ? sameLetters(seen.identifier, config_.reader)
                           : seen.name == config_.reader;
}

void HeldReader::look() {
  if (phase() != ReaderPhase::searching) return;
  searched_ += kLookInterval;
  lookIn(kLookInterval);
  std::vector<SeenReader> fitting;
  for (const SeenReader& each : reader_->seen()) {
    if (fits(each)) fitting.push_back(each);
  }
  if (fitting.empty()) {
    if (searched_ >= kNotFoundAfter) notFound();
  } else if (fitting.size() > 1) {
    setTrouble("several readers have the name " + shown(config_.reader) + ": " + listOf(fitting) +
               "; name the one that is meant by its address in the configuration");
  } else if (!reader_->choose(fitting.front().identifier)) {
    setTrouble(shown(config_.reader) + " is held by another entry of the configuration; each " +
               "reader is to be named once");
  }
}

void HeldReader::notFound() {
  const auto seen = reader_->seen();
  setTrouble("the reader " + shown(config_.reader) + " is not in range; " +
             (seen.empty() ? "no reader at all is" : "in range were: " + listOf(seen)) +
             "; it is searched for on");
}

void HeldReader::setTrouble(const std::string& trouble) {
  if (trouble == trouble_) return;
  trouble_ = trouble;
  handlers_.onChange(*this);
}

void HeldReader::send(const std::vector<std::uint8_t>& frame, Reader::SendHandler done) {
  if (reader_) reader_->send(NSData(std::span<const std::uint8_t>(frame)), std::move(done));
}

void HeldReader::close(std::function<void()> done) {
  look_.cancel();
  if (reader_) {
    reader_->close(std::move(done));
  } else {
    done();
  }
}

}  // namespace kestrin::gateway
