#include "tools/gateway/log/SyncWork.h"

#include <cerrno>

namespace kestrin::gateway {

void SyncWork::run() noexcept {
  ran = true;
  if (dataError) return;
  dataError = sync();
  syncFailed = dataError.has_value();
  // One that has failed on the log's own thread is not said a second time.
  if (!dataError && side->failed)
    dataError = FileError{EIO, side->databasePath + ": cannot be synced"};
  if (!dataError && checkpoints) {
    const auto failed = checkpoint();
    // It syncs as well, what came meanwhile too.
    if (failed && failed->number != ENOSPC && failed->number != EBUSY) syncFailed = true;
  }
  if (syncFailed) side->failed = true;
  Claim certain = dataError ? before : claim;
  certain.isDoubtful = before.isDoubtful || syncFailed;
  writeClaim(*side->files, side->claimPath, certain);
}

std::optional<FileError> SyncWork::sync() {
  if (!side->writeAheadLog) {
    FileError failed;
    side->writeAheadLog = side->files->open(side->databasePath + "-wal", false, failed);
    if (!side->writeAheadLog) return failed;
  }
  if (auto failed = side->writeAheadLog->sync()) return failed;
  // The file may be a new one, whose name nothing has synced yet.
  if (side->isNamed) return std::nullopt;
  auto failed = side->files->syncFolder(side->folder);
  side->isNamed = !failed;
  return failed;
}

std::optional<FileError> SyncWork::checkpoint() {
  Database& database = side->checkpointer;
  if (!database.isOpen()) {
    auto failed = database.open(side->databasePath, SQLITE_OPEN_READWRITE, side->files->vfs());
    if (failed) return failed;
  }
  // A connection that has read nothing does not know that there is a write-ahead log.
  std::int64_t format = 0;
  if (auto failed = database.ask("PRAGMA user_version", format)) return failed;
  return database.checkpoint();
}

}  // namespace kestrin::gateway
