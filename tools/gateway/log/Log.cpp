#include "tools/gateway/log/Log.h"

#include <algorithm>
#include <cerrno>
#include <deque>
#include <random>
#include <system_error>
#include <utility>

#include "tools/gateway/log/LogFolder.h"
#include "tools/gateway/log/RecordTable.h"
#include "tools/gateway/log/Reserve.h"
#include "tools/gateway/log/SyncWork.h"

namespace kestrin::gateway {
namespace {

constexpr std::size_t kLargestRecord = std::size_t{64} << 10U;
constexpr std::uint64_t kSmallestWriteAhead = 96ULL << 10U;
constexpr std::uint64_t kLargestWriteAhead = 8ULL << 20U;
/// How much the write-ahead log may take before its file is cut, in parts of its limit.
constexpr std::uint64_t kLongestWriteAhead = 3;
/// Pages that a transaction changes besides those of its record: a branch of the tree, and what the
/// database knows of free pages.
constexpr std::uint64_t kPagesBesideARecord = 8;
/// The budget is looked at whenever so much has been appended.
constexpr std::uint64_t kBytesPerLook = 16ULL << 10U;
/// Removed at most at once, so that nothing else waits long.
constexpr RecordNumber kRemovedAtOnce = 4096;
/// The latest records stay in memory, since they are usually read at once.
constexpr std::size_t kRecentRecords = 256;
constexpr std::size_t kRecentBytes = std::size_t{256} << 10U;

LogIdentity randomIdentity() {
  std::random_device random;
  std::uniform_int_distribution<std::size_t> digit(0, 15);
  LogIdentity identity;
  while (identity.size() < kUnknownIdentity.size()) {
    identity.push_back("0123456789abcdef"[digit(random)]);
  }
  return identity;
}

std::optional<std::string> complaintAbout(const LogOptions& options) {
  if (options.folder.empty()) return "the log needs a folder";
  if (options.budget >= kSmallestBudget) return std::nullopt;
  return "a budget of " + std::to_string(options.budget) +
         " bytes is too small for a log: " + std::to_string(kSmallestBudget) +
         " or more would be right";
}

std::optional<FileError> complaintAbout(const Record& record) {
  if (recordSize(record) > kLargestRecord) {
    return FileError{EMSGSIZE, "a record of " + std::to_string(recordSize(record)) +
                                   " bytes is too long for the log: " +
                                   std::to_string(kLargestRecord) + " would be right at most"};
  }
  if ((record.kind == RecordKind::gap) != record.gap.has_value()) {
    return FileError{EINVAL, "a gap record says what is lost, and no other record does"};
  }
  return std::nullopt;
}

}  // namespace

struct Log::Inside {
  // --- What it is made of.
  std::shared_ptr<FileLayer> files;
  LogOptions options;
  LogFolder folder;
  std::shared_ptr<void> lock;
  Database database;
  RecordTable table{database};
  Reserve reserve;
  std::uint64_t writeAheadLimit = 0;  // Bytes, about.
  std::uint64_t databaseLimit = 0;    // Bytes.

  // --- The records.
  LogFacts facts;  // `next` is the number that the next record gets.
  RecordNumber first = 1;
  RecordNumber written = 0;  // The last record's number; behind it all were refused.
  RecordNumber synced = 0;
  bool refused = false;       // Numbers behind `written` are lost.
  std::deque<Record> recent;  // The last of them, as far as they stand side by side.
  std::size_t recentBytes = 0;
  std::vector<Gap> owed;      // Gaps that no record says yet.
  std::vector<SaidGap> said;  // The gap records that are kept.
  std::vector<std::pair<RecordNumber, RecordNumber>> unreadable;

  // --- What is to be synced.
  bool changed = false;     // The write-ahead log has more than the disk.
  bool mustReopen = false;  // A sync has failed: nobody knows what is on the disk.
  bool isReady = false;     // Closed by a sync that failed, until it can be opened again.
  bool isStuck = false;     // The disk is too full to make certain of what there is.
  std::shared_ptr<SyncSide> side;
  std::shared_ptr<SyncWork> inFlight;
  KeptValues kept;
  bool keptChanged = false;
  RecordNumber persistedForgotten = 0;

  // --- How much there is.
  std::uint64_t databaseSize = 0;  // Of pages that hold something.
  std::uint64_t writeAheadPages = 0;
  std::uint64_t writeAheadFile = 0;  // Pages; what the file has behind the others is used again.
  std::uint64_t bytesSinceLook = 0;

