#include "tools/gateway/commands/SqliteExport.h"

#include <sqlite3.h>

#include <cstdint>
#include <utility>

#include "tools/gateway/commands/RecordRow.h"

namespace kestrin::gateway {
namespace {

constexpr const char* kTable =
    "CREATE TABLE records (log TEXT NOT NULL, n INTEGER NOT NULL, kind TEXT NOT NULL, reader TEXT,"
    " name TEXT, link INTEGER, at TEXT, mono INTEGER, bytes TEXT, type INTEGER, code INTEGER,"
    " payload TEXT, gap_log TEXT, gap_from INTEGER, gap_to INTEGER, gap_reason TEXT,"
    " PRIMARY KEY (log, n)) WITHOUT ROWID";
constexpr const char* kInsert =
    "INSERT INTO records VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)";
constexpr int kCommitAfter = 10000;

class SqliteWriter final : public RecordWriter {
 public:
  explicit SqliteWriter(std::string path) : path_(std::move(path)) {}
  ~SqliteWriter() override { close(); }

  std::optional<std::string> open() {
    constexpr int kNew = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
    if (sqlite3_open_v2(path_.c_str(), &database_, kNew, nullptr) != SQLITE_OK) return why();
    for (const char* const statement : {kTable, "BEGIN"}) {
      if (auto failed = run(statement)) return failed;
    }
    const bool ready = sqlite3_prepare_v2(database_, kInsert, -1, &insert_, nullptr) == SQLITE_OK;
    return ready ? std::nullopt : std::optional(why());
  }

  std::optional<std::string> write(const LogIdentity& log, const Record& record) override {
    const auto columns = columnsOf(rowOf(log, record));
    int place = 0;
    for (const auto& column : columns) bind(++place, column);
    const bool done = sqlite3_step(insert_) == SQLITE_DONE;
    auto failed = done ? std::nullopt : std::optional(why());
    sqlite3_reset(insert_);
    if (failed || ++waiting_ < kCommitAfter) return failed;
    waiting_ = 0;
    failed = run("COMMIT");
    return failed ? failed : run("BEGIN");
  }

  std::optional<std::string> finish() override {
    if (auto failed = run("COMMIT")) return failed;
    close();
    return std::nullopt;
  }

 private:
  /// Columns of numbers take numbers from text by themselves.
  void bind(int place, const std::optional<std::string>& text) {
    if (text) {
      sqlite3_bind_text64(insert_, place, text->c_str(), text->size(), SQLITE_TRANSIENT,
                          SQLITE_UTF8);
    } else {
      sqlite3_bind_null(insert_, place);
    }
  }
  std::optional<std::string> run(const char* statement) {
    if (sqlite3_exec(database_, statement, nullptr, nullptr, nullptr) == SQLITE_OK) {
      return std::nullopt;
    }
    return why();
  }
  [[nodiscard]] std::string why() const { return path_ + ": " + sqlite3_errmsg(database_); }
  void close() {
    sqlite3_finalize(std::exchange(insert_, nullptr));
    sqlite3_close(std::exchange(database_, nullptr));
  }

  const std::string path_;
  sqlite3* database_ = nullptr;
  sqlite3_stmt* insert_ = nullptr;
  int waiting_ = 0;
};

}  // namespace

std::unique_ptr<RecordWriter> makeSqliteWriter(const std::string& path, std::string& error) {
  auto writer = std::make_unique<SqliteWriter>(path);
  if (auto why = writer->open()) {
    error = *why;
    return nullptr;
  }
  return writer;
}

}  // namespace kestrin::gateway
