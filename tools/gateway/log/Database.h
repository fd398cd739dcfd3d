// A connection to a database of SQLite's, and a statement of it.
//
// Threads: one at a time uses a connection and its statements. Lifetime: a statement ends before
// its connection. Errors: returned, with words that name the file; `isDamage` tells those that mean
// that the file is not what was written into it.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "tools/gateway/files/FileLayer.h"

namespace kestrin::gateway {

/// As `FileError::number`: what the file holds is no database, or not a whole one.
inline constexpr int kDamaged = 0x7FFF0001;
inline bool isDamage(const FileError& error) { return error.number == kDamaged; }

class Database;

class Statement {
 public:
  void bind(int place, std::int64_t value);
  /// What is bound is not copied: it stays until the statement is reset.
  void bind(int place, std::string_view text);
  void bind(int place, std::span<const std::uint8_t> bytes);
  void bindNull(int place);

  /// True: it stands on a row. False: there is none any more, or an error, which `error` has.
  bool step();
  /// The error of the last step.
  [[nodiscard]] const std::optional<FileError>& error() const { return error_; }
  /// Ends it, so that it holds nothing of the database.
  void reset();
  /// Steps to the end and resets.
  std::optional<FileError> run();

  [[nodiscard]] std::int64_t number(int column) const;
  [[nodiscard]] std::string text(int column) const;
  [[nodiscard]] std::span<const std::uint8_t> bytes(int column) const;
  [[nodiscard]] bool isNull(int column) const;

 private:
  friend class Database;
  struct Finalize {
    void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
  };
  [[nodiscard]] sqlite3_stmt* get() const { return statement_.get(); }

  const Database* database_ = nullptr;
  std::unique_ptr<sqlite3_stmt, Finalize> statement_;
  std::optional<FileError> error_;
};

class Database {
 public:
  Database() = default;
  ~Database() = default;
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  /// `flags` as for `sqlite3_open_v2`; `vfs` as `FileLayer::vfs`. What it has open already is
  /// closed. The end of the connection leaves the write-ahead log alone.
  std::optional<FileError> open(const std::string& path, int flags, const std::string& vfs);
  void close() { connection_.reset(); }
  [[nodiscard]] bool isOpen() const { return connection_ != nullptr; }
  /// Gets what the write-ahead log has into the database, and onto the disk there. EBUSY: somebody
  /// reads what it had before.
  std::optional<FileError> checkpoint();

  /// Runs statements that give no rows that anybody wants.
  std::optional<FileError> run(const char* statements);
  std::optional<FileError> prepare(std::string_view text, Statement& statement);
  /// The first column of the first row.
  std::optional<FileError> ask(std::string_view text, std::int64_t& value);

  [[nodiscard]] const std::string& path() const { return path_; }
  [[nodiscard]] sqlite3* connection() const { return connection_.get(); }
  /// The connection's last error.
  [[nodiscard]] FileError why() const;

 private:
  struct Close {
    void operator()(sqlite3* connection) const { sqlite3_close_v2(connection); }
  };
  std::string path_;
  std::unique_ptr<sqlite3, Close> connection_;
};

/// All that is done while it lives is done at once at `commit`, or not at all.
class Transaction {
 public:
  explicit Transaction(Database& database) : database_(database) {}
  ~Transaction();
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;

  std::optional<FileError> begin();
  std::optional<FileError> commit();

 private:
  Database& database_;
  bool isOpen_ = false;
};

}  // namespace kestrin::gateway
