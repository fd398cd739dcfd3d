// The gateway's log: what the readers sent, on disk, in the order in which it came, until it may be
// forgotten. It is a database of SQLite's, whose write-ahead log takes each record.
//
// Each record has a number, one higher than that of the record before it. A log has an identity;
// numbers that were synced are never used again within one. What cannot be kept or read any more
// leaves a gap record, which has a number of its own and says which numbers are lost.
//
// docs/gateway-log.md has the format.
//
// Threads: one thread uses a log. `SyncWork::run` alone may run on another one meanwhile.
// Lifetime: a log shares its file layer. Drop every `SyncWork` before the log's folder is opened
// again. Errors: returned in words; what was appended before stays.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tools/gateway/files/FileLayer.h"
#include "tools/gateway/log/Record.h"

namespace kestrin::gateway {

constexpr std::uint64_t kSmallestBudget = 1ULL << 20U;

struct LogOptions {
  std::string folder;
  /// Bytes on disk, at least `kSmallestBudget`. The rest of a damaged log does not count.
  std::uint64_t budget = 1ULL << 30U;
  std::function<LogIdentity()> makeIdentity;  ///< Random from the system when empty.
};

/// What has to be synced. `run` may be called with it on any thread, once; no other use of the log
/// waits for it.
class SyncWork;

class Log {
 public:
  /// Opens the log in the folder, or begins one. What a power cut has left unfinished is dropped.
  /// Where what was certain is damaged, a log of another identity begins, and the damaged one is
  /// kept beside it; `findings` gets one line for a person for each.
  /// Null with the reason in `error`: another process holds the folder, its format is newer, the
  /// disk refuses.
  static std::unique_ptr<Log> open(std::shared_ptr<FileLayer> files, LogOptions options,
                                   std::string& error,
                                   std::vector<std::string>* findings = nullptr);
  ~Log();
  Log(const Log&) = delete;
  Log& operator=(const Log&) = delete;

  [[nodiscard]] const LogIdentity& identity() const;
  /// The lowest number that is kept; `next()` when none is.
  [[nodiscard]] RecordNumber first() const;
  /// The number that the next record gets.
  [[nodiscard]] RecordNumber next() const;
  /// Up to this number, included, everything is on the disk.
  [[nodiscard]] RecordNumber synced() const;
  /// Bytes on disk that hold something; freed ones are used again.
  [[nodiscard]] std::uint64_t size() const;

  /// Appends a record and returns its number; `record.number` does not count. It is with the system
  /// when this returns, so that it survives the process, and on the disk once `synced` says so.
  /// Absent, with the reason in `error`: the disk or the budget refused it, or it is longer than
  /// 64 KiB. Its number is lost then; a gap record says so as soon as the disk
  /// takes records again.
  std::optional<RecordNumber> append(const Record& record, FileError& error);

  /// What has to be synced now; null when nothing has, or the last work has not been handed back.
  std::shared_ptr<SyncWork> beginSync();
  /// Hands work back that has run. Returns its error, after which the records stay unsynced and are
  /// tried again.
  std::optional<FileError> endSync(const std::shared_ptr<SyncWork>& work);

  /// The records from `number` on, `most` of them at most, and about `mostBytes` at most; also
  /// those that are not synced yet. Numbers that are lost are left out (their gap record comes
  /// later). An error ends the list early.
  std::optional<FileError> read(RecordNumber number, std::size_t most, std::size_t mostBytes,
                                std::vector<Record>& records);

  /// Nobody needs the records up to `number`, included: they leave the disk with one of the next
  /// syncs. Kept over restarts. No further than `synced`.
  void forget(RecordNumber number);
  /// Up to where `forget` has come.
  [[nodiscard]] RecordNumber forgotten() const;

  /// Values of a few bytes under a name, kept beside the records over restarts and restored with
  /// them: for what consumers have committed. A value that is lost by a power cut is an older one
  /// afterwards, never another one.
  void keep(const std::string& name, RecordNumber value);
  [[nodiscard]] std::vector<std::pair<std::string, RecordNumber>> kept() const;
  /// Forgets a name.
  void drop(const std::string& name);

  /// What was noticed since the last call, one line each: a gap made by the budget, a disk that
  /// refuses.
  std::vector<std::string> takeFindings();

 private:
  struct Inside;
  explicit Log(std::unique_ptr<Inside> inside);
  const std::unique_ptr<Inside> inside_;
};

/// Runs the syncing: reports nothing by itself.
void run(SyncWork& work) noexcept;

}  // namespace kestrin::gateway
