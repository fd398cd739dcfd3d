#include "tools/gateway/log/SyncWork.h"

#include "tools/gateway/log/LogFolder.h"

namespace kestrin::gateway {

void SyncWork::run() noexcept {
  ran = true;
  // Where they have to be written once more first, this claims nothing; a power cut costs less.
  const auto failed = syncData();
  if (!dataError) dataError = failed;
  if (dataError) return removeSome(unneeded);
  if (state) stateError = replaceState(*files, folder, *state);
  removeSome(removals.size());
}

std::optional<FileError> SyncWork::syncData() {
  for (const auto& file : unsynced) {
    if (auto error = file->sync()) return error;
  }
  return folderChanged ? files->syncFolder(folder) : std::nullopt;
}

// A segment is off the disk before the next one goes, so that no power cut leaves an older one
// behind a newer one that is missing: that would look like damage. This needs no state, which a
// full disk may have refused.
void SyncWork::removeSome(std::size_t most) {
  while (removed < most) {
    const std::string& path = removals[removed];
    FileError error;
    const bool there = files->open(path, false, error) != nullptr;
    if (there && files->remove(path)) return;
    if (files->syncFolder(folder)) return;
    ++removed;
  }
}

namespace {

std::optional<FileError> writeTo(FileLayer& files, const std::string& path, const Bytes& bytes) {
  FileError error;
  if (files.open(path, false, error)) {
    if (auto failed = files.remove(path)) return failed;
  }
  const auto file = files.open(path, true, error);
  if (!file) return error;
  if (auto failed = file->append(bytes)) return failed;
  return file->sync();
}

}  // namespace

std::optional<FileError> replaceState(FileLayer& files, const std::string& folder,
                                      const Bytes& state) {
  const std::string path = folder + "/" + kNewStateName;
  if (auto failed = writeTo(files, path, state)) {
    // On a full disk what is there of it would stand in the way of the records.
    [[maybe_unused]] const auto left = files.remove(path);
    return failed;
  }
  if (auto failed = files.rename(path, folder + "/" + kStateName)) return failed;
  return files.syncFolder(folder);
}

}  // namespace kestrin::gateway
