// Reads a recording from a file or from standard input.
//
// Threads: one at a time.
// Errors: told on the console, with file, line and column.
#pragma once

#include <optional>
#include <string>

#include "tools/kestrin/recording/Recording.h"

namespace kestrin::app {

class Console;

/// The recording in `file`, standard input for `-`; absent when it cannot be read, which has been
/// told. Of one that has been cut comes what is in front of the cut, which has been told too.
std::optional<Recording> readRecordingFile(const std::string& file, Console& console);

}  // namespace kestrin::app
