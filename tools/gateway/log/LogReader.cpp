#include "tools/gateway/log/LogReader.h"

#include <algorithm>
#include <cerrno>
#include <deque>
#include <limits>
#include <utility>

#include "tools/gateway/log/LogFolder.h"
#include "tools/gateway/log/RecordTable.h"

namespace kestrin::gateway {
namespace {

/// A path in a URI of SQLite's.
std::string escaped(const std::string& path) {
  std::string text;
  for (const char c : path) {
    if (c == '%' || c == '?' || c == '#') {
      text += c == '%' ? "%25" : (c == '?' ? "%3f" : "%23");
    } else {
      text += c;
    }
  }
  return text;
}

}  // namespace

struct LogReader::Inside {
  using Step = RecordTable::Step;

  std::shared_ptr<FileLayer> files;
  std::string folder;
  Database database;
  RecordTable table{database};
  LogFacts facts;
  KeptValues kept;
  RecordNumber first = 1;
  RecordNumber last = 0;  // The highest number that there is, as far as anything says it.
  std::vector<std::string> findings;

  std::deque<Record> records;
  RecordNumber expected = 0;  // 0: nothing has been read yet.
  RecordNumber number = 0;    // From here on nothing has been read.
  bool isAtEnd = false;

  std::optional<FileError> open(const std::string& path) {
    std::optional<std::int64_t> format;
    if (auto failed = readFormat(*files, path, format)) return failed;
    if (format && *format > kFormat) return newerFormat(path);
    auto failed = connect(path, SQLITE_OPEN_READONLY);
    if (!failed || isDamage(*failed)) return failed;
    // A folder that cannot be written in, with a log that has been closed in order.
    FileError none;
    if (files->open(path + "-wal", false, none)) return failed;
    return connect("file:" + escaped(path) + "?immutable=1",
                   SQLITE_OPEN_READONLY | SQLITE_OPEN_URI);
  }

  std::optional<FileError> connect(const std::string& path, int flags) {
    table.finish();
    if (auto failed = database.open(path, flags, files->vfs())) return failed;
    return table.prepare(true);
  }

  void prepare(const std::string& inner) {
    folder = inner;
    look();
  }

  void look() {
    const auto claim = readClaim(*files, folder + "/claim");
    if (const auto failed = table.readFacts(facts)) {
      findings.push_back(failed->text);
      facts = {kUnknownIdentity, 0, 1};
      if (claim) facts = {claim->identity, claim->forgotten, claim->synced + 1};
    }
    if (const auto failed = table.readKept(kept)) findings.push_back(failed->text);
    std::optional<std::pair<RecordNumber, RecordNumber>> ends;
    if (const auto failed = table.readEnds(ends)) findings.push_back(failed->text);
    first = ends ? ends->first : facts.next;
    last = std::max(facts.next - 1, ends ? ends->second : 0);
    if (claim && claim->identity == facts.identity) last = std::max(last, claim->synced);
  }

  void begin(RecordNumber from) {
    // What it reads first settles the moment.
    if (const auto failed = database.run("BEGIN")) findings.push_back(failed->text);
    look();
    number = std::max(from, first);
    expected = number;
  }

  bool next(Record& record) {
    if (records.empty()) fill();
    if (records.empty()) return false;
    record = std::move(records.front());
    records.pop_front();
    return true;
  }

  void fill() {
    while (records.empty() && !isAtEnd) {
      table.seek(number, kReadAtOnce);
      Step step = Step::record;
      for (std::size_t i = 0; i < kReadAtOnce && step != Step::end && step != Step::failed; ++i) {
        Record record;
        step = table.next(record);
        if (step == Step::record) {
          take(std::move(record));
        } else if (step == Step::unreadable) {
          number = std::max(number, record.number + 1);
        }
      }
      table.rest();
      if (step == Step::failed) passDamage();
      if (step == Step::end) end();
    }
  }

  void take(Record record) {
    if (expected != 0 && !follows(expected, record, facts.identity)) {
      lost(expected, record.number - 1);
    }
    expected = record.number + 1;
    number = expected;
    records.push_back(std::move(record));
  }

  void passDamage() {
    const FileError error = table.error();
    if (!isDamage(error)) {
      findings.push_back(error.text);
      isAtEnd = true;
      return;
    }
    number = table.behindDamage(number, last);
    if (number > last) end();
  }

  void end() {
    isAtEnd = true;
    const RecordNumber from = expected == 0 ? facts.forgotten + 1 : expected;
    if (from <= last) lost(from, last);
  }

  void lost(RecordNumber from, RecordNumber to) {
    findings.push_back(numbersText(from, to) + " cannot be read");
  }
};

std::unique_ptr<LogReader> LogReader::open(std::shared_ptr<FileLayer> files,
                                           const std::string& folder, std::string& error) {
  auto inside = std::make_unique<Inside>();
  inside->files = std::move(files);
  FileError ignored;
  const LogFolder whole{folder};
  std::string inner = folder;
  if (!inside->files->open(folder + "/" + kDatabaseName, false, ignored)) inner = whole.current();
  const std::string path = inner + "/" + kDatabaseName;
  if (!inside->files->open(path, false, ignored)) {
    error = "there is no log in " + folder + ": a folder with " +
            whole.database().substr(folder.size() + 1) + " would be right (" + ignored.text + ")";
    return nullptr;
  }
  if (const auto failed = inside->open(path)) {
    error = failed->text;
    return nullptr;
  }
  inside->prepare(inner);
  return std::unique_ptr<LogReader>(new LogReader(std::move(inside)));
}

LogReader::LogReader(std::unique_ptr<Inside> inside) : inside_(std::move(inside)) {}
LogReader::~LogReader() = default;

const LogIdentity& LogReader::identity() const { return inside_->facts.identity; }
RecordNumber LogReader::forgotten() const { return inside_->facts.forgotten; }
const std::vector<std::pair<std::string, RecordNumber>>& LogReader::kept() const {
  return inside_->kept;
}

RecordNumber LogReader::first() const { return inside_->first; }
RecordNumber LogReader::behind() const { return inside_->last + 1; }

void LogReader::begin(RecordNumber number) { inside_->begin(number); }
bool LogReader::next(Record& record) { return inside_->next(record); }
std::vector<std::string> LogReader::takeFindings() { return std::exchange(inside_->findings, {}); }

}  // namespace kestrin::gateway
