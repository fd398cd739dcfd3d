#include "tools/gateway/log/LogFolder.h"

#include <algorithm>
#include <cerrno>
#include <limits>
#include <utility>

namespace kestrin::gateway {
namespace {

// Overwriting what is removed would cost as much as writing it did.
constexpr const char* kSettings =
    "PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL; PRAGMA secure_delete=OFF;";
constexpr int kReadWrite = SQLITE_OPEN_READWRITE;

bool has(FileLayer& files, const std::string& folder, const std::string& name) {
  std::vector<std::string> names;
  if (files.list(folder, names)) return false;
  return std::ranges::find(names, name) != names.end();
}

/// The write-ahead log stays at its place, so that a full disk has room for it.
void keepWriteAheadLog(const Database& database) {
  int keeps = 1;
  sqlite3_file_control(database.connection(), nullptr, SQLITE_FCNTL_PERSIST_WAL, &keeps);
}

class Opening {
 public:
  Opening(FileLayer& files, const LogFolder& folder,
          const std::function<LogIdentity()>& makeIdentity, OpenedLog& opened,
          std::vector<std::string>& findings)
      : files_(files),
        folder_(folder),
        makeIdentity_(makeIdentity),
        opened_(opened),
        findings_(findings) {}

  std::optional<FileError> run() {
    if (!has(files_, folder_.path, "current")) {
      return isFreshWhole() ? takeFresh() : begin(std::nullopt);
    }
    auto failed = read();
    if (!failed || !isDamage(*failed)) return failed;
    return replace(*failed);
  }

 private:
  // --- A log that is there.

  std::optional<FileError> read() {
    claim_ = readClaim(files_, folder_.claim());
    if (!has(files_, folder_.current(), kDatabaseName)) {
      return FileError{kDamaged, folder_.database() + " is missing"};
    }
    const bool isDoubtful = claim_ ? claim_->isDoubtful : !isClaimTorn(files_, folder_.claim());
    if (isDoubtful) {
      if (auto failed = copyWriteAheadLog(files_, folder_)) {
        if (failed->number != ENOSPC) return failed;
        opened_.onlyCertainTo = 0;
      } else if (auto other = takeCopiedWriteAheadLog(files_, folder_)) {
        return other;
      }
    }
    if (auto failed = connectTo(files_, folder_.database(), database_)) return failed;
    RecordTable table(database_);
    if (auto failed = table.prepare(true)) return failed;
    if (auto failed = table.readFacts(opened_.facts)) return failed;
    if (opened_.facts.forgotten >= opened_.facts.next) {
      return FileError{kDamaged, folder_.database() + " forgets more than there was"};
    }
    if (auto failed = table.readKept(opened_.kept)) return failed;
    if (auto failed = check(table)) return failed;
    if (auto failed = checkClaim()) return failed;
    if (opened_.onlyCertainTo) {
      const bool isClaimed = claim_ && claim_->identity == opened_.facts.identity;
      opened_.onlyCertainTo = std::max(isClaimed ? claim_->synced : 0, opened_.facts.forgotten);
    }
    return std::nullopt;
  }

  /// Every record is what was written, and none is missing.
  std::optional<FileError> check(RecordTable& table) {
    RecordNumber expected = 0;
    RecordNumber number = 0;
    bool isGap = false;
    table.seek(0, std::numeric_limits<std::size_t>::max());
    for (auto step = table.pass(number, isGap); step != RecordTable::Step::end;
         step = table.pass(number, isGap)) {
      if (step == RecordTable::Step::failed) return table.error();
      Record record;
      const bool isRead = step == RecordTable::Step::record && (!isGap || table.take(record));
      if (!isRead) return unreadable(number, number);
      record.number = number;
      if (expected == 0) {
        opened_.first = number;
        if (record.gap && record.gap->log == opened_.facts.identity) firstFrom_ = record.gap->from;
      } else if (!follows(expected, record, opened_.facts.identity)) {
        return unreadable(expected, number - 1);
      }
      note(record);
      expected = number + 1;
    }
    table.rest();
    LogFacts& facts = opened_.facts;
    if (expected == 0) opened_.first = facts.next;
    // What went has been forgotten, or a gap says that it made room.
    const RecordNumber gone = std::max(facts.forgotten, budgetGapTo_);
    const RecordNumber from = std::min(opened_.first, firstFrom_.value_or(opened_.first));
    if (from > gone + 1) return unreadable(gone + 1, opened_.first - 1);
    if (expected != 0 && expected < facts.next) return unreadable(expected, facts.next - 1);
    facts.next = std::max(facts.next, expected);
    return std::nullopt;
  }

