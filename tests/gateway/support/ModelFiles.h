// A disk that can lose its power. It knows what was written and what of that was synced, and makes
// from the difference what a real disk may hold after a cut. It refuses as a real one does, too.
//
// It is a file layer, and a file system for SQLite over the same names, see `vfs`. There it acts as
// SQLite's own one for Unix: after the first sync of a new journal or write-ahead log it syncs the
// folder, and does not say so when that fails. What connections share lies in memory and has no
// name on the disk.
//
// Threads: one at a time for one disk, `changed` included, with its files and its connections of
// SQLite's; different disks may be used on different threads. Lifetime: the disk outlives its
// files and connections. Errors: those that `faults`, `full` and `lying` ask for, and what a file
// system refuses anyway.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "gateway/support/ModelContent.h"
#include "gateway/support/ModelVfsDisk.h"
#include "tools/gateway/files/FileLayer.h"

namespace kestrin::test {

class ModelVfs;

/// How likely each fault is, from 0 to 1.
struct DiskFaults {
  double shortWrite = 0;  ///< Some of the bytes are written, then ENOSPC.
  double write = 0;       ///< None is, EIO.
  double truncate = 0;    ///< EIO.
  double read = 0;        ///< EIO.
  double sync = 0;  ///< EIO. What was not on the disk may never get there; nobody says so again.
  double forgetPages =
      0;             ///< With a sync that fails: the file reads as it is on the disk from then on.
  double entry = 0;  ///< Creating, renaming, removing: ENOSPC.
};

class ModelFiles final : public gateway::FileLayer, public ModelVfsDisk {
 public:
  explicit ModelFiles(std::uint64_t seed);
  ~ModelFiles() override;

  DiskFaults faults;
  /// Files cannot grow and none can be made: ENOSPC. What is there may be written over, and what
  /// has been removed meanwhile makes room.
  bool full = false;
  /// Syncing does nothing and reports success.
  bool lying = false;
  /// Called after every change and every sync.
  std::function<void()> changed;

  /// What the disk holds if its power fails now. What was synced is there. Of the rest each write
  /// is there, or not, or some sectors of it are, perhaps with anything in them; and so is each
  /// name or not.
  [[nodiscard]] std::shared_ptr<ModelFiles> afterCut(std::uint64_t seed) const;
  /// The same disk under another process; nothing is lost.
  [[nodiscard]] std::shared_ptr<ModelFiles> afterKill() const;
  /// Bytes of all files.
  [[nodiscard]] std::uint64_t used() const;
  /// A byte of a file goes wrong on the disk: the bits in `mask` change. False: it has no such
  /// byte.
  bool damage(const std::string& path, std::uint64_t offset, std::uint8_t mask);

  std::shared_ptr<gateway::LogFile> open(const std::string& path, bool create,
                                         gateway::FileError& error) override;
  std::optional<gateway::FileError> makeFolder(const std::string& path) override;
  std::optional<gateway::FileError> list(const std::string& folder,
                                         std::vector<std::string>& names) override;
  std::optional<gateway::FileError> rename(const std::string& from, const std::string& to) override;
  std::optional<gateway::FileError> remove(const std::string& path) override;
  std::optional<gateway::FileError> syncFolder(const std::string& folder) override;
  [[nodiscard]] std::string vfs() const override;
  std::shared_ptr<void> lock(const std::string& folder, gateway::FileError& error) override;

  std::shared_ptr<ModelVfsFile> openFile(const std::string& path, bool create,
                                         gateway::FileError& error) override;
  std::shared_ptr<ModelVfsFile> temporaryFile() override;
  [[nodiscard]] bool isFile(const std::string& path) const override;
  [[nodiscard]] bool isFilled(const std::string& path) const override;
  [[nodiscard]] bool isFolder(const std::string& path) const;

 private:
  class File;
  struct Node;
  using Names = std::map<std::string, std::shared_ptr<Node>>;
  /// A name in a folder.
  struct Place {
    std::shared_ptr<Node> folder;
    std::string name;
  };
  /// What names name from then on, if anything; all of them at once.
  struct NameChange {
    std::vector<std::pair<Place, std::shared_ptr<Node>>> names;
  };
  struct Copying;

  bool chance(double likely);
  void tell() const;
  [[nodiscard]] std::shared_ptr<Node> find(const std::string& path) const;
  [[nodiscard]] std::optional<Place> placeOf(const std::string& path) const;
  std::optional<gateway::FileError> changeNames(const std::string& path, bool makes,
                                                NameChange change);
  std::optional<gateway::FileError> syncNames(const std::string& path, const Node& folder);

  std::uint64_t freed_ = 0;  // What was removed from the full disk, and not written again.
  std::mt19937_64 random_;
  std::shared_ptr<Node> root_;
  std::vector<NameChange> unsyncedNames_;
  std::map<std::string, std::weak_ptr<void>> locks_;
  std::unique_ptr<ModelVfs> vfs_;
};

}  // namespace kestrin::test
