// What one sync does: what was appended gets onto the disk, and now and then from the write-ahead
// log into the database.
//
// Threads: filled and read on the log's thread, run on any other one between.
// Errors: kept in it.
#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <string>

#include "tools/gateway/files/FileLayer.h"
#include "tools/gateway/log/Claim.h"
#include "tools/gateway/log/Database.h"

namespace kestrin::gateway {

/// What syncing has open besides the log's own connection.
struct SyncSide {
  std::shared_ptr<FileLayer> files;
  std::atomic<bool> failed = false;  ///< Nothing may get from it into the database any more.
  std::string folder;
  std::string databasePath;
  std::string claimPath;
  std::shared_ptr<LogFile> writeAheadLog;  ///< Opened with the first sync.
  bool isNamed = false;                    ///< The file's name is on the disk.
  Database checkpointer;                   ///< Opened when it is first wanted.
};

class SyncWork {
 public:
  void run() noexcept;

  std::shared_ptr<SyncSide> side;
  Claim before;              ///< What is certain before it has run.
  Claim claim;               ///< What is certain when it has run.
  bool checkpoints = false;  ///< Everything gets into the database, if it can.

  bool ran = false;
  bool syncFailed = false;  ///< What the system could not write it may have dropped.
  std::optional<FileError> dataError;
  /// Set before it runs: what could not be written into the log besides the records.
  std::optional<FileError> stateError;

 private:
  std::optional<FileError> sync();
  std::optional<FileError> checkpoint();
};

}  // namespace kestrin::gateway
