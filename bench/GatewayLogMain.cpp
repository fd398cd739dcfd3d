// What the gateway's log costs, in a folder of one's choice: appending a record, groups of ten
// records that are synced against the same groups in one transaction each (write-ahead log,
// synchronous to the full), and opening a long log against reading its bytes once. One line each:
// name, tab, figure.
//
// Usage: kestrin_bench_gateway_log [FOLDER [GROUPS [MEGABYTES]]]   (the temporary folder, 300, 64)
#include <fcntl.h>
#include <sqlite3.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "tools/gateway/log/Log.h"

namespace kestrin::bench {
namespace {

using Clock = std::chrono::steady_clock;
using gateway::Log;
using gateway::Record;
constexpr std::size_t kGroup = 10;
constexpr std::size_t kTurns = 9;

void require(bool holds, const std::string& claim) {
  if (!holds) throw std::runtime_error(claim);
}

double secondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

void print(const char* name, double figure) { std::printf("%s\t%.3f\n", name, figure); }

double part(std::vector<double> values, double share) {
  std::ranges::sort(values);
  return values[static_cast<std::size_t>(share * static_cast<double>(values.size() - 1))];
}

Record sampleRecord() {
  Record record;
  record.reader = "C0:FF:EE:00:00:01";
  record.name = "KVR-Q62T-0001";
  record.link = 17;
  record.wallMs = 1700000000000;
  record.monoMs = 123456789;
  record.bytes.assign(21, 0xBB);
  return record;
}

std::unique_ptr<Log> openLog(const std::string& folder, std::uint64_t budget) {
  gateway::LogOptions options;
  options.folder = folder;
  options.budget = budget;
  std::string error;
  auto log = Log::open(gateway::systemFiles(), options, error);
  require(log != nullptr, error);
  return log;
}

void append(Log& log, const Record& record) {
  gateway::FileError error;
  require(log.append(record, error).has_value(), error.text);
}

void sync(Log& log) {
  const auto work = log.beginSync();
  require(work != nullptr, "there is something to sync");
  run(*work);
  const auto error = log.endSync(work);
  require(!error, error ? error->text : "");
}

/// Seconds for the groups.
double groupsInLog(Log& log, std::size_t groups) {
  const Record record = sampleRecord();
  const auto start = Clock::now();
  for (std::size_t i = 0; i < groups; ++i) {
    for (std::size_t k = 0; k < kGroup; ++k) append(log, record);
    sync(log);
  }
  return secondsSince(start);
}

class Database {
 public:
  explicit Database(const std::string& path) {
    check(sqlite3_open(path.c_str(), &database_));
    execute("PRAGMA journal_mode=WAL");
    execute("PRAGMA synchronous=FULL");
    execute(
        "CREATE TABLE records (number INTEGER PRIMARY KEY, kind INTEGER, reader TEXT, name TEXT, "
        "link INTEGER, wall INTEGER, mono INTEGER, bytes BLOB)");
    check(sqlite3_prepare_v2(database_,
                             "INSERT INTO records (kind, reader, name, link, wall, mono, bytes) "
                             "VALUES (?, ?, ?, ?, ?, ?, ?)",
                             -1, &insert_, nullptr));
  }
  ~Database() {
    sqlite3_finalize(insert_);
    sqlite3_close(database_);
  }
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  double groups(std::size_t groups) {
    const Record record = sampleRecord();
    const auto start = Clock::now();
    for (std::size_t i = 0; i < groups; ++i) {
      execute("BEGIN");
      for (std::size_t k = 0; k < kGroup; ++k) insert(record);
      execute("COMMIT");
    }
    return secondsSince(start);
  }

 private:
  void check(int result) const {
    require(result == SQLITE_OK || result == SQLITE_DONE, sqlite3_errmsg(database_));
  }
  void execute(const char* text) {
    check(sqlite3_exec(database_, text, nullptr, nullptr, nullptr));
  }
  void insert(const Record& record) {
    sqlite3_bind_int(insert_, 1, static_cast<int>(record.kind));
    sqlite3_bind_text(insert_, 2, record.reader.data(), static_cast<int>(record.reader.size()),
                      nullptr);
    sqlite3_bind_text(insert_, 3, record.name.data(), static_cast<int>(record.name.size()),
                      nullptr);
    sqlite3_bind_int64(insert_, 4, static_cast<sqlite3_int64>(record.link));
    sqlite3_bind_int64(insert_, 5, record.wallMs);
    sqlite3_bind_int64(insert_, 6, record.monoMs);
    sqlite3_bind_blob(insert_, 7, record.bytes.data(), static_cast<int>(record.bytes.size()),
                      nullptr);
    check(sqlite3_step(insert_));
    sqlite3_reset(insert_);
  }

