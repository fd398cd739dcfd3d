// A disk that can lose its power. It knows what was written and what of that was synced, and makes
// from the difference what a real disk may hold after a cut. It refuses as a real one does, too.
//
// Threads: one. Lifetime: files share what they need of the disk.
// Errors: those that `faults` asks for, and what a file system refuses anyway.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "tools/gateway/files/FileLayer.h"

namespace kestrin::test {

/// How likely each fault is, from 0 to 1.
struct DiskFaults {
  double shortWrite = 0;  ///< Some of the bytes are written, then ENOSPC.
  double write = 0;       ///< None is, EIO.
  double truncate = 0;    ///< EIO.
  double sync = 0;  ///< EIO. What was not on the disk may never get there; nobody says so again.
  double forgetPages =
      0;             ///< With a sync that fails: the file reads as it is on the disk from then on.
  double entry = 0;  ///< Creating, renaming, removing: ENOSPC.
};

class ModelFiles final : public gateway::FileLayer {
 public:
  explicit ModelFiles(std::uint64_t seed);
  ~ModelFiles() override;

  DiskFaults faults;
  /// Called after every change and every sync.
  std::function<void()> changed;

  /// What the disk holds if its power fails now. What was synced is there. Of the rest each write
  /// is there, or not, or in part, or with its later pages only, and so is each name.
  [[nodiscard]] std::shared_ptr<ModelFiles> afterCut(std::uint64_t seed) const;
  /// The same disk under another process; nothing is lost.
  [[nodiscard]] std::shared_ptr<ModelFiles> afterKill() const;
  /// Bytes of all files.
  [[nodiscard]] std::uint64_t used() const;

  std::shared_ptr<gateway::LogFile> open(const std::string& path, bool create,
                                         gateway::FileError& error) override;
  std::optional<gateway::FileError> makeFolder(const std::string& path) override;
  std::optional<gateway::FileError> list(const std::string& folder,
                                         std::vector<std::string>& names) override;
  std::optional<gateway::FileError> rename(const std::string& from, const std::string& to) override;
  std::optional<gateway::FileError> remove(const std::string& path) override;
  std::optional<gateway::FileError> syncFolder(const std::string& folder) override;
  std::shared_ptr<void> lock(const std::string& folder, gateway::FileError& error) override;

 private:
  struct Node;
  class File;
  using Names = std::map<std::string, std::shared_ptr<Node>>;
  /// A name that is changed: what it names then, if anything.
  struct NameChange {
    std::vector<std::pair<std::string, std::shared_ptr<Node>>> names;
  };

  bool chance(double likely);
  void tell() const;
  std::optional<gateway::FileError> changeNames(NameChange change);
  static void apply(Names& names, const NameChange& change);

  std::mt19937_64 random_;
  Names names_;
  Names stableNames_;
  std::vector<NameChange> unsyncedNames_;
  std::set<std::string> folders_;
  std::map<std::string, std::weak_ptr<void>> locks_;
};

}  // namespace kestrin::test
