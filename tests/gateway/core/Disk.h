// The model disk under a gateway's log: it outlives the gateway, may be full, may have its power
// cut, and may lie about what is on it.
//
// Threads: one. Lifetime: a log shares what it needs of it. Errors: as a file layer's.
#pragma once

#include "gateway/support/ModelFiles.h"
#include "tools/gateway/log/Log.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace kestrin::gateway::test {

class Disk {
 public:
  explicit Disk(std::uint64_t seed);

  std::unique_ptr<Log> open(const std::string& folder, std::uint64_t budget, std::string& error,
                            std::vector<std::string>& findings);
  /// The process that has a log open is killed; what its log does from then on changes nothing.
  void kill();
  /// Keeps what was synced, and of what was not whatever a disk may keep. The same holds for a log
  /// that is open.
  void cut();
  void setFull(bool full) { files_->full = full; }
  [[nodiscard]] bool isFull() const { return files_->full; }
  /// Nothing can be written.
  void setBroken(bool broken) { files_->faults.write = broken ? 1 : 0; }
  [[nodiscard]] bool isBroken() const { return files_->faults.write > 0; }
  /// Nothing can be read.
  void setUnreadable(bool unreadable) { files_->faults.read = unreadable ? 1 : 0; }
  /// Syncing does nothing and reports success.
  void setLying(bool lying) { files_->lying = lying; }

 private:
  std::shared_ptr<kestrin::test::ModelFiles> files_;
  const std::uint64_t seed_;
  std::uint64_t cuts_ = 0;
  std::uint64_t logs_ = 0;
};

}  // namespace kestrin::gateway::test
