#include "tools/kestrin/recording/Recording.h"

#include <span>
#include <utility>
#include <variant>

#include "tools/kestrin/recording/JsonPlaces.h"
#include "tools/kestrin/recording/RecordedEventJson.h"
#include "tools/kestrin/text/Hex.h"
#include "tools/kestrin/text/Seconds.h"

namespace kestrin::app {

NSData Recording::arrival(std::size_t index) const {
  const std::size_t begin = index == 0 ? 0 : ends_[index - 1];
  return NSData(std::span(bytes_).subspan(begin, ends_[index] - begin));
}

/// Routes a value as the manager does, see docs/link.md.
void Recording::addArrival(const RecordedEvent& event) {
  const bool answered = event.kind == RecordedKind::subscription;
  const bool value =
      event.kind == RecordedKind::notification || event.kind == RecordedKind::readValue;
  if ((!answered && !value) || !event.bytes) return;
  // A value's error ends its handling, that of a subscription does not.
  if (value && (event.error || event.characteristic == "2A29")) return;
  bytes_.insert(bytes_.end(), event.bytes->begin(), event.bytes->end());
  ends_.push_back(bytes_.size());
  raw_.push_back(value && event.name && event.name->starts_with("KVR-Q62T"));
}

std::optional<RecordingError> RecordingReader::take(std::string_view text) {
  if (!begun_ && !text.empty()) {
    begun_ = true;
    // No line of the plain form that is right begins like that.
    recording_.json_ = text.front() == '{';
  }
  for (std::size_t end = text.find('\n'); end != std::string_view::npos; end = text.find('\n')) {
    std::string_view line = text.substr(0, end);
    if (!unfinishedLine_.empty()) {
      unfinishedLine_ += line;
      line = unfinishedLine_;
    }
    if (auto error = takeLine(line, false)) return error;
    unfinishedLine_.clear();
    text.remove_prefix(end + 1);
  }
  unfinishedLine_ += text;
  return checkUnfinished();
}

/// A line without an end must not fill the memory.
std::optional<RecordingError> RecordingReader::checkUnfinished() const {
  if (!recording_.json_ || unfinishedLine_.size() <= kLongestRecordLine + 1) return std::nullopt;
  auto read = readEventLine(unfinishedLine_);
  auto& error = std::get<RecordLineError>(read);
  return RecordingError{lines_ + 1, error.column, std::move(error.text)};
}

std::optional<RecordingError> RecordingReader::finish(Recording& recording) {
  if (!unfinishedLine_.empty()) {
    if (auto error = takeLine(unfinishedLine_, true)) return error;
  }
  recording = std::move(recording_);
  return std::nullopt;
}

std::optional<RecordingError> RecordingReader::takeLine(std::string_view line, bool last) {
  ++lines_;
  return recording_.json_ ? takeJsonLine(line, last) : takePlainLine(line);
}

std::optional<RecordingError> RecordingReader::takePlainLine(std::string_view line) {
  if (line.starts_with('#')) return std::nullopt;
  if (line.ends_with('\r')) line.remove_suffix(1);
  if (auto error = appendHex(line, recording_.bytes_)) {
    return RecordingError{lines_, error->column, std::move(error->text)};
  }
  recording_.ends_.push_back(recording_.bytes_.size());
  recording_.raw_.push_back(false);
  return std::nullopt;
}

std::optional<RecordingError> RecordingReader::takeJsonLine(std::string_view line, bool last) {
  if (line.ends_with('\r')) line.remove_suffix(1);
  std::optional<RecordLineError> error;
  if (lines_ == 1) {
    auto read = readHeaderLine(line);
    if (auto* const header = std::get_if<RecordingHeader>(&read)) {
      recording_.header_ = std::move(*header);
      return std::nullopt;
    }
    error = std::move(std::get<RecordLineError>(read));
  } else {
    auto read = readEventLine(line);
    if (auto* const event = std::get_if<RecordedEvent>(&read)) {
      return takeEvent(std::move(*event), line);
    }
    error = std::move(std::get<RecordLineError>(read));
  }
  if (last && error->cut) {
    recording_.cutLine_ = lines_;
    return std::nullopt;
  }
  return RecordingError{lines_, error->column, std::move(error->text)};
}

std::optional<RecordingError> RecordingReader::takeEvent(RecordedEvent event,
                                                         std::string_view line) {
  if (!recording_.events_.empty() && event.time < recording_.events_.back().time) {
    return RecordingError{lines_, JsonPlaces(line).columnOf("time"),
                          "the time goes back, from " +
                              secondsText(recording_.events_.back().time) + " s to " +
                              secondsText(event.time) + " s; a recording is in order of time"};
  }
  recording_.addArrival(event);
  recording_.events_.push_back(std::move(event));
  return std::nullopt;
}

}  // namespace kestrin::app
