// A note beside the database of what is certain, so that a write-ahead log that is lost or damaged
// is noticed: SQLite takes its records for ones that were never finished.
//
// It is written after each sync and never synced itself. So it never claims too much; where it is
// lost it claims nothing. It also says that a sync has failed: then the system may read back what
// is not on the disk, to the next process as well.
//
// Threads: one at a time. Errors: none; a note that cannot be written is an older one, or none.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "tools/gateway/files/FileLayer.h"
#include "tools/gateway/log/Record.h"

namespace kestrin::gateway {

struct Claim {
  LogIdentity identity;
  RecordNumber synced = 0;
  RecordNumber forgotten = 0;
  bool isDoubtful = false;  ///< What is behind `synced` may be on the disk in part.
  friend bool operator==(const Claim&, const Claim&) = default;
};

void writeClaim(FileLayer& files, const std::string& path, const Claim& claim) noexcept;
/// Absent: there is none that can be read.
std::optional<Claim> readClaim(FileLayer& files, const std::string& path);

/// Where it cannot be read: whether a power cut did that. No process leaves one behind that is
/// whole and wrong.
bool isClaimTorn(FileLayer& files, const std::string& path);

}  // namespace kestrin::gateway
