// What one sync does, in the order on which the log's promise rests: records, then the state, then
// what may go, the oldest first.
//
// Threads: filled and read on the log's thread, run on any other one between.
// Errors: kept in it. After one of the records' only what nobody needs any more still goes: on a
// full disk that is where room comes from.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/gateway/files/FileLayer.h"
#include "tools/gateway/log/Format.h"

namespace kestrin::gateway {

class SyncWork {
 public:
  void run() noexcept;

  std::shared_ptr<FileLayer> files;
  std::string folder;

  std::vector<std::shared_ptr<LogFile>> unsynced;
  bool folderChanged = false;
  RecordNumber upTo = 0;
  std::optional<Bytes> state;
  std::vector<std::string> removals;
  std::size_t unneeded = 0;  ///< The first so many of them may go whatever becomes of the records.

  bool ran = false;
  std::optional<FileError> dataError;
  std::optional<FileError> stateError;
  std::size_t removed = 0;  ///< How many of `removals` are gone.

 private:
  std::optional<FileError> syncData();
  void removeSome(std::size_t most);
};

/// Puts the state on the disk: the old one or the new one is there at any moment.
std::optional<FileError> replaceState(FileLayer& files, const std::string& folder,
                                      const Bytes& state);

}  // namespace kestrin::gateway