  void note(const Record& record) {
    if (!record.gap) return;
    opened_.gaps.push_back({record.number, *record.gap});
    const bool isOwn = record.gap->log == opened_.facts.identity;
    if (isOwn && record.gap->reason == GapReason::budget) {
      budgetGapTo_ = std::max(budgetGapTo_, record.gap->to);
    }
  }

  FileError unreadable(RecordNumber from, RecordNumber to) const {
    return {kDamaged, numbersText(from, to) + " cannot be read"};
  }

  std::optional<FileError> checkClaim() {
    if (!claim_ || claim_->identity != opened_.facts.identity) return std::nullopt;
    if (claim_->synced < opened_.facts.next) return std::nullopt;
    return unreadable(opened_.facts.next, claim_->synced);
  }

  // --- A log that is damaged.

  std::optional<FileError> replace(const FileError& damage) {
    const auto lost = lostOfDamaged();
    database_.close();
    const LogIdentity identity = lost ? lost->log : kUnknownIdentity;
    std::string aside = folder_.path + "/" + identity + ".damaged";
    for (int i = 2; has(files_, folder_.path, aside.substr(folder_.path.size() + 1)); ++i) {
      aside = folder_.path + "/" + identity + "-" + std::to_string(i) + ".damaged";
    }
    opened_ = {};
    if (auto failed = make(lost)) return failed;
    if (auto failed = files_.rename(folder_.current(), aside)) return failed;
    if (auto failed = takeFresh()) return failed;
    findings_.push_back("the log " + identity + " is damaged (" + damage.text +
                        "): it is kept in " + aside + ", and a log of another identity begins");
    return std::nullopt;
  }

  /// What nobody had committed of the log that is damaged, as far as anything says it.
  std::optional<Gap> lostOfDamaged() {
    LogFacts facts;
    if (claim_) facts = {claim_->identity, claim_->forgotten, claim_->synced + 1};
    if (database_.isOpen()) {
      RecordTable table(database_);
      LogFacts read;
      std::optional<std::pair<RecordNumber, RecordNumber>> ends;
      if (!table.readFacts(read)) {
        facts = {read.identity, std::max(facts.forgotten, read.forgotten),
                 std::max(facts.next, read.next)};
      }
      if (!table.readEnds(ends) && ends) facts.next = std::max(facts.next, ends->second + 1);
    }
    if (facts.identity.empty()) return std::nullopt;
    const RecordNumber from = facts.forgotten + 1;
    return Gap{facts.identity, from, std::max(from, facts.next - 1), GapReason::damaged};
  }

  // --- A log that begins.

  /// Where it is, an earlier start has not come to give it its name.
  bool isFreshWhole() {
    const std::string path = folder_.fresh() + "/" + kDatabaseName;
    LogFacts facts;
    if (connectTo(files_, path, database_)) return false;
    const bool isWhole = !RecordTable(database_).readFacts(facts);
    database_.close();
    return isWhole;
  }

  std::optional<FileError> begin(const std::optional<Gap>& lost) {
    if (auto failed = make(lost)) return failed;
    return takeFresh();
  }

  /// Makes a whole log beside the one in use: whichever has the name `current` is whole.
  std::optional<FileError> make(const std::optional<Gap>& lost) {
    for (const std::string& made : {folder_.making(), folder_.fresh()}) {
      if (auto failed = files_.makeFolder(made)) return failed;
      std::vector<std::string> leftovers;
      if (auto failed = files_.list(made, leftovers)) return failed;
      for (const std::string& name : leftovers) {
        std::string leftover = made;
        leftover.append("/").append(name);
        if (auto failed = files_.remove(leftover)) return failed;
      }
    }
    const std::string path = folder_.making() + "/" + kDatabaseName;
    if (auto failed = database_.open(path, kReadWrite | SQLITE_OPEN_CREATE, files_.vfs())) {
      return failed;
    }
    const LogIdentity identity = makeIdentity_();
    auto failed = fill(identity, lost);
    if (!failed) failed = database_.checkpoint();
    database_.close();
    if (!failed) failed = makeClaim(identity);
    if (!failed) failed = files_.syncFolder(folder_.making());
    if (!failed) failed = files_.rename(folder_.making(), folder_.fresh());
    return failed ? failed : files_.syncFolder(folder_.path);
  }

