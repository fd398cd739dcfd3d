// Where the records of a log are written out to: a table of commas, lines of JSON, or a database.
//
// Threads: one.
// Lifetime: what was written without `finish` is not complete.
// Errors: one line for a person; nothing is written after one.
#pragma once

#include <optional>
#include <string>

#include "tools/gateway/log/Log.h"

namespace kestrin::gateway {

enum class ExportForm { csv, jsonLines, sqlite };

class RecordWriter {
 public:
  RecordWriter() = default;
  virtual ~RecordWriter() = default;
  RecordWriter(const RecordWriter&) = delete;
  RecordWriter& operator=(const RecordWriter&) = delete;

  [[nodiscard]] virtual std::optional<std::string> write(const LogIdentity& log,
                                                         const Record& record) = 0;
  /// Everything is in the file, and the file on the disk, when it returns without an error.
  [[nodiscard]] virtual std::optional<std::string> finish() = 0;
};

}  // namespace kestrin::gateway
