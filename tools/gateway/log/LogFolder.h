// A log's folder: the log in use, what is left of damaged ones, and the way from one to the other.
//
//   lock                      held by the gateway that runs
//   current/records.sqlite    the log in use, with its write-ahead log and `claim` beside it
//   fresh/                    a log that was never finished; the next start does
//   IDENTITY.damaged/         a log that was damaged, as it was found
//   reserve                   room that a full disk leaves
//
// Threads: one. Lifetime: the file layer outlives it. Errors: in words.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/gateway/files/FileLayer.h"
#include "tools/gateway/log/Claim.h"
#include "tools/gateway/log/RecordTable.h"

namespace kestrin::gateway {

/// Stands for a log whose identity nothing says any more.
inline const LogIdentity kUnknownIdentity(32, '0');
inline const std::string kDatabaseName = "records.sqlite";

struct LogFolder {
  std::string path;
  [[nodiscard]] std::string current() const { return path + "/current"; }
  [[nodiscard]] std::string fresh() const { return path + "/fresh"; }
  [[nodiscard]] std::string making() const { return path + "/making"; }
  [[nodiscard]] std::string reserve() const { return path + "/reserve"; }
  [[nodiscard]] std::string database() const { return current() + "/" + kDatabaseName; }
  [[nodiscard]] std::string claim() const { return current() + "/claim"; }
};

/// A gap, and the number of the record that says it.
struct SaidGap {
  RecordNumber number = 0;
  Gap gap;
};

/// What a log was when it was opened.
struct OpenedLog {
  LogFacts facts;
  RecordNumber first = 1;  ///< The lowest number that is kept; `facts.next` when none is.
  KeptValues kept;
  /// There is no room to make certain of the write-ahead log; up to here it was before.
  std::optional<RecordNumber> onlyCertainTo;
  std::vector<SaidGap> gaps;  ///< The gap records that are kept.
};

/// Why the folder has to stay as it is: a newer program has made the log in it.
std::optional<FileError> refuseNewer(FileLayer& files, const LogFolder& folder);

/// Opens the log in use, and makes one where there is none. All records are looked at; where one is
/// damaged or missing, the log is set aside and another one begins.
std::optional<FileError> openLogFolder(FileLayer& files, const LogFolder& folder,
                                       const std::function<LogIdentity()>& makeIdentity,
                                       OpenedLog& opened, std::vector<std::string>& findings);

/// Nobody knows what of a write-ahead log is on the disk once a sync has failed: the system may
/// have dropped the rest. A copy is on the disk for certain, and takes its place while no
/// connection is open. Before that nothing may get from it into the database.
std::optional<FileError> copyWriteAheadLog(FileLayer& files, const LogFolder& folder);
std::optional<FileError> takeCopiedWriteAheadLog(FileLayer& files, const LogFolder& folder);

/// Opens the database of a log that is there, and reads nothing yet.
std::optional<FileError> connectTo(FileLayer& files, const std::string& path, Database& database);

}  // namespace kestrin::gateway
