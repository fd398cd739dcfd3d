#include "tools/gateway/log/RecordTable.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <utility>

#include "tools/gateway/log/Crc32c.h"
#include "tools/gateway/log/LittleEndian.h"

namespace kestrin::gateway {
namespace {

constexpr std::size_t kFixedSize = 64;
constexpr std::size_t kChecksumSize = 4;
constexpr std::size_t kKindPlace = kChecksumSize + sizeof(RecordNumber);

constexpr const char* kTables =
    "CREATE TABLE records (number INTEGER PRIMARY KEY, record BLOB NOT NULL);"
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
  put16(bytes, static_cast<std::uint16_t>(text.size()));
  bytes.insert(bytes.end(), text.begin(), text.end());
}

/// A record as it is stored: docs/gateway-log.md has the table.
void encode(const Record& record, std::vector<std::uint8_t>& bytes) {
  bytes.assign(kChecksumSize, 0);
  put64(bytes, record.number);
  bytes.push_back(static_cast<std::uint8_t>(record.kind));
  put64(bytes, record.link);
  put64(bytes, loaded(record.wallMs));
  put64(bytes, loaded(record.monoMs));
  putText(bytes, record.reader);
  putText(bytes, record.name);
  if (record.gap) {
    putText(bytes, record.gap->log);
    put64(bytes, record.gap->from);
    put64(bytes, record.gap->to);
    bytes.push_back(static_cast<std::uint8_t>(record.gap->reason));
  }
  bytes.insert(bytes.end(), record.bytes.begin(), record.bytes.end());
  setNumber(bytes.data(), crc32c(std::span(bytes).subspan(kChecksumSize)));
}

/// Takes fields from the front; `isWhole` says at the end whether there was enough.
class Fields {
 public:
  explicit Fields(std::span<const std::uint8_t> bytes) : rest_(bytes) {}

  template <typename Number>
  Number number() {
    const auto bytes = take(sizeof(Number));
    return isWhole_ ? getNumber<Number>(bytes.data()) : Number{0};
  }
  std::string text() {
    const auto bytes = take(number<std::uint16_t>());
    std::string text(bytes.size(), '\0');
    if (!bytes.empty()) std::memcpy(text.data(), bytes.data(), bytes.size());
    return text;
  }
  std::vector<std::uint8_t> others() {
    const auto bytes = take(rest_.size());
    return {bytes.begin(), bytes.end()};
  }
  [[nodiscard]] bool isWhole() const { return isWhole_; }

 private:
  std::span<const std::uint8_t> take(std::size_t count) {
    isWhole_ = isWhole_ && count <= rest_.size();
    const auto taken = isWhole_ ? rest_.first(count) : std::span<const std::uint8_t>{};
    rest_ = rest_.subspan(taken.size());
    return taken;
  }

  std::span<const std::uint8_t> rest_;
  bool isWhole_ = true;
};

/// Whether the bytes are what was written under the number.
bool isSound(std::uint64_t number, std::span<const std::uint8_t> bytes) {
  constexpr std::size_t kHead = kChecksumSize + sizeof(RecordNumber) + 1;
  if (bytes.size() < kHead || get64(bytes.data() + kChecksumSize) != number) return false;
  return crc32c(bytes.subspan(kChecksumSize)) == get32(bytes.data());
}

bool isKnown(const Record& record) {
  if (record.kind < RecordKind::frame || record.kind > RecordKind::gap) return false;
  if (!record.gap) return true;
  return record.gap->reason >= GapReason::budget && record.gap->reason <= GapReason::refused;
}

std::optional<Record> decode(std::span<const std::uint8_t> bytes) {
  Fields fields(bytes.subspan(kChecksumSize));
  Record record;
  record.number = fields.number<RecordNumber>();
  record.kind = static_cast<RecordKind>(fields.number<std::uint8_t>());
  record.link = fields.number<std::uint64_t>();
  record.wallMs = stored(fields.number<std::uint64_t>());
  record.monoMs = stored(fields.number<std::uint64_t>());
  record.reader = fields.text();
  record.name = fields.text();
  if (record.kind == RecordKind::gap) {
    Gap gap;
    gap.log = fields.text();
    gap.from = fields.number<RecordNumber>();
    gap.to = fields.number<RecordNumber>();
    gap.reason = static_cast<GapReason>(fields.number<std::uint8_t>());
    record.gap = gap;
  }
  record.bytes = fields.others();
  return fields.isWhole() && isKnown(record) ? std::optional(record) : std::nullopt;
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

FileError newerFormat(const std::string& path) {
  return {EINVAL, path + " has a newer format than this program reads (" + std::to_string(kFormat) +
                      "): a newer kestrin-gateway would be right"};
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
          "SELECT number, record FROM records WHERE number >= ? ORDER BY number LIMIT ?",
          select_)) {
    return failed;
  }
  if (readOnly) return std::nullopt;
  if (auto failed = database_.prepare("DELETE FROM records WHERE number <= ?", remove_)) {
    return failed;
  }
  if (auto failed = database_.prepare("SELECT next FROM facts", stay_)) return failed;
  return database_.prepare("INSERT INTO records VALUES (?, ?)", insert_);
}

void RecordTable::finish() {
  leave();
  stay_ = {};
  insert_ = {};
  remove_ = {};
  select_ = {};
}

std::optional<FileError> RecordTable::insert(const Record& record) {
  encode(record, encoded_);
  insert_.bind(1, stored(record.number));
  insert_.bind(2, std::span<const std::uint8_t>(encoded_));
  return insert_.run();
}

void RecordTable::stay() {
  if (stays_) return;
  // A statement that stands on a row keeps the transaction open that reads it.
  stays_ = stay_.step();
  if (!stays_) stay_.reset();
}

void RecordTable::leave() {
  if (std::exchange(stays_, false)) stay_.reset();
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
  const bool isPossible =
      facts.forgotten <= kHighestNumber && facts.next > 0 && facts.next <= kHighestNumber;
  if (isPossible && checksum(facts) == select.number(3)) return std::nullopt;
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
  if (first < 0 || last < first || loaded(last) > kHighestNumber)
    return FileError{kDamaged, database_.path() + ": bad numbers"};
  if (first > 0) ends = {loaded(first), loaded(last)};
  return std::nullopt;
}

void RecordTable::seek(RecordNumber number, std::size_t most) {
  constexpr auto kMost = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
  select_.reset();
  select_.bind(1, stored(std::min<std::uint64_t>(number, kMost)));
  select_.bind(2, stored(std::min<std::uint64_t>(most, kMost)));
}

RecordTable::Step RecordTable::pass(RecordNumber& number, bool& isGap) {
  if (!select_.step()) {
    if (!select_.error()) return Step::end;
    error_ = *select_.error();
    return Step::failed;
  }
  number = loaded(select_.number(0));
  const auto bytes = select_.bytes(1);
  if (!isSound(number, bytes)) return Step::unreadable;
  isGap = bytes[kKindPlace] == static_cast<std::uint8_t>(RecordKind::gap);
  return Step::record;
}

bool RecordTable::take(Record& record) {
  auto decoded = decode(select_.bytes(1));
  if (decoded) record = std::move(*decoded);
  return decoded.has_value();
}

RecordTable::Step RecordTable::next(Record& record) {
  bool isGap = false;
  RecordNumber number = 0;
  const Step step = pass(number, isGap);
  if (step == Step::record && take(record)) return step;
  record.number = number;
  return step == Step::record ? Step::unreadable : step;
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
