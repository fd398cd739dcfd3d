#include "tools/gateway/log/Database.h"

#include <cerrno>
#include <system_error>

namespace kestrin::gateway {
namespace {

/// SQLite says `full` for a disk that is full, whatever the system's number was.
int systemNumber(int code, int number) {
  if (code == SQLITE_FULL) return ENOSPC;
  if (code == SQLITE_READONLY) return EROFS;
  if (code == SQLITE_CORRUPT || code == SQLITE_NOTADB || code == SQLITE_FORMAT) return kDamaged;
  return number != 0 ? number : EIO;
}

bool isTheSystems(int code) {
  return code == SQLITE_FULL || code == SQLITE_IOERR || code == SQLITE_CANTOPEN;
}

}  // namespace

std::optional<FileError> Database::open(const std::string& path, int flags,
                                        const std::string& vfs) {
  path_ = path;
  sqlite3* opened = nullptr;
  const int code = sqlite3_open_v2(path.c_str(), &opened, flags | SQLITE_OPEN_NOMUTEX,
                                   vfs.empty() ? nullptr : vfs.c_str());
  connection_.reset(opened);
  if (code != SQLITE_OK) {
    auto error = opened != nullptr ? why() : FileError{ENOMEM, "cannot open " + path};
    connection_.reset();
    return error;
  }
  sqlite3_extended_result_codes(opened, 1);
  sqlite3_db_config(opened, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
  sqlite3_db_config(opened, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
  sqlite3_db_config(opened, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
  // Another program may read at any moment; it holds nothing for long.
  constexpr int kPatienceMs = 1000;
  sqlite3_busy_timeout(opened, kPatienceMs);
  return run("PRAGMA cell_size_check=ON");
}

std::optional<FileError> Database::checkpoint() {
  int pages = 0;
  int moved = 0;
  const int code =
      sqlite3_wal_checkpoint_v2(connection(), nullptr, SQLITE_CHECKPOINT_PASSIVE, &pages, &moved);
  if (code != SQLITE_OK && code != SQLITE_BUSY) return why();
  if (code == SQLITE_OK && pages >= 0 && moved == pages) return std::nullopt;
  return FileError{EBUSY, path_ + ": another program reads it; the next sync tries again"};
}

std::optional<FileError> Database::run(const char* statements) {
  if (sqlite3_exec(connection(), statements, nullptr, nullptr, nullptr) == SQLITE_OK) {
    return std::nullopt;
  }
  return why();
}

std::optional<FileError> Database::prepare(std::string_view text, Statement& statement) {
  sqlite3_stmt* prepared = nullptr;
  const int code = sqlite3_prepare_v3(connection(), text.data(), static_cast<int>(text.size()),
                                      SQLITE_PREPARE_PERSISTENT, &prepared, nullptr);
  if (code != SQLITE_OK) {
    auto error = why();
    // A table that is not there is not what was written.
    if (code == SQLITE_ERROR) error.number = kDamaged;
    return error;
  }
  statement.statement_.reset(prepared);
  statement.database_ = this;
  return std::nullopt;
}

std::optional<FileError> Database::ask(std::string_view text, std::int64_t& value) {
  Statement statement;
  if (auto failed = prepare(text, statement)) return failed;
  if (statement.step()) value = statement.number(0);
  return statement.error();
}

FileError Database::why() const {
  const int code = sqlite3_extended_errcode(connection()) & 0xFF;
  const int number = systemNumber(code, sqlite3_system_errno(connection()));
  const std::string reason =
      isTheSystems(code) ? std::generic_category().message(number) : sqlite3_errmsg(connection());
  return {number, path_ + ": " + reason};
}

void Statement::bind(int place, std::int64_t value) { sqlite3_bind_int64(get(), place, value); }
void Statement::bind(int place, std::string_view text) {
  sqlite3_bind_text64(get(), place, text.data() == nullptr ? "" : text.data(), text.size(),
                      SQLITE_STATIC, SQLITE_UTF8);
}
void Statement::bind(int place, std::span<const std::uint8_t> bytes) {
  if (bytes.empty()) {
    sqlite3_bind_zeroblob(get(), place, 0);
  } else {
    sqlite3_bind_blob64(get(), place, bytes.data(), bytes.size(), SQLITE_STATIC);
  }
}
void Statement::bindNull(int place) { sqlite3_bind_null(get(), place); }

bool Statement::step() {
  error_.reset();
  const int code = sqlite3_step(get());
  if (code == SQLITE_ROW) return true;
  if (code != SQLITE_DONE) error_ = database_->why();
  return false;
}

void Statement::reset() { sqlite3_reset(get()); }

std::optional<FileError> Statement::run() {
  while (step()) {
  }
  auto failed = error_;
  reset();
  return failed;
}

std::int64_t Statement::number(int column) const { return sqlite3_column_int64(get(), column); }
std::string Statement::text(int column) const {
  const auto* const text = sqlite3_column_text(get(), column);
  if (text == nullptr) return {};
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): its characters are unsigned.
  return {reinterpret_cast<const char*>(text),
          static_cast<std::size_t>(sqlite3_column_bytes(get(), column))};
}
std::span<const std::uint8_t> Statement::bytes(int column) const {
  const void* const bytes = sqlite3_column_blob(get(), column);
  const int count = sqlite3_column_bytes(get(), column);
  return {static_cast<const std::uint8_t*>(bytes), static_cast<std::size_t>(count)};
}
bool Statement::isNull(int column) const {
  return sqlite3_column_type(get(), column) == SQLITE_NULL;
}

Transaction::~Transaction() {
  // An error may have ended it already.
  if (isOpen_ && sqlite3_get_autocommit(database_.connection()) == 0) {
    [[maybe_unused]] const auto failed = database_.run("ROLLBACK");
  }
}

std::optional<FileError> Transaction::begin() {
  auto failed = database_.run("BEGIN IMMEDIATE");
  isOpen_ = !failed;
  return failed;
}

std::optional<FileError> Transaction::commit() {
  if (auto failed = database_.run("COMMIT")) return failed;
  isOpen_ = false;
  return std::nullopt;
}

}  // namespace kestrin::gateway
