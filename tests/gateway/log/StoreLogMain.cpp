// Makes a log that a test reads for as long as there is this gateway: once for each version of the
// format, when it is released. See tests/gateway/log/store-log.
//
// It holds every kind of record, every reason for a gap, a number that was refused, names that are
// not text, values kept beside the records, and some that are forgotten.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>

#include "gateway/log/StoredLog.h"

namespace kestrin::gateway {
namespace {

namespace fs = std::filesystem;

const LogIdentity kIdentity = "00112233445566778899aabbccddeeff";
const LogIdentity kOther = "ffeeddccbbaa99887766554433221100";

LogOptions optionsFor(const fs::path& folder) {
  LogOptions options;
  options.folder = folder;
  options.budget = kSmallestBudget;
  options.makeIdentity = [] { return kIdentity; };
  return options;
}

void require(bool holds, const std::string& what) {
  if (holds) return;
  std::cerr << what << '\n';
  std::exit(1);  // NOLINT(concurrency-mt-unsafe): the only thread.
}

std::unique_ptr<Log> opened(const fs::path& folder) {
  std::string error;
  auto log = Log::open(systemFiles(), optionsFor(folder), error);
  require(log != nullptr, error);
  return log;
}

void append(Log& log, const Record& record) {
  FileError error;
  require(log.append(record, error).has_value(), error.text);
}

void sync(Log& log) {
  while (const auto work = log.beginSync()) {
    run(*work);
    const auto failed = log.endSync(work);
    require(!failed, failed ? failed->text : "");
  }
}

Record data(int count) {
  Record record;
  record.kind = count % 3 == 0 ? RecordKind::value : RecordKind::frame;
  record.reader = count % 2 == 0 ? "AA:BB:CC:DD:EE:01" : "AA:BB:CC:DD:EE:02";
  // A name from the air is whatever came: control characters, bytes that are not UTF-8, nothing.
  record.name = count % 2 == 0 ? "KVR-0417" : std::string("K\x1b[2J\0\xff", 7);
  if (count == 5) record.name.clear();
  record.link = static_cast<std::uint64_t>(count) / 4 + 1;
  record.wallMs = 1'800'000'000'000 + count;
  record.monoMs = 81'234'567 + count;
  // Before 1970, and a clock that counts far.
  if (count == 7) record.wallMs = -5;
  if (count == 8) record.monoMs = 0x7FFFFFFFFFFFFFFF;
  for (int i = 0; i < count * 2; ++i) record.bytes.push_back(static_cast<std::uint8_t>(i * 37));
  return record;
}

Record gap(const LogIdentity& log, RecordNumber from, RecordNumber to, GapReason reason) {
  Record record;
  record.kind = RecordKind::gap;
  record.wallMs = 1'800'000'000'500;
  record.monoMs = 81'235'067;
  record.gap = Gap{log, from, to, reason};
  return record;
}

void fill(Log& log) {
  for (int count = 1; count <= 12; ++count) append(log, data(count));
  append(log, gap(kOther, 17, 0xFFFFFFFF1, GapReason::damaged));
  append(log, gap(kOther, 1, 16, GapReason::budget));
  // Longer than a record may be, so that its number is lost and a gap says so.
  Record tooLong = data(1);
  tooLong.bytes.resize(std::size_t{1} << 17U);
  FileError error;
  require(!log.append(tooLong, error).has_value(), "a record of 128 KiB was taken");
  for (int count = 13; count <= 20; ++count) append(log, data(count));
  log.keep("store", 4);
  log.keep("reader/AA:BB:CC:DD:EE:01", 1);
  sync(log);
  log.forget(4);
  sync(log);
}

/// Without what the next start makes by itself.
void store(const fs::path& work, const fs::path& folder) {
  fs::create_directories(folder / "current");
  for (const char* const name : {"records.sqlite", "records.sqlite-wal", "claim"}) {
    const fs::path file = work / "current" / name;
    if (fs::exists(file)) fs::copy_file(file, folder / "current" / name);
  }
}

void say(const fs::path& folder, Log& log) {
  std::ofstream(folder.string() + ".txt") << describedLog(log);
}

void storeClosed(const fs::path& work, const fs::path& folder) {
  auto log = opened(work);
  fill(*log);
  say(folder, *log);
  log.reset();
  // Opened again, the database has everything.
  opened(work).reset();
  fs::remove(work / "current" / "records.sqlite-wal");
  store(work, folder);
}

void storeKilled(const fs::path& work, const fs::path& folder) {
  auto log = opened(work);
  fill(*log);
  for (int count = 21; count <= 24; ++count) append(*log, data(count));
  say(folder, *log);
  store(work, folder);
}

}  // namespace
}  // namespace kestrin::gateway

int main(int count, char** arguments) {
  using namespace kestrin::gateway;
  if (count != 2) {
    std::cerr << "usage: kestrin_gateway_store_log FOLDER\n";
    return 2;
  }
  const fs::path folder = arguments[1];
  fs::create_directories(folder);
  const fs::path work = folder / "work";
  storeClosed(work, folder / "closed");
  fs::remove_all(work);
  storeKilled(work, folder / "killed");
  fs::remove_all(work);
  return 0;
}