  std::vector<std::string> findings;

  ~Inside() {
    if (!isReady || mustReopen || side->failed) return;
    table.leave();
    // Everything gets into the database, where nothing but itself is needed to read it.
    const auto failed = database.checkpoint();
    if (failed && failed->number != ENOSPC && failed->number != EBUSY) doubt();
  }

  // --- Opening.

  std::optional<FileError> open(std::vector<std::string>& found) {
    if (auto error = files->makeFolder(options.folder)) return error;
    FileError error;
    lock = files->lock(options.folder, error);
    if (!lock) return error;
    folder.path = options.folder;
    if (auto newer = refuseNewer(*files, folder)) return newer;
    writeAheadLimit = std::clamp(options.budget / 16, kSmallestWriteAhead, kLargestWriteAhead);
    // As much as the write-ahead log ever takes, so that it can be copied.
    reserve.begin(files, folder.reserve(), longestWriteAhead());
    databaseLimit = options.budget - 7 * writeAheadLimit;
    OpenedLog opened;
    auto failed = openFolder(opened, found);
    const bool isFull = opened.onlyCertainTo || (failed && failed->number == ENOSPC);
    if (isFull && reserve.release()) {
      disconnect();
      opened = {};
      failed = openFolder(opened, found);
    }
    if (failed) return failed;
    facts = opened.facts;
    first = opened.first;
    kept = std::move(opened.kept);
    said = std::move(opened.gaps);
    written = facts.next - 1;
    persistedForgotten = facts.forgotten;
    if (!opened.onlyCertainTo) return makeCertain();
    synced = std::min(*opened.onlyCertainTo, written);
    mustReopen = true;
    isStuck = true;
    return std::nullopt;
  }

  std::optional<FileError> openFolder(OpenedLog& opened, std::vector<std::string>& found) {
    auto failed = openLogFolder(*files, folder, options.makeIdentity, opened, found);
    return failed ? failed : connect();
  }

  void disconnect() {
    isReady = false;
    table.finish();
    side.reset();
    database.close();
  }

  std::optional<FileError> connect() {
    if (auto failed = connectTo(*files, folder.database(), database)) return failed;
    const std::string longest = std::to_string(longestWriteAhead());
    if (auto failed = database.run(("PRAGMA journal_size_limit=" + longest).c_str())) return failed;
    if (auto failed = table.prepare(false)) return failed;
    sqlite3_wal_hook(database.connection(), &Inside::committed, this);
    side = std::make_shared<SyncSide>();
    side->files = files;
    side->folder = folder.current();
    side->databasePath = folder.database();
    side->claimPath = folder.claim();
    isReady = true;
    measureWriteAhead();
    return look();
  }

  /// An earlier process may have seen its sync fail, or may not have come to it.
  std::optional<FileError> makeCertain() {
    auto failed = database.checkpoint();
    changed = false;
    // A full disk takes nothing more, but what is in the write-ahead log can be synced there.
    if (failed && failed->number != ENOSPC && failed->number != EBUSY) {
      doubt();
      return failed;
    }
    if (failed) {
      const auto work = newWork();
      work->run();
      mustReopen = work->syncFailed;
      if (work->dataError) return work->dataError;
    }
    synced = written;
    return std::nullopt;
  }

  static int committed(void* self, sqlite3* /*connection*/, const char* /*name*/, int pages) {
    auto& log = *static_cast<Inside*>(self);
    log.changed = true;
    const auto before = std::exchange(log.writeAheadPages, static_cast<std::uint64_t>(pages));
    // Begun again, it may have been cut.
    if (log.writeAheadPages <= before) log.measureWriteAhead();
    log.writeAheadFile = std::max(log.writeAheadFile, log.writeAheadPages);
    // The sync thread sees to it long before; where it does not come to it, this must.
    if (log.writeAheadSize() >= 2 * log.writeAheadLimit && !log.mustReopen && !log.side->failed) {
      log.table.leave();
      const auto failed = log.database.checkpoint();
      if (failed && failed->number != ENOSPC && failed->number != EBUSY) log.doubt();
    }
    return SQLITE_OK;
  }

  // --- Appending.

  FileError cannotSync() const {
    return {EIO, folder.database() + ": cannot be synced: " + std::generic_category().message(EIO)};
  }
  FileError stuck() const {
    return {ENOSPC, folder.database() + ": " + std::generic_category().message(ENOSPC)};
  }
  FileError notReady() const {
    return {EIO, folder.database() + ": cannot be opened again after a sync that has failed"};
  }

