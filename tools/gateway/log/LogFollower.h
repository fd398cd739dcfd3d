// Follows a log's folder from outside: what has come since the last look, also over the end of one
// log and the beginning of another.
//
// Each look opens the log, reads and closes it again, so that nothing of it is held in between.
//
// Threads: one. Lifetime: shares its file layer. Errors: one line for a person; the next look goes
// on where the last one that read anything has ended.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tools/gateway/files/FileLayer.h"
#include "tools/gateway/log/Record.h"

namespace kestrin::gateway {

class LogFollower {
 public:
  /// Before the first look it stands before `from`, or where that is absent before the last ten
  /// records.
  LogFollower(std::shared_ptr<FileLayer> files, std::string folder,
              std::optional<RecordNumber> from)
      : files_(std::move(files)), folder_(std::move(folder)), from_(from) {}

  struct Seen {
    LogIdentity log;
    std::vector<Record> records;
    std::vector<std::string> notes;  ///< What is not among the records, and why; a line each.
    bool isMore = false;             ///< There is more to read at once.
  };
  /// At most some hundred records at once. Absent: there is no log, or it cannot be read.
  std::optional<Seen> look(std::string& error);

 private:
  const std::shared_ptr<FileLayer> files_;
  const std::string folder_;
  const std::optional<RecordNumber> from_;
  std::optional<LogIdentity> log_;
  RecordNumber next_ = 1;
};

}  // namespace kestrin::gateway