  sqlite3* database_ = nullptr;
  sqlite3_stmt* insert_ = nullptr;
};

void measureAppend(const std::string& folder) {
  const auto log = openLog(folder + "/append", 1U << 30U);
  const Record record = sampleRecord();
  std::vector<double> microseconds;
  for (std::size_t i = 0; i < 100000; ++i) {
    const auto start = Clock::now();
    append(*log, record);
    microseconds.push_back(secondsSince(start) * 1e6);
    if (i % 1000 == 999) sync(*log);
  }
  print("append-p50-microseconds", part(microseconds, 0.5));
  print("append-p99-microseconds", part(microseconds, 0.99));
}

/// In turns, so that both meet the same disk.
void measureGroups(const std::string& folder, std::size_t groups) {
  const auto log = openLog(folder + "/groups", 1U << 30U);
  Database database(folder + "/database");
  std::vector<double> ours;
  std::vector<double> theirs;
  std::vector<double> ratios;
  for (std::size_t turn = 0; turn < kTurns; ++turn) {
    const double log_ = groupsInLog(*log, groups);
    const double database_ = database.groups(groups);
    const auto records = static_cast<double>(groups * kGroup);
    ours.push_back(records / log_);
    theirs.push_back(records / database_);
    ratios.push_back(database_ / log_);
  }
  print("groups-log-records-per-second", part(ours, 0.5));
  print("groups-database-records-per-second", part(theirs, 0.5));
  print("groups-database-over-log", part(ratios, 0.5));
}

/// What was read before is read from the disk again, where the file system allows it.
void leaveMemory(const std::string& folder) {
  for (const auto& entry : std::filesystem::directory_iterator(folder + "/current")) {
    const int file = ::open(entry.path().c_str(), O_RDONLY | O_CLOEXEC);
    require(file >= 0, entry.path().string() + " opens");
    ::fsync(file);
    require(::posix_fadvise(file, 0, 0, POSIX_FADV_DONTNEED) == 0, "pages can be given up");
    ::close(file);
  }
}

double readOnce(const std::string& folder) {
  std::vector<char> buffer(1U << 20U);
  const auto start = Clock::now();
  for (const auto& entry : std::filesystem::directory_iterator(folder + "/current")) {
    std::FILE* const file = std::fopen(entry.path().c_str(), "rb");
    require(file != nullptr, entry.path().string() + " opens");
    std::setbuf(file, nullptr);
    while (std::fread(buffer.data(), 1, buffer.size(), file) == buffer.size()) {
    }
    std::fclose(file);
  }
  return secondsSince(start);
}

void measureOpenings(const std::string& path, std::uint64_t budget, bool fromDisk,
                     const char* secondsName, const char* ratioName) {
  std::vector<double> ratios;
  std::vector<double> seconds;
  for (std::size_t turn = 0; turn < kTurns; ++turn) {
    if (fromDisk) leaveMemory(path);
    const double reading = readOnce(path);
    if (fromDisk) leaveMemory(path);
    const auto start = Clock::now();
    openLog(path, budget);
    seconds.push_back(secondsSince(start));
    ratios.push_back(seconds.back() / reading);
  }
  print(secondsName, part(seconds, 0.5));
  print(ratioName, part(ratios, 0.5));
}

void measureOpening(const std::string& folder, std::uint64_t megabytes) {
  const std::string path = folder + "/long";
  const std::uint64_t budget = (megabytes << 20U) * 2 + (64U << 20U);
  {
    const auto log = openLog(path, budget);
    for (std::size_t i = 1; log->size() < megabytes << 20U; ++i) {
      append(*log, sampleRecord());
      if (i % 10000 == 0) sync(*log);
    }
    sync(*log);
  }
  print("opening-megabytes", static_cast<double>(megabytes));
  measureOpenings(path, budget, false, "opening-in-memory-seconds",
                  "opening-in-memory-over-reading");
  measureOpenings(path, budget, true, "opening-seconds", "opening-over-reading");
}

void measure(int argumentCount, char** arguments) {
  const auto number = [&](int place, std::size_t otherwise) {
    return argumentCount > place ? std::strtoul(arguments[place], nullptr, 10) : otherwise;
  };
  std::string pattern =
      (argumentCount > 1 ? arguments[1] : std::filesystem::temp_directory_path().string()) +
      "/kestrin-log-XXXXXX";
  require(::mkdtemp(pattern.data()) != nullptr, "cannot make " + pattern);
  measureAppend(pattern);
  measureGroups(pattern, number(2, 300));
  measureOpening(pattern, number(3, 64));
  std::filesystem::remove_all(pattern);
}

}  // namespace
}  // namespace kestrin::bench

int main(int argumentCount, char** arguments) {
  try {
    kestrin::bench::measure(argumentCount, arguments);
    return 0;
  } catch (const std::exception& failed) {
    std::fprintf(stderr, "kestrin_bench_gateway_log: %s\n", failed.what());
    return 1;
  }
}