  std::optional<RecordNumber> append(const Record& record, FileError& error) {
    auto failed = complaintAbout(record);
    if (!failed) failed = write(&record);
    if (!failed) return written;
    error = *failed;
    refused = true;
    ++facts.next;
    return std::nullopt;
  }

  /// Writes the record, and in front of it the gaps that none says yet. All of it or nothing.
  std::optional<FileError> write(const Record* record) {
    if (!isReady) return notReady();
    if (isStuck) return stuck();
    if (bytesSinceLook >= kBytesPerLook) {
      if (auto failed = look()) return failed;
    }
    if (auto failed = holdBudget(record != nullptr ? recordSize(*record) : 0)) return failed;
    const bool isOver = databaseSize > databaseLimit;
    if (record != nullptr && !isOver && !refused && owed.empty()) return writeAlone(*record);
    return writeWithGaps(record, isOver);
  }

  std::optional<FileError> writeAlone(const Record& record) {
    Record numbered = record;
    numbered.number = facts.next;
    if (auto failed = table.insert(numbered)) {
      // SQLite takes an error back only when nobody reads any more.
      table.leave();
      return failed;
    }
    // What the sync thread is about to get into the database should all get there.
    if (!inFlight || !inFlight->checkpoints) table.stay();
    took(numbered.number, recordSize(numbered));
    remember(std::move(numbered));
    return std::nullopt;
  }

  void remember(Record record) {
    recentBytes += recordSize(record);
    recent.push_back(std::move(record));
    while (recent.size() > kRecentRecords || recentBytes > kRecentBytes) {
      recentBytes -= recordSize(recent.front());
      recent.pop_front();
    }
  }
  void forgetRecent() {
    recent.clear();
    recentBytes = 0;
  }

  std::optional<FileError> writeWithGaps(const Record* record, bool isOver) {
    table.leave();
    Transaction all(database);
    if (auto failed = all.begin()) return failed;
    RecordNumber number = facts.next;
    std::vector<Gap> gaps = gapsNow();
    std::optional<RecordNumber> goneTo;
    if (isOver && first <= written) {
      goneTo = first + std::min(kRemovedAtOnce, (written + 1 - first) / 16);
    }
    if (goneTo) {
      if (auto failed = table.removeUpTo(*goneTo)) return failed;
      addBudgetGaps(gaps, *goneTo);
    }
    std::vector<SaidGap> saidNow;
    for (const Gap& gap : gaps) {
      Record saying;
      saying.number = number++;
      saying.kind = RecordKind::gap;
      saying.gap = gap;
      saidNow.push_back({saying.number, gap});
      if (auto failed = table.insert(saying)) return failed;
    }
    if (record != nullptr) {
      Record numbered = *record;
      numbered.number = number++;
      if (auto failed = table.insert(numbered)) return failed;
    }
    // What is forgotten leaves no gap behind, so it has to be known where it went.
    if (goneTo && facts.forgotten != persistedForgotten) {
      LogFacts now = facts;
      now.next = number;
      if (auto failed = table.writeFacts(now)) return failed;
    }
    if (auto failed = all.commit()) return failed;
    if (goneTo) persistedForgotten = facts.forgotten;
    // They are all that is behind some number, without a hole.
    forgetRecent();
    if (goneTo) std::erase_if(said, [&](const SaidGap& each) { return each.number <= *goneTo; });
    said.insert(said.end(), saidNow.begin(), saidNow.end());
    sayWhatWentAndCame(goneTo);
    if (goneTo) first = *goneTo + 1;
    owed.clear();
    took(number - 1, kBytesPerLook);
    return std::nullopt;
  }

  std::vector<Gap> gapsNow() const {
    std::vector<Gap> gaps;
    if (refused) {
      gaps.push_back({facts.identity, written + 1, facts.next - 1, GapReason::refused});
    }
    gaps.insert(gaps.end(), owed.begin(), owed.end());
    return gaps;
  }

  /// A gap record that goes before anybody needs it no more is said again.
  void addBudgetGaps(std::vector<Gap>& gaps, RecordNumber goneTo) const {
    if (goneTo <= facts.forgotten) return;
    Gap made{facts.identity, facts.forgotten + 1, goneTo, GapReason::budget};
    for (const auto& [number, gap] : said) {
      if (number <= facts.forgotten || number > goneTo) continue;
      const bool isOwn = gap.log == facts.identity;
      if (isOwn && gap.from >= made.from) continue;
      if (isOwn && gap.reason == GapReason::budget && gap.to + 1 >= made.from) {
        made.from = gap.from;
      } else {
        gaps.push_back(gap);
      }
    }
    gaps.push_back(made);
  }

