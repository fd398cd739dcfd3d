#include "tools/gateway/log/RecordTable.h"

#include <algorithm>
#include <limits>

#include "tools/gateway/log/Crc32c.h"
#include "tools/gateway/log/LittleEndian.h"

namespace kestrin::gateway {
namespace {

/// "KGWL": tells the log from every other program's database.
constexpr std::int64_t kApplication = 0x4B47574C;
constexpr std::size_t kFixedSize = 64;

constexpr const char* kTables =
    "CREATE TABLE records (number INTEGER PRIMARY KEY, kind INTEGER NOT NULL, reader TEXT NOT NULL,"
    " name TEXT NOT NULL, link INTEGER NOT NULL, wall_ms INTEGER NOT NULL, mono_ms INTEGER NOT"
    " NULL, bytes BLOB NOT NULL, gap_log TEXT, gap_from INTEGER, gap_to INTEGER, gap_reason"
    " INTEGER, crc32c INTEGER NOT NULL);"
    "CREATE TABLE facts (identity TEXT NOT NULL, forgotten INTEGER NOT NULL, next INTEGER NOT"
    " NULL, crc32c INTEGER NOT NULL);"
    "CREATE TABLE kept (place INTEGER PRIMARY KEY, name TEXT NOT NULL UNIQUE, number INTEGER NOT"
    " NULL, crc32c INTEGER NOT NULL);"
    "PRAGMA application_id=1262966604;"
    "PRAGMA user_version=1;";
static_assert(kApplication == 1262966604 && kFormat == 1);

std::int64_t stored(std::uint64_t number) { return static_cast<std::int64_t>(number); }
std::uint64_t loaded(std::int64_t number) { return static_cast<std::uint64_t>(number); }

void putText(std::vector<std::uint8_t>& bytes, std::string_view text) {
  put32(bytes, static_cast<std::uint32_t>(text.size()));
  bytes.insert(bytes.end(), text.begin(), text.end());
}

/// The checksum is over every field, in one order.
std::uint32_t checksum(const Record& record, std::vector<std::uint8_t>& buffer) {
  buffer.clear();
  put64(buffer, record.number);
  buffer.push_back(static_cast<std::uint8_t>(record.kind));
  putText(buffer, record.reader);
  putText(buffer, record.name);
  put64(buffer, record.link);
  put64(buffer, loaded(record.wallMs));
  put64(buffer, loaded(record.monoMs));
  put32(buffer, static_cast<std::uint32_t>(record.bytes.size()));
  buffer.insert(buffer.end(), record.bytes.begin(), record.bytes.end());
  if (record.gap) {
    putText(buffer, record.gap->log);
    put64(buffer, record.gap->from);
    put64(buffer, record.gap->to);
    buffer.push_back(static_cast<std::uint8_t>(record.gap->reason));
  }
  return crc32c(buffer);
}

std::int64_t checksum(const LogFacts& facts) {
  std::vector<std::uint8_t> bytes;
  putText(bytes, facts.identity);
  put64(bytes, facts.forgotten);
  put64(bytes, facts.next);
  return crc32c(bytes);
}

std::int64_t checksum(const std::string& name, RecordNumber number) {
  std::vector<std::uint8_t> bytes;
  putText(bytes, name);
  put64(bytes, number);
  return crc32c(bytes);
}

Record recordOf(const Statement& row) {
  Record record;
  record.number = loaded(row.number(0));
  record.kind = static_cast<RecordKind>(row.number(1));
  record.reader = row.text(2);
  record.name = row.text(3);
  record.link = loaded(row.number(4));
  record.wallMs = row.number(5);
  record.monoMs = row.number(6);
  const auto bytes = row.bytes(7);
  record.bytes.assign(bytes.begin(), bytes.end());
  if (!row.isNull(8)) {
    record.gap = Gap{row.text(8), loaded(row.number(9)), loaded(row.number(10)),
                     static_cast<GapReason>(row.number(11))};
  }
  return record;
}

bool isWhole(const Record& record) {
  const bool isKind = record.kind >= RecordKind::frame && record.kind <= RecordKind::gap;
  if (!isKind || (record.kind == RecordKind::gap) != record.gap.has_value()) return false;
  if (!record.gap) return true;
  return record.gap->reason >= GapReason::budget && record.gap->reason <= GapReason::refused;
}

}  // namespace

// Where they are: the database file format of SQLite, "The Database Header".
std::optional<FileError> readFormat(FileLayer& files, const std::string& path,
                                    std::optional<std::int64_t>& format) {
  constexpr std::string_view kMagic("SQLite format 3\0", 16);
  constexpr std::size_t kHeaderSize = 100;
  constexpr std::size_t kVersionPlace = 60;
  constexpr std::size_t kApplicationPlace = 68;
  format.reset();
  FileError error;
  const auto file = files.open(path, false, error);
  if (!file) return error;
  std::vector<std::uint8_t> header(kHeaderSize);
  std::size_t count = 0;
  if (auto failed = file->read(0, header, count)) return failed;
  const auto number = [&](std::size_t place) {
    std::int64_t value = 0;
    for (std::size_t i = 0; i < 4; ++i) value = value << 8U | header[place + i];
    return value;
  };
  const bool isDatabase =
      count == header.size() &&
      std::ranges::equal(kMagic, std::span(header).first(kMagic.size()), {}, {},
                         [](std::uint8_t byte) { return static_cast<char>(byte); });
  if (isDatabase && number(kApplicationPlace) == kApplication) format = number(kVersionPlace);
  return std::nullopt;
}

std::optional<FileError> RecordTable::create(Database& database, const LogFacts& facts) {
  if (auto failed = database.run(kTables)) return failed;
  Statement insert;
  if (auto failed = database.prepare("INSERT INTO facts VALUES (?, ?, ?, ?)", insert))
    return failed;
  insert.bind(1, std::string_view(facts.identity));
  insert.bind(2, stored(facts.forgotten));
  insert.bind(3, stored(facts.next));
  insert.bind(4, checksum(facts));
  return insert.run();
}

std::optional<FileError> RecordTable::prepare(bool readOnly) {
  if (auto failed = database_.prepare(
          "SELECT number, kind, reader, name, link, wall_ms, mono_ms, bytes, gap_log, gap_from,"
          " gap_to, gap_reason, crc32c FROM records WHERE number >= ? ORDER BY number LIMIT ?",
          select_)) {
    return failed;
  }
  if (readOnly) return std::nullopt;
  if (auto failed = database_.prepare("DELETE FROM records WHERE number <= ?", remove_)) {
    return failed;
  }
  return database_.prepare("INSERT INTO records VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)",
                           insert_);
}

void RecordTable::finish() {
  insert_ = {};
  remove_ = {};
  select_ = {};
}

std::optional<FileError> RecordTable::insert(const Record& record) {
  insert_.bind(1, stored(record.number));
  insert_.bind(2, static_cast<std::int64_t>(record.kind));
  insert_.bind(3, std::string_view(record.reader));
  insert_.bind(4, std::string_view(record.name));
  insert_.bind(5, stored(record.link));
  insert_.bind(6, record.wallMs);
  insert_.bind(7, record.monoMs);
  insert_.bind(8, std::span<const std::uint8_t>(record.bytes));
  if (record.gap) {
    insert_.bind(9, std::string_view(record.gap->log));
    insert_.bind(10, stored(record.gap->from));
    insert_.bind(11, stored(record.gap->to));
    insert_.bind(12, static_cast<std::int64_t>(record.gap->reason));
  } else {
    for (int place = 9; place <= 12; ++place) insert_.bindNull(place);
  }
  insert_.bind(13, static_cast<std::int64_t>(checksum(record, sealed_)));
  return insert_.run();
}

std::optional<FileError> RecordTable::removeUpTo(RecordNumber number) {
  remove_.bind(1, stored(number));
  return remove_.run();
}

std::optional<FileError> RecordTable::writeFacts(const LogFacts& facts) {
  Statement update;
  if (auto failed =
          database_.prepare("UPDATE facts SET forgotten = ?, next = ?, crc32c = ?", update)) {
    return failed;
  }
  update.bind(1, stored(facts.forgotten));
  update.bind(2, stored(facts.next));
  update.bind(3, checksum(facts));
  return update.run();
}

std::optional<FileError> RecordTable::writeKept(const KeptValues& kept) {
  if (auto failed = database_.run("DELETE FROM kept")) return failed;
  Statement insert;
  if (auto failed = database_.prepare("INSERT INTO kept VALUES (?, ?, ?, ?)", insert))
    return failed;
  for (std::size_t place = 0; place < kept.size(); ++place) {
    insert.bind(1, stored(place));
    insert.bind(2, std::string_view(kept[place].first));
    insert.bind(3, stored(kept[place].second));
    insert.bind(4, checksum(kept[place].first, kept[place].second));
    if (auto failed = insert.run()) return failed;
  }
  return std::nullopt;
}

std::optional<FileError> RecordTable::readFacts(LogFacts& facts) {
  Statement select;
  if (auto failed =
          database_.prepare("SELECT identity, forgotten, next, crc32c FROM facts", select)) {
    return failed;
  }
  if (!select.step()) {
    return select.error() ? *select.error()
                          : FileError{kDamaged, database_.path() + ": its identity is missing"};
  }
  facts = {select.text(0), loaded(select.number(1)), loaded(select.number(2))};
  if (checksum(facts) == select.number(3)) return std::nullopt;
  return FileError{kDamaged, database_.path() + ": what it says of itself cannot be read"};
}

std::optional<FileError> RecordTable::readKept(KeptValues& kept) {
  Statement select;
  if (auto failed =
          database_.prepare("SELECT name, number, crc32c FROM kept ORDER BY place", select)) {
    return failed;
  }
  kept.clear();
  while (select.step()) {
    kept.emplace_back(select.text(0), loaded(select.number(1)));
    if (checksum(kept.back().first, kept.back().second) == select.number(2)) continue;
    return FileError{kDamaged, database_.path() + ": a value that is kept cannot be read"};
  }
  return select.error();
}

std::optional<FileError> RecordTable::readEnds(
    std::optional<std::pair<RecordNumber, RecordNumber>>& ends) {
  std::int64_t first = 0;
  std::int64_t last = 0;
  constexpr const char* kFirst = "SELECT ifnull((SELECT min(number) FROM records), 0)";
  constexpr const char* kLast = "SELECT ifnull((SELECT max(number) FROM records), 0)";
  if (auto failed = database_.ask(kFirst, first)) return failed;
  if (auto failed = database_.ask(kLast, last)) return failed;
  ends.reset();
  if (first < 0 || last < first) return FileError{kDamaged, database_.path() + ": bad numbers"};
  if (first > 0) ends = {loaded(first), loaded(last)};
  return std::nullopt;
}

void RecordTable::seek(RecordNumber number, std::size_t most) {
  constexpr auto kMost = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
  select_.reset();
  select_.bind(1, stored(std::min<std::uint64_t>(number, kMost)));
  select_.bind(2, stored(std::min<std::uint64_t>(most, kMost)));
}

RecordTable::Step RecordTable::next(Record& record) {
  if (!select_.step()) {
    if (!select_.error()) return Step::end;
    error_ = *select_.error();
    return Step::failed;
  }
  record = recordOf(select_);
  const bool isSame = isWhole(record) && checksum(record, sealed_) == loaded(select_.number(12));
  return isSame ? Step::record : Step::unreadable;
}

RecordNumber RecordTable::behindDamage(RecordNumber number, RecordNumber last) {
  constexpr RecordNumber kTriedSingly = 4096;
  RecordNumber at = number + 1;
  for (; at <= last; at += at - number <= kTriedSingly ? 1 : at - number) {
    Record record;
    seek(at, 1);
    const Step step = next(record);
    rest();
    if (step != Step::failed) return at;
  }
  return last + 1;
}

std::size_t recordSize(const Record& record) {
  return kFixedSize + record.reader.size() + record.name.size() + record.bytes.size();
}

bool follows(RecordNumber expected, const Record& record, const LogIdentity& identity) {
  if (record.number == expected) return true;
  return record.gap && record.gap->log == identity && record.gap->from <= expected &&
         record.gap->to + 1 == record.number;
}

std::string numbersText(RecordNumber from, RecordNumber to) {
  if (from == to) return "number " + std::to_string(from);
  return "numbers " + std::to_string(from) + " to " + std::to_string(to);
}

}  // namespace kestrin::gateway
