// A disk in memory for a gateway's log: it outlives the gateway, may be full, may have its power
// cut, and may lie about what is on it.
//
// Threads: one. Lifetime: it may go before the files opened on it. Errors: as a file layer's.
#pragma once

#include "tools/gateway/files/FileLayer.h"
#include "tools/gateway/log/Log.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace kestrin::gateway::test {

class DiskFiles;

class Disk {
 public:
  explicit Disk(std::uint64_t seed);

  /// The log in `folder`, which is the only one on the disk.
  std::unique_ptr<Log> open(const std::string& folder, std::uint64_t budget, std::string& error,
                            std::vector<std::string>& findings);
  /// Keeps what was synced, and of what was not whatever a disk may keep: some of the names, and
  /// some of the bytes of each file, the last of them perhaps wrong. No file may be open.
  void cut();
  void setFull(bool full);
  [[nodiscard]] bool isFull() const;
  /// Syncing does nothing and reports success.
  void setLying(bool lying);

 private:
  const std::shared_ptr<DiskFiles> files_;
  const std::uint64_t seed_;
  std::uint64_t logs_ = 0;
};

}  // namespace kestrin::gateway::test
