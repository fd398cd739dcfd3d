// The JSON form of a recording's lines: how each is read. docs/recording.md has it.
//
// Threads: pure functions.
// Errors: text that is no such line is told with its column, what is wrong and what would be right.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "KestrinBLESDK/recording/RecordedEvent.h"

namespace kestrin::app {

inline constexpr std::size_t kLongestRecordLine = std::size_t{1} << 20;
inline constexpr std::size_t kDeepestRecordNesting = 8;

struct RecordLineError {
  /// Counted from 1.
  std::size_t column = 0;
  std::string text;
  /// Whether the line is right as far as it goes: it has been cut.
  bool cut = false;
};

std::variant<RecordedEvent, RecordLineError> readEventLine(std::string_view line);
std::variant<RecordingHeader, RecordLineError> readHeaderLine(std::string_view line);

}  // namespace kestrin::app