  /// It is there from the beginning, so that a full disk keeps nobody from writing it later.
  std::optional<FileError> makeClaim(const LogIdentity& identity) {
    const std::string path = folder_.making() + "/claim";
    writeClaim(files_, path, {identity, 0, 0});
    FileError error;
    const auto file = files_.open(path, false, error);
    return file ? file->sync() : std::optional(error);
  }

  std::optional<FileError> fill(const LogIdentity& identity, const std::optional<Gap>& lost) {
    const std::string page = "PRAGMA page_size=" + std::to_string(kPageSize);
    if (auto failed = database_.run(page.c_str())) return failed;
    if (auto failed = database_.run("PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL")) {
      return failed;
    }
    Transaction all(database_);
    if (auto failed = all.begin()) return failed;
    if (auto failed = RecordTable::create(database_, {identity, 0, 1})) return failed;
    if (lost) {
      RecordTable table(database_);
      if (auto failed = table.prepare(false)) return failed;
      Record record;
      record.number = 1;
      record.kind = RecordKind::gap;
      record.gap = lost;
      if (auto failed = table.insert(record)) return failed;
    }
    return all.commit();
  }

  std::optional<FileError> takeFresh() {
    if (auto failed = files_.rename(folder_.fresh(), folder_.current())) return failed;
    if (auto failed = files_.syncFolder(folder_.path)) return failed;
    claim_.reset();
    return read();
  }

  FileLayer& files_;
  const LogFolder& folder_;
  const std::function<LogIdentity()>& makeIdentity_;
  Database database_;
  OpenedLog& opened_;
  std::vector<std::string>& findings_;
  std::optional<Claim> claim_;
  RecordNumber budgetGapTo_ = 0;
  std::optional<RecordNumber> firstFrom_;  // The first record says itself what is lost before it.
};

}  // namespace

std::optional<FileError> copyWriteAheadLog(FileLayer& files, const LogFolder& folder) {
  const std::string copyPath = folder.database() + "-wal.new";
  FileError error;
  if (files.open(copyPath, false, error)) {
    if (auto failed = files.remove(copyPath)) return failed;
  }
  const auto copy = files.open(copyPath, true, error);
  if (!copy) return error;
  if (const auto file = files.open(folder.database() + "-wal", false, error)) {
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(file->size()));
    std::size_t count = 0;
    if (auto failed = file->read(0, bytes, count)) return failed;
    if (auto failed = copy->append(std::span(bytes).first(count))) return failed;
  }
  return copy->sync();
}

std::optional<FileError> takeCopiedWriteAheadLog(FileLayer& files, const LogFolder& folder) {
  const std::string path = folder.database() + "-wal";
  if (auto failed = files.rename(path + ".new", path)) return failed;
  return files.syncFolder(folder.current());
}

std::optional<FileError> refuseNewer(FileLayer& files, const LogFolder& folder) {
  for (const std::string& made : {folder.current(), folder.fresh()}) {
    const std::string path = std::string(made).append("/").append(kDatabaseName);
    FileError none;
    if (!files.open(path, false, none)) continue;
    std::optional<std::int64_t> format;
    if (auto failed = readFormat(files, path, format)) return failed;
    if (format && *format > kFormat) return newerFormat(path);
  }
  return std::nullopt;
}

std::optional<FileError> openLogFolder(FileLayer& files, const LogFolder& folder,
                                       const std::function<LogIdentity()>& makeIdentity,
                                       OpenedLog& opened, std::vector<std::string>& findings) {
  return Opening(files, folder, makeIdentity, opened, findings).run();
}

std::optional<FileError> connectTo(FileLayer& files, const std::string& path, Database& database) {
  if (auto failed = database.open(path, kReadWrite, files.vfs())) return failed;
  // Asked of SQLite: a power cut may have left half of the file's header, and the whole one in the
  // write-ahead log.
  std::int64_t application = 0;
  std::int64_t format = 0;
  if (auto failed = database.ask("PRAGMA application_id", application)) return failed;
  if (auto failed = database.ask("PRAGMA user_version", format)) return failed;
  if (application != kApplication) return FileError{kDamaged, path + " is not a log"};
  if (format > kFormat) return newerFormat(path);
  if (auto failed = database.run(kSettings)) return failed;
  keepWriteAheadLog(database);
  return std::nullopt;
}

}  // namespace kestrin::gateway