  void sayWhatWentAndCame(const std::optional<RecordNumber>& goneTo) {
    if (refused) {
      findings.push_back("the log takes records again; " +
                         numbersText(written + 1, facts.next - 1) + " could not be kept");
    }
    if (goneTo && *goneTo > facts.forgotten) {
      findings.push_back("the budget is used up: " + numbersText(facts.forgotten + 1, *goneTo) +
                         " made room for new records");
    }
  }

  void took(RecordNumber last, std::uint64_t bytes) {
    written = last;
    facts.next = last + 1;
    refused = false;
    bytesSinceLook += bytes;
  }

  // --- The budget.

  std::uint64_t writeAheadSize() const { return writeAheadPages * kPageSize; }
  std::uint64_t longestWriteAhead() const { return kLongestWriteAhead * writeAheadLimit; }

  void measureWriteAhead() {
    FileError error;
    const auto file = files->open(folder.database() + "-wal", false, error);
    writeAheadFile = file ? (file->size() + kPageSize - 1) / kPageSize : 0;
  }

  /// The write-ahead log grows while it cannot be emptied: a sync has failed, or somebody else is
  /// about to empty it, or reads. Nothing is written that would take it beyond the budget then.
  std::optional<FileError> holdBudget(std::size_t bytes) {
    const std::uint64_t pages = writeAheadPages + bytes / kPageSize + kPagesBesideARecord;
    const std::uint64_t others = databaseSize + longestWriteAhead();  // The reserve has that.
    if (others + std::max(pages, writeAheadFile) * kPageSize <= options.budget) return std::nullopt;
    if (mustReopen || side->failed) return cannotSync();
    table.leave();
    auto failed = database.checkpoint();
    if (failed && failed->number != ENOSPC && failed->number != EBUSY) doubt();
    return failed;
  }

  std::optional<FileError> look() {
    std::int64_t pages = 0;
    std::int64_t freed = 0;
    if (auto failed = database.ask("PRAGMA page_count", pages)) return failed;
    if (auto failed = database.ask("PRAGMA freelist_count", freed)) return failed;
    databaseSize = static_cast<std::uint64_t>(pages - freed) * kPageSize;
    bytesSinceLook = 0;
    return std::nullopt;
  }

  std::uint64_t size() const { return databaseSize + writeAheadFile * kPageSize + reserve.size(); }

  // --- Forgetting.

  void forget(RecordNumber number) {
    facts.forgotten = std::max(facts.forgotten, std::min(number, synced));
  }

  bool isBehind() const {
    return keptChanged || persistedForgotten != facts.forgotten || first <= facts.forgotten;
  }

  /// Writes down what is forgotten and kept, and removes what nobody needs.
  std::optional<FileError> settle() {
    if (!isBehind()) return std::nullopt;
    auto failed = settleOnce();
    // A full disk may still have room within the database and its write-ahead log.
    if (failed && failed->number == ENOSPC && reserve.release()) {
      table.leave();
      const auto left = database.checkpoint();
      if (left && left->number != ENOSPC && left->number != EBUSY) doubt();
      failed = settleOnce();
    }
    return failed;
  }

  std::optional<FileError> settleOnce() {
    const RecordNumber to = std::min({facts.forgotten, written, first + kRemovedAtOnce - 1});
    if (auto failed = holdBudget(0)) return failed;
    LogFacts now = facts;
    now.next = written + 1;
    table.leave();
    Transaction all(database);
    if (auto failed = all.begin()) return failed;
    if (to >= first) {
      if (auto failed = table.removeUpTo(to)) return failed;
    }
    if (auto failed = table.writeFacts(now)) return failed;
    if (keptChanged) {
      if (auto failed = table.writeKept(kept)) return failed;
    }
    if (auto failed = all.commit()) return failed;
    if (to >= first) first = to + 1;
    std::erase_if(said, [this](const SaidGap& each) { return each.number < first; });
    persistedForgotten = facts.forgotten;
    keptChanged = false;
    return look();
  }

  // --- Syncing.

  std::shared_ptr<SyncWork> newWork() const {
    auto work = std::make_shared<SyncWork>();
    work->side = side;
    work->before = {facts.identity, synced, std::min(facts.forgotten, synced), mustReopen};
    work->claim = {facts.identity, written, std::min(facts.forgotten, written)};
    work->checkpoints = writeAheadSize() >= writeAheadLimit / 2;
    return work;
  }

