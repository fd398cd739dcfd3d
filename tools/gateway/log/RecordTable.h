// The tables of a log's database: records, what the log knows of itself, and values that are kept.
//
// Each record carries a checksum of its own, since SQLite notices a damaged page only where its
// structure suffers.
//
// Threads: as its connection. Lifetime: ends before its connection.
// Errors: returned; where what is stored is not what was written, `isDamage`.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tools/gateway/log/Database.h"
#include "tools/gateway/log/Record.h"

namespace kestrin::gateway {

/// The version of the tables that this program writes; it reads this one and every lower one.
inline constexpr std::int64_t kFormat = 1;
/// "KGWL": tells the log from every other program's database.
inline constexpr std::int64_t kApplication = 0x4B47574C;
inline constexpr std::uint32_t kPageSize = 4096;
inline constexpr std::size_t kReadAtOnce = 256;

/// What the log knows of itself.
struct LogFacts {
  LogIdentity identity;
  RecordNumber forgotten = 0;  ///< Nobody needs the records up to here.
  /// The number behind the highest one that was ever given away when the records before it went.
  RecordNumber next = 1;
  friend bool operator==(const LogFacts&, const LogFacts&) = default;
};

using KeptValues = std::vector<std::pair<std::string, RecordNumber>>;

/// The version of the log that the file's header names; absent: it is no log's.
std::optional<FileError> readFormat(FileLayer& files, const std::string& path,
                                    std::optional<std::int64_t>& format);

FileError newerFormat(const std::string& path);

class RecordTable {
 public:
  explicit RecordTable(Database& database) : database_(database) {}

  /// Makes the tables of an empty database; within a transaction of the caller's.
  static std::optional<FileError> create(Database& database, const LogFacts& facts);
  /// Has to succeed before anything else is called. `readOnly`: nothing that writes is.
  std::optional<FileError> prepare(bool readOnly);

  /// Ends what `prepare` has begun; the connection can be closed then.
  void finish();

  std::optional<FileError> insert(const Record& record);
  /// From now on the connection keeps its place as a reader, which each insert would take and give
  /// back again. Until `leave`, no checkpoint gets behind what is there now, and this connection
  /// makes none.
  void stay();
  void leave();
  /// Removes the records up to `number`, included.
  std::optional<FileError> removeUpTo(RecordNumber number);
  std::optional<FileError> writeFacts(const LogFacts& facts);
  std::optional<FileError> writeKept(const KeptValues& kept);

  std::optional<FileError> readFacts(LogFacts& facts);
  std::optional<FileError> readKept(KeptValues& kept);
  /// The lowest and the highest number; absent when there is no record.
  std::optional<FileError> readEnds(std::optional<std::pair<RecordNumber, RecordNumber>>& ends);

  /// Stands before the first record from `number` on; `most` of them.
  void seek(RecordNumber number, std::size_t most);
  enum class Step : std::uint8_t { record, unreadable, end, failed };
  /// The next record. `unreadable`: there is one, of the number that `record` has, and it is not
  /// what was written. `failed`: `error` says why.
  Step next(Record& record);
  /// The same, for who only wants to know that it is sound.
  Step pass(RecordNumber& number, bool& isGap);
  /// The record at which `pass` stands. False: it has a kind that there is not.
  bool take(Record& record);
  /// After a page that is damaged: the lowest number behind `number` from which records can be read
  /// on, at most `last + 1`.
  RecordNumber behindDamage(RecordNumber number, RecordNumber last);
  /// Ends what `seek` began, so that it holds nothing of the database.
  void rest() { select_.reset(); }
  [[nodiscard]] const FileError& error() const { return error_; }

 private:
  Database& database_;
  Statement insert_;
  Statement remove_;
  Statement select_;
  Statement stay_;
  bool stays_ = false;
  std::vector<std::uint8_t> encoded_;
  FileError error_;
};

/// How many bytes the record is counted as, in limits.
std::size_t recordSize(const Record& record);
/// Whether it may stand behind the number before `expected`: it has that number, or says itself
/// that the numbers between are lost.
bool follows(RecordNumber expected, const Record& record, const LogIdentity& identity);
/// For a person: "number 5", "numbers 5 to 7".
std::string numbersText(RecordNumber from, RecordNumber to);

}  // namespace kestrin::gateway
