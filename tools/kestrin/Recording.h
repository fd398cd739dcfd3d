// Recorded arrivals: what a reader's notifications brought, one arrival per line of hexadecimal
// text. An empty line is an arrival of no bytes, a line that starts with `#` a comment.
//
// Threads: one at a time.
// Lifetime: plain values.
// Errors: the first line that is wrong, with its number.
#pragma once

#include <KestrinBLESDK/platform/NSData.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kestrin::app {

/// The arrivals, in order.
class Recording {
 public:
  [[nodiscard]] std::size_t size() const noexcept { return ends_.size(); }
  [[nodiscard]] NSData arrival(std::size_t index) const;

 private:
  friend class RecordingReader;
  std::vector<std::uint8_t> bytes_;  // Of all arrivals.
  std::vector<std::size_t> ends_;    // Where each ends.
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
  /// Takes the next piece; answers what is wrong in it. After an error the reader is done with.
  std::optional<RecordingError> take(std::string_view text);
  /// Takes the end of the text, which may have come without a line end, and hands the arrivals
  /// over.
  std::optional<RecordingError> finish(Recording& recording);

 private:
  std::optional<RecordingError> takeLine(std::string_view line);

  Recording recording_;
  std::string unfinishedLine_;
  std::size_t lines_ = 0;
};

}  // namespace kestrin::app