  std::shared_ptr<SyncWork> beginSync() {
    if (inFlight) return nullptr;
    if (mustReopen) {
      auto failed = reopen();
      isStuck = failed && failed->number == ENOSPC;
      if (failed) return workThatFailed(std::move(*failed));
    }
    // On a full disk this makes the room for what comes next.
    auto failed = settle();
    if (refused || !owed.empty()) {
      if (auto other = write(nullptr); other && !failed) failed = std::move(other);
    }
    // A checkpoint may have failed to sync meanwhile.
    if (mustReopen) return workThatFailed(cannotSync());
    if (!failed) reserve.restore();
    if (!changed && !failed) return nullptr;
    inFlight = newWork();
    if (inFlight->checkpoints) table.leave();
    inFlight->stateError = std::move(failed);
    changed = false;
    return inFlight;
  }

  void doubt() {
    mustReopen = true;
    if (side) side->failed = true;
    writeClaim(*files, folder.claim(),
               {facts.identity, synced, std::min(facts.forgotten, synced), true});
  }

  std::shared_ptr<SyncWork> workThatFailed(FileError error) {
    inFlight = newWork();
    inFlight->dataError = std::move(error);
    return inFlight;
  }

  std::optional<FileError> endSync(const std::shared_ptr<SyncWork>& work) {
    if (!work || work != inFlight) return std::nullopt;
    inFlight.reset();
    // Whoever keeps the work keeps no connection with it.
    work->side.reset();
    // A sync has failed elsewhere meanwhile, which may be what this one would have said.
    if (mustReopen && !work->dataError) work->dataError = cannotSync();
    if (mustReopen) doubt();
    mustReopen = mustReopen || work->syncFailed;
    if (!work->ran || work->dataError) {
      changed = true;
      return work->dataError;
    }
    synced = std::max(synced, work->claim.synced);
    return work->stateError;
  }

  /// After a sync that failed, the system may have dropped what it could not write, and does not
  /// say so a second time. So what can be read of the write-ahead log is written once more; opened
  /// again, it is read with its checksums.
  std::optional<FileError> reopen() {
    auto copied = copyWriteAheadLog(*files, folder);
    if (copied && copied->number == ENOSPC && reserve.release()) {
      copied = copyWriteAheadLog(*files, folder);
    }
    if (copied) return copied;
    disconnect();
    if (auto failed = takeCopiedWriteAheadLog(*files, folder)) return failed;
    if (auto failed = connect()) return failed;
    std::optional<std::pair<RecordNumber, RecordNumber>> ends;
    LogFacts there;
    if (auto failed = table.readFacts(there)) return failed;
    if (auto failed = table.readEnds(ends)) return failed;
    first = ends ? ends->first : there.next;
    lose(std::max(ends ? ends->second : 0, there.next - 1));
    persistedForgotten = there.forgotten;
    keptChanged = true;
    synced = written;
    mustReopen = false;
    return std::nullopt;
  }

  /// What was behind that number is not there any more.
  void lose(RecordNumber last) {
    if (last >= written) return;
    findings.push_back("the disk has lost " + numbersText(last + 1, written) +
                       " before they were synced");
    for (const auto& [number, gap] : said) {
      // What was lost with it is lost again, and what came before it has to be said again.
      if (number > last && (gap.log != facts.identity || gap.from <= last)) owed.push_back(gap);
    }
    std::erase_if(said, [&](const SaidGap& each) { return each.number > last; });
    unreadable.clear();
    forgetRecent();
    written = last;
    refused = true;
  }

  // --- Reading.

