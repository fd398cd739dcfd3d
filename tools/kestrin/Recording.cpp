#include "tools/kestrin/Recording.h"

#include <span>
#include <utility>

#include "tools/kestrin/Hex.h"

namespace kestrin::app {

NSData Recording::arrival(std::size_t index) const {
  const std::size_t begin = index == 0 ? 0 : ends_[index - 1];
  return NSData(std::span(bytes_).subspan(begin, ends_[index] - begin));
}

std::optional<RecordingError> RecordingReader::take(std::string_view text) {
  for (std::size_t end = text.find('\n'); end != std::string_view::npos; end = text.find('\n')) {
    std::string_view line = text.substr(0, end);
    if (!unfinishedLine_.empty()) {
      unfinishedLine_ += line;
      line = unfinishedLine_;
    }
    if (auto error = takeLine(line)) return error;
    unfinishedLine_.clear();
    text.remove_prefix(end + 1);
  }
  unfinishedLine_ += text;
  return std::nullopt;
}

std::optional<RecordingError> RecordingReader::finish(Recording& recording) {
  if (!unfinishedLine_.empty()) {
    if (auto error = takeLine(unfinishedLine_)) return error;
  }
  recording = std::move(recording_);
  return std::nullopt;
}

std::optional<RecordingError> RecordingReader::takeLine(std::string_view line) {
  ++lines_;
  if (line.starts_with('#')) return std::nullopt;
  if (line.ends_with('\r')) line.remove_suffix(1);
  if (auto error = appendHex(line, recording_.bytes_)) {
    return RecordingError{lines_, error->column, std::move(error->text)};
  }
  recording_.ends_.push_back(recording_.bytes_.size());
  return std::nullopt;
}

}  // namespace kestrin::app
