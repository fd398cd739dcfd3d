// Whatever lies in a log's folder: it is read, opened, recovered and gone on with. The input is one
// of three: bytes as they stand in the database and its write-ahead log; a log of ours, changed in
// some places; tables of any content with right checksums, so that what lies behind them is
// reached too.
//
// Threads: one. Lifetime: a log of ours is made once. Errors: see Fuzzing.h.
#include <algorithm>
#include <array>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "fuzz/Fuzzing.h"
#include "gateway/support/ModelFiles.h"
#include "tools/gateway/log/Claim.h"
#include "tools/gateway/log/Log.h"
#include "tools/gateway/log/LogReader.h"
#include "tools/gateway/log/RecordTable.h"

namespace kestrin::fuzz {
namespace {

using gateway::FileError;
using gateway::Log;
using gateway::Record;
using gateway::RecordNumber;
using test::ModelFiles;
using Disk = std::shared_ptr<ModelFiles>;

const std::string kFolder = "/log";
const std::string kCurrent = "/log/current";
const std::string kDatabase = "/log/current/records.sqlite";
const std::string kWriteAhead = kDatabase + "-wal";
const std::string kClaim = "/log/current/claim";
const gateway::LogIdentity kIdentity(32, 'a');

/// A disk, and what is known of the log on it.
struct Put {
  Disk disk;
  /// All that can be read from it, unless that is any bytes.
  std::optional<std::vector<Record>> records;
  /// Up to here nothing may be missing without a word; 0: nothing is known.
  RecordNumber certain = 0;
};

std::unique_ptr<Log> open(const Disk& disk, std::string& error, char identity) {
  gateway::LogOptions options;
  options.folder = kFolder;
  options.budget = gateway::kSmallestBudget;
  options.makeIdentity = [identity] { return gateway::LogIdentity(32, identity); };
  return Log::open(disk, options, error);
}

void sync(Log& log) {
  const auto work = log.beginSync();
  if (!work) return;
  run(*work);
  const auto error = log.endSync(work);
  require(!error, "a disk without faults syncs: " + (error ? error->text : ""));
}

std::vector<Record> readAll(Log& log) {
  std::vector<Record> records;
  const auto error = log.read(1, 100000, 1U << 30U, records);
  require(!error, "a disk without faults reads: " + (error ? error->text : ""));
  return records;
}

// --- What the folder holds.

Put rawBytes(ByteSource& source) {
  Put put{std::make_shared<ModelFiles>(1), std::nullopt, 0};
  require(!put.disk->makeFolder(kCurrent), "the disk makes folders");
  FileError error;
  const ByteView database = source.take(source.u16());
  require(!put.disk->openFile(kDatabase, true, error)->append(database), "the disk takes bytes");
  if (!source.flag()) return put;
  require(!put.disk->openFile(kWriteAhead, true, error)->append(source.rest()),
          "the disk takes bytes");
  return put;
}

Put ourLog() {
  Put put{std::make_shared<ModelFiles>(1), std::vector<Record>{}, 0};
  std::string error;
  const auto log = open(put.disk, error, 'a');
  require(log != nullptr, error);
  const auto append = [&](std::size_t size) {
    Record record;
    record.reader = "reader";
    record.name = "name";
    record.bytes.assign(size, 0x55);
    FileError failed;
    const auto number = log->append(record, failed);
    require(number.has_value(), failed.text);
    record.number = *number;
    put.records->push_back(record);
  };
  for (std::size_t i = 0; i < 12; ++i) append(i % 4 == 3 ? 2000 : 20);
  log->keep("consumer", 5);
  sync(*log);
  log->forget(3);
  sync(*log);
  put.certain = log->synced();
  append(30);
  put.disk = put.disk->afterKill();
  return put;
}

/// True: the place is in what says what is certain.
bool changeSomething(ModelFiles& disk, ByteSource& source) {
  const std::array<const std::string*, 3> kFiles = {&kDatabase, &kWriteAhead, &kClaim};
  const std::string& path = *kFiles[source.below(kFiles.size())];
  FileError error;
  const auto file = disk.openFile(path, false, error);
  const std::uint64_t place = file ? source.u16() % (file->size() + 1) : 0;
  if (!file) return true;
  switch (source.below(4)) {
    case 0:
      disk.damage(path, place, source.u8());
      break;
    case 1:
      require(!file->write(place, source.block()), "the disk takes bytes");
      break;
    case 2:
      require(!file->truncate(place), "the disk cuts files");
      break;
    default:
      require(!disk.remove(path), "the disk removes files");
  }
  return &path == &kClaim;
}

Put changedLog(ByteSource& source) {
  static const Put original = ourLog();
  Put put = original;
  put.disk = original.disk->afterKill();
  for (std::size_t i = source.below(5); i > 0; --i) {
    if (changeSomething(*put.disk, source)) put.certain = 0;
  }
  return put;
}

RecordNumber anyNumber(ByteSource& source) {
  const RecordNumber near = source.u8();
  constexpr auto kHighest = static_cast<RecordNumber>(std::numeric_limits<std::int64_t>::max());
  switch (source.below(8)) {
    case 0:
      return kHighest - near;
    case 1:
      return std::numeric_limits<RecordNumber>::max() - near;
    default:
      return near;
  }
}

Record anyRecord(ByteSource& source, RecordNumber number) {
  Record record;
  record.number = number;
  const bool isGap = source.below(4) == 0;
  record.kind =
      isGap ? gateway::RecordKind::gap : static_cast<gateway::RecordKind>(source.below(8));
  if (record.kind == gateway::RecordKind::gap) {
    record.gap =
        gateway::Gap{source.flag() ? kIdentity : std::string(32, 'b'), anyNumber(source),
                     number - source.below(3), static_cast<gateway::GapReason>(source.below(6))};
  }
  const ByteView bytes = source.block();
  record.bytes.assign(bytes.begin(), bytes.end());
  return record;
}

Put anyTables(ByteSource& source) {
  Put put{std::make_shared<ModelFiles>(1), std::vector<Record>{}, 0};
  require(!put.disk->makeFolder(kCurrent), "the disk makes folders");
  const gateway::LogFacts facts{kIdentity, anyNumber(source), anyNumber(source)};
  gateway::Database database;
  require(!database.open(kDatabase, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, put.disk->vfs()),
          "a database opens");
  require(!gateway::RecordTable::create(database, facts), "tables are made");
  gateway::RecordTable table(database);
  require(!table.prepare(false), "tables are there");
  RecordNumber number = anyNumber(source);
  for (std::size_t i = source.below(12); i > 0; --i) {
    const Record record = anyRecord(source, number);
    // One of that number may be there.
    if (!table.insert(record)) put.records->push_back(record);
    number += source.below(8) == 7 ? source.below(5) : 1;
  }
  if (source.flag())
    require(!table.writeKept({{"consumer", anyNumber(source)}}), "values are kept");
  if (source.flag()) {
    gateway::writeClaim(*put.disk, kClaim, {kIdentity, anyNumber(source), anyNumber(source)});
  }
  return put;
}

Put putFrom(ByteSource& source) {
  switch (source.below(3)) {
    case 0:
      return rawBytes(source);
    case 1:
      return changedLog(source);
    default:
      return anyTables(source);
  }
}

// --- What must hold.

void requirePut(const Put& put, const Record& record) {
  if (!put.records) return;
  require(std::ranges::find(*put.records, record) != put.records->end(), "no record is invented");
}

void readByReader(const Put& put) {
  std::string error;
  const auto reader = gateway::LogReader::open(put.disk->afterKill(), kFolder, error);
  require(reader != nullptr || !error.empty(),
          "a log that cannot be read is refused with a reason");
  if (!reader) return;
  std::optional<RecordNumber> last;
  for (Record record; reader->next(record);) {
    requirePut(put, record);
    require(!last || record.number > *last, "the reader's numbers go up");
    last = record.number;
  }
}

void check(Log& log, const Put& put, bool isNew) {
  RecordNumber last = 0;
  std::vector<Record> records = readAll(log);
  for (const Record& record : records) {
    require(record.number > last && record.number < log.next(), "numbers go up to the next one");
    last = record.number;
    // Gaps are the log's own.
    if (!record.gap) requirePut(put, record);
  }
  if (isNew || put.certain == 0) return;
  for (const Record& record : *put.records) {
    if (record.number <= log.forgotten() || record.number > put.certain) continue;
    require(std::ranges::find(records, record) != records.end(), "what was certain is there");
  }
}

void goOn(const Disk& disk, std::unique_ptr<Log> log) {
  Record record;
  record.bytes = {1, 2, 3};
  FileError error;
  const auto number = log->append(record, error);
  require(number.has_value(), "a log that opens takes records: " + error.text);
  sync(*log);
  require(log->synced() >= *number, "what was synced is said to be");
  record.number = *number;
  const gateway::LogIdentity identity = log->identity();
  const Disk killed = disk->afterKill();
  log.reset();
  std::string text;
  log = open(killed, text, 'd');
  require(log != nullptr, "a log that was in use opens: " + text);
  require(log->identity() == identity, "a log that was recovered is not damaged");
  require(log->next() > *number, "no number is used again");
  const auto records = readAll(*log);
  require(std::ranges::find(records, record) != records.end(), "what was synced is there");
}

}  // namespace
}  // namespace kestrin::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace kestrin;
  using namespace kestrin::fuzz;
  ByteSource source(ByteView(data, size));
  const Put put = putFrom(source);
  readByReader(put);
  std::string error;
  auto log = open(put.disk, error, 'c');
  require(log != nullptr || !error.empty(), "a log that is refused says why");
  if (!log) return 0;
  const bool isNew = log->identity() == gateway::LogIdentity(32, 'c');
  sync(*log);
  check(*log, put, isNew);
  goOn(put.disk, std::move(log));
  return 0;
}