  std::optional<FileError> read(RecordNumber number, std::size_t most, std::size_t mostBytes,
                                std::vector<Record>& records) {
    if (!isReady) return notReady();
    number = std::max(number, first);
    if (!recent.empty() && number >= recent.front().number) {
      return readRecent(number, most, mostBytes, records), std::nullopt;
    }
    std::size_t count = 0;
    std::size_t bytes = 0;
    while (number <= written && count < most && (count == 0 || bytes < mostBytes)) {
      table.seek(number, kReadAtOnce);
      auto step = RecordTable::Step::record;
      for (std::size_t i = 0; i < kReadAtOnce && count < most && (count == 0 || bytes < mostBytes);
           ++i) {
        Record record;
        step = table.next(record);
        if (step == RecordTable::Step::end || step == RecordTable::Step::failed) break;
        const bool isRead = step == RecordTable::Step::record;
        if (isRead && !follows(number, record, facts.identity)) lost(number, record.number - 1);
        if (!isRead) lost(number, record.number);
        number = record.number + 1;
        if (!isRead) continue;
        bytes += recordSize(record);
        ++count;
        records.push_back(std::move(record));
      }
      table.rest();
      if (step == RecordTable::Step::failed && !isDamage(table.error())) return table.error();
      if (step == RecordTable::Step::failed) {
        const RecordNumber behind = table.behindDamage(number, written);
        lost(number, behind - 1);
        number = behind;
      }
      if (step == RecordTable::Step::end && number <= written) {
        lost(number, written);
        number = written + 1;
      }
    }
    return std::nullopt;
  }

  void readRecent(RecordNumber number, std::size_t most, std::size_t mostBytes,
                  std::vector<Record>& records) const {
    std::size_t bytes = 0;
    auto at = std::ranges::lower_bound(recent, number, {}, &Record::number);
    for (std::size_t i = 0; i < most && (i == 0 || bytes < mostBytes) && at != recent.end(); ++i) {
      bytes += recordSize(*at);
      records.push_back(*at++);
    }
  }

  /// Records that have become unreadable hold nobody up: they are a gap.
  void lost(RecordNumber from, RecordNumber to) {
    const bool isKnown = std::ranges::any_of(
        unreadable, [&](const auto& range) { return range.first <= from && to <= range.second; });
    if (isKnown) return;
    unreadable.emplace_back(from, to);
    owed.push_back({facts.identity, from, to, GapReason::damaged});
    findings.push_back(numbersText(from, to) + " cannot be read any more in " + database.path());
  }
};

std::unique_ptr<Log> Log::open(std::shared_ptr<FileLayer> files, LogOptions options,
                               std::string& error, std::vector<std::string>* findings) {
  if (const auto complaint = complaintAbout(options)) {
    error = *complaint;
    return nullptr;
  }
  auto inside = std::make_unique<Inside>();
  inside->files = std::move(files);
  if (!options.makeIdentity) options.makeIdentity = randomIdentity;
  inside->options = std::move(options);
  std::vector<std::string> found;
  const auto failed = inside->open(found);
  if (findings != nullptr) *findings = std::move(found);
  if (failed) {
    error = failed->text;
    return nullptr;
  }
  return std::unique_ptr<Log>(new Log(std::move(inside)));
}

Log::Log(std::unique_ptr<Inside> inside) : inside_(std::move(inside)) {}
Log::~Log() = default;

const LogIdentity& Log::identity() const { return inside_->facts.identity; }
RecordNumber Log::first() const { return inside_->first; }
RecordNumber Log::next() const { return inside_->facts.next; }
RecordNumber Log::synced() const { return inside_->synced; }
std::uint64_t Log::size() const { return inside_->size(); }

std::optional<RecordNumber> Log::append(const Record& record, FileError& error) {
  return inside_->append(record, error);
}

std::shared_ptr<SyncWork> Log::beginSync() { return inside_->beginSync(); }

std::optional<FileError> Log::endSync(const std::shared_ptr<SyncWork>& work) {
  return inside_->endSync(work);
}

std::optional<FileError> Log::read(RecordNumber number, std::size_t most, std::size_t mostBytes,
                                   std::vector<Record>& records) {
  return inside_->read(number, most, mostBytes, records);
}

void Log::forget(RecordNumber number) { inside_->forget(number); }
RecordNumber Log::forgotten() const { return inside_->facts.forgotten; }

void Log::keep(const std::string& name, RecordNumber value) {
  auto& kept = inside_->kept;
  const auto found = std::ranges::find(kept, name, &std::pair<std::string, RecordNumber>::first);
  if (found == kept.end()) {
    kept.emplace_back(name, value);
  } else if (found->second == value) {
    return;
  } else {
    found->second = value;
  }
  inside_->keptChanged = true;
}

std::vector<std::pair<std::string, RecordNumber>> Log::kept() const { return inside_->kept; }

void Log::drop(const std::string& name) {
  const auto count =
      std::erase_if(inside_->kept, [&](const auto& value) { return value.first == name; });
  if (count != 0) inside_->keptChanged = true;
}

std::vector<std::string> Log::takeFindings() { return std::exchange(inside_->findings, {}); }

void run(SyncWork& work) noexcept { work.run(); }

}  // namespace kestrin::gateway
