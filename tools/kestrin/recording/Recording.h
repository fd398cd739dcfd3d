// A recording, in either of its forms; docs/recording.md describes both.
//
// The plain form has what a reader's notifications brought, one arrival per line of hexadecimal
// text. An empty line is an arrival of no bytes, a line that starts with `#` a comment. The other
// form, which `--record` writes, has a JSON object per line; its arrivals are its values.
//
// Threads: one at a time.
// Lifetime: plain values.
// Errors: the first line that is wrong, with its number. A last line of JSON that has been cut is
// no error.
#pragma once

#include <KestrinBLESDK/platform/NSData.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "KestrinBLESDK/recording/RecordedEvent.h"

namespace kestrin::app {

class Recording {
 public:
  /// The arrivals, in order.
  [[nodiscard]] std::size_t size() const noexcept { return ends_.size(); }
  [[nodiscard]] NSData arrival(std::size_t index) const;
  /// Whether the arrival goes to the application as it is: a KVR-Q62T reader's notification.
  [[nodiscard]] bool isRaw(std::size_t index) const { return raw_[index]; }

  /// What the JSON form has besides; absent in the plain form, and in one that was cut before.
  [[nodiscard]] const std::optional<RecordingHeader>& header() const noexcept { return header_; }
  /// In the order of their time. Empty in the plain form.
  [[nodiscard]] const std::vector<RecordedEvent>& events() const noexcept { return events_; }
  [[nodiscard]] bool isJson() const noexcept { return json_; }
  /// The number of the last line, when it has been cut; it is left out.
  [[nodiscard]] const std::optional<std::size_t>& cutLine() const noexcept { return cutLine_; }

 private:
  friend class RecordingReader;
  void addArrival(const RecordedEvent& event);

  std::vector<std::uint8_t> bytes_;  // Of all arrivals.
  std::vector<std::size_t> ends_;    // Where each ends.
  std::vector<bool> raw_;
  bool json_ = false;
  std::optional<RecordingHeader> header_;
  std::vector<RecordedEvent> events_;
  std::optional<std::size_t> cutLine_;
};

/// What is wrong with a recording, and where; both places are counted from 1.
struct RecordingError {
  std::size_t line = 0;
  std::size_t column = 0;
  std::string text;
};

/// Reads a recording from pieces of text of any size.
class RecordingReader {
 public:
  /// Takes the next piece; returns what is wrong in it. After an error the reader is done with.
  std::optional<RecordingError> take(std::string_view text);
  /// Takes the end of the text, which may have come without a line end, and hands the recording
  /// over.
  std::optional<RecordingError> finish(Recording& recording);

 private:
  std::optional<RecordingError> takeLine(std::string_view line, bool last);
  std::optional<RecordingError> takePlainLine(std::string_view line);
  std::optional<RecordingError> takeJsonLine(std::string_view line, bool last);
  std::optional<RecordingError> takeEvent(RecordedEvent event, std::string_view line);
  [[nodiscard]] std::optional<RecordingError> checkUnfinished() const;

  Recording recording_;
  std::string unfinishedLine_;
  std::size_t lines_ = 0;
  bool begun_ = false;
};

}  // namespace kestrin::app
