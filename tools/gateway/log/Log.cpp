#include "tools/gateway/log/Log.h"

#include <algorithm>
#include <cerrno>
#include <deque>
#include <random>
#include <utility>

#include "tools/gateway/log/LogFolder.h"
#include "tools/gateway/log/RecordScanner.h"
#include "tools/gateway/log/Recovery.h"
#include "tools/gateway/log/SyncWork.h"

namespace kestrin::gateway {
namespace {

/// Of the segments that fit into the budget, these stay free: one that is being filled, and one
/// whose removal waits for the next sync.
constexpr std::uint64_t kFreeSegments = 2;
constexpr std::uint64_t kSegmentsOfBudget = 16;
constexpr std::uint64_t kLargestSegment = 1ULL << 30U;
/// While records come, what is forgotten gets onto the disk with every so manieth sync.
constexpr int kSyncsPerState = 20;
constexpr std::size_t kReadSize = std::size_t{128} << 10U;

LogIdentity randomIdentity() {
  std::random_device random;
  std::uniform_int_distribution<std::size_t> digit(0, 15);
  LogIdentity identity;
  for (std::size_t i = 0; i < kIdentityLength; ++i) {
    identity.push_back("0123456789abcdef"[digit(random)]);
  }
  return identity;
}

std::optional<std::string> complaintAbout(const LogOptions& options) {
  if (options.folder.empty()) return "the log needs a folder";
  if (options.budget < kSmallestBudget) {
    return "a budget of " + std::to_string(options.budget) +
           " bytes is too small for a log: " + std::to_string(kSmallestBudget) +
           " or more would be right";
  }
  if (options.segmentSize < kSmallestSegment) {
    return "segments of " + std::to_string(options.segmentSize) +
           " bytes are too small for a log: " + std::to_string(kSmallestSegment) +
           " or more would be right";
  }
  return std::nullopt;
}

}  // namespace

struct Log::Inside {
  // --- What it is made of.
  std::shared_ptr<FileLayer> files;
  LogOptions options;
  std::uint64_t segmentSize = 0;
  std::shared_ptr<void> lock;
  LogIdentity identity;
  std::uint32_t tag = 0;

  // --- The records.
  std::deque<Segment> segments;      // The last one is written to.
  std::shared_ptr<LogFile> current;  // Absent when the next record begins another segment.
  std::uint64_t lastSerial = 0;
  RecordNumber written = 0;  // The last record's number.
  RecordNumber next = 1;
  RecordNumber synced = 0;
  std::optional<RecordNumber> refusedFrom;
  std::vector<Gap> owed;  // Gaps that no record says yet.
  std::optional<std::pair<RecordNumber, Gap>> foreign;
  std::vector<std::pair<RecordNumber, RecordNumber>> unreadable;

  // --- What is to be synced.
  std::vector<std::shared_ptr<LogFile>> unsynced;
  bool folderChanged = false;
  bool mustMove = false;  // A sync has failed: what it was for has to be written again.
  bool promised = false;  // An earlier run may have published what is not certain.
  std::shared_ptr<SyncWork> inFlight;
  struct Removal {
    std::string path;
    std::uint64_t size = 0;
    bool unneeded = false;  // Everybody has what is in it, and nothing else rests on it.
  };
  std::deque<Removal> removals;
  std::optional<std::uint64_t> copySerial;  // Of a segment that was moved and is not synced yet.

  // --- The state.
  Claims persisted;
  RecordNumber forgotten = 0;
  std::vector<std::pair<std::string, RecordNumber>> kept;
  bool keptChanged = false;
  std::uint64_t stateSize = 0;
  int syncsSinceState = 0;

  std::vector<std::string> findings;
  bool refusalSaid = false;

  // --- Reading.
  struct Cursor {
    std::uint64_t serial = 0;
    RecordNumber next = 0;
    RecordScanner scanner;
  };
  std::unique_ptr<Cursor> cursor;

  // --- Opening.

  std::optional<FileError> open(std::vector<std::string>& found) {
    if (auto error = files->makeFolder(options.folder)) return error;
    FileError error;
    lock = files->lock(options.folder, error);
    if (!lock) return error;
    Recovered recovered;
    if (auto failed = recover(*files, options.folder, options.makeIdentity, recovered, found)) {
      return failed;
    }
    take(std::move(recovered));
    return segments.empty() ? std::nullopt : openCurrent();
  }

  void take(Recovered recovered) {
    identity = recovered.identity;
    tag = tagOf(identity);
    segments.assign(std::make_move_iterator(recovered.segments.begin()),
                    std::make_move_iterator(recovered.segments.end()));
    lastSerial = recovered.lastSerial;
    next = segments.back().end;
    written = next - 1;
    synced = recovered.uncertain ? std::min(recovered.claims.synced, written) : written;
    mustMove = recovered.uncertain;
    promised = recovered.uncertain;
    for (auto& [path, size] : recovered.superseded) removals.push_back({path, size});
    persisted = recovered.claims;
    forgotten = recovered.claims.forgotten;
    kept = std::move(recovered.kept);
    stateSize = recovered.stateSize;
    foreign = recovered.foreign;
    // A power cut can leave the oldest records removed and the record that says so unwritten.
    const RecordNumber lost = segments.front().first - 1;
    if (lost > forgotten && recovered.budgetGapTo < lost) {
      owed.push_back({identity, forgotten + 1, lost, GapReason::budget});
    }
    // The budget may be another one than the last time.
    if (liveSize() > options.budget - kFreeSegments * segmentSize) dropForBudget();
  }

  std::optional<FileError> openCurrent() {
    FileError error;
    current = files->open(segments.back().path, false, error);
    if (!current) return error;
    segments.back().size = current->size();
    return std::nullopt;
  }

  // --- Appending.

  Claims claims() const {
    return {synced, std::min(forgotten, synced),
            segments.empty() ? written + 1 : segments.front().first};
  }

  std::uint64_t liveSize() const {
    std::uint64_t size = 0;
    for (const Segment& segment : segments) size += segment.size;
    return size;
  }

  std::uint64_t totalSize() const {
    std::uint64_t size = liveSize() + stateSize;
    for (const Removal& removal : removals) size += removal.size;
    return size;
  }

  std::optional<FileError> complaintAbout(const Record& record) const {
    const std::size_t longest =
        std::min<std::size_t>(kLargestRecord, static_cast<std::size_t>(segmentSize / 2));
    if (record.reader.size() > 0xFFFF || record.name.size() > 0xFFFF ||
        recordSize(record) > longest) {
      return FileError{EMSGSIZE, "a record of " + std::to_string(recordSize(record)) +
                                     " bytes is too long for the log: " + std::to_string(longest) +
                                     " would be right at most"};
    }
    if ((record.kind == RecordKind::gap) != record.gap.has_value()) {
      return FileError{EINVAL, "a gap record says what is lost, and no other record does"};
    }
    return std::nullopt;
  }

  std::optional<RecordNumber> append(const Record& record, FileError& error) {
    auto failed = complaintAbout(record);
    if (!failed) failed = write(&record);
    if (!failed) return written;
    error = *failed;
    refuse();
    return std::nullopt;
  }

  void refuse() {
    if (!refusedFrom) refusedFrom = next;
    ++next;
    refusalSaid = true;
  }

  /// Writes the record, and in front of it the gaps that none says yet. One write.
  std::optional<FileError> write(const Record* record) {
    constexpr std::uint64_t kRoomForGaps = 1024;
    const std::uint64_t length = record != nullptr ? recordSize(*record) : 0;
    const bool another = !current || segments.empty() ||
                         (segments.back().size > kSegmentHeaderSize &&
                          segments.back().size + length + kRoomForGaps > segmentSize);
    Bytes bytes;
    if (another) {
      dropForBudget();
      if (totalSize() + segmentSize > options.budget) return budgetIsUsedUp();
      if (auto error = beginSegment(bytes)) return error;
    }
    return writeTo(segments.back(), bytes, record);
  }

  FileError budgetIsUsedUp() const {
    return {ENOSPC, "the budget of " + std::to_string(options.budget) +
                        " bytes is used up, and what may go waits for the disk"};
  }

  std::optional<FileError> writeTo(Segment& segment, Bytes& bytes, const Record* record) {
    RecordNumber number = next;
    std::vector<Mark> marks;
    const auto add = [&](Record& added) {
      added.number = number;
      marks.push_back({number, segment.size + bytes.size()});
      appendRecord(bytes, added, synced, tag);
      ++number;
    };
    const auto addGap = [&](const Gap& gap) {
      Record said;
      said.kind = RecordKind::gap;
      said.gap = gap;
      add(said);
    };
    const auto refused = refusedFrom;
    if (refused) addGap({identity, *refused, next - 1, GapReason::refused});
    auto lostElsewhere = foreign;
    for (const Gap& gap : owed) {
      if (gap.log != identity) lostElsewhere = {number, gap};
      addGap(gap);
    }
    if (record != nullptr) {
      Record copy = *record;
      add(copy);
    }
    if (auto error = current->append(bytes)) {
      takeBack(segment);
      return error;
    }
    foreign = lostElsewhere;
    took(segment, marks);
    return std::nullopt;
  }

  void took(Segment& segment, const std::vector<Mark>& marks) {
    segment.size = current->size();
    for (const Mark& mark : marks) segment.mark(mark.number, mark.place);
    if (refusedFrom && refusalSaid) {
      findings.push_back("the log takes records again; " + numbersText(*refusedFrom, next - 1) +
                         " could not be kept");
    }
    refusedFrom.reset();
    refusalSaid = false;
    owed.clear();
    if (!marks.empty()) written = marks.back().number;
    next = written + 1;
    segment.end = next;
    if (unsynced.empty() || unsynced.back() != current) unsynced.push_back(current);
  }

  /// What was written of a record that failed must not stand in the way of the next one.
  void takeBack(Segment& segment) {
    if (!current->truncate(segment.size)) {
      // A segment that has not even a header yet is of no use.
      if (segment.size >= kSegmentHeaderSize) return;
    }
    abandon(segment);
  }

  void abandon(Segment& segment) {
    segment.size = current->size();
    current.reset();
    if (segment.end > segment.first) return;
    // With nothing in it, it waits for nothing: a full disk would leave one for each record.
    if (segment.size > 0 || files->remove(segment.path)) {
      removals.push_back({segment.path, segment.size});
    }
    segments.pop_back();
  }

  std::optional<FileError> beginSegment(Bytes& bytes) {
    const SegmentHeader header{identity, lastSerial + 1, written + 1, claims()};
    const std::string path = options.folder + "/" + segmentName(header.first, header.serial);
    FileError error;
    auto file = files->open(path, true, error);
    if (!file) return error;
    ++lastSerial;
    folderChanged = true;
    current = std::move(file);
    // One that was begun at the same number holds no record: it could not be written.
    if (!segments.empty() && segments.back().first == header.first) {
      removals.push_back({segments.back().path, segments.back().size});
      segments.pop_back();
    }
    segments.push_back({path, header.serial, header.first, header.first, 0, {}});
    appendHeader(bytes, header);
    return std::nullopt;
  }

  // --- What goes.

  void dropForBudget() {
    const std::uint64_t most = options.budget - kFreeSegments * segmentSize;
    std::optional<RecordNumber> to;
    while (!segments.empty() && liveSize() + segmentSize > most) {
      to = segments.front().end - 1;
      dropFront();
    }
    if (!to || *to <= forgotten) return;
    std::erase_if(owed, [](const Gap& gap) { return gap.reason == GapReason::budget; });
    owed.push_back({identity, forgotten + 1, *to, GapReason::budget});
    findings.push_back("the budget is used up: " + numbersText(forgotten + 1, *to) +
                       " made room for new records");
    if (foreign && foreign->first <= *to && foreign->first > forgotten) {
      owed.push_back(foreign->second);
    }
  }

  void dropFront() {
    const Segment& segment = segments.front();
    if (cursor && cursor->serial == segment.serial) cursor.reset();
    // The one behind it has to be on the disk: its header says which numbers there have been.
    const bool unneeded = segment.end - 1 <= forgotten && segments.size() > 1 &&
                          segments[1].first <= synced && segments[1].end > segments[1].first;
    removals.push_back({segment.path, segment.size, unneeded});
    if (segments.size() == 1) current.reset();
    segments.pop_front();
  }

  void forget(RecordNumber number) {
    forgotten = std::max(forgotten, std::min(number, synced));
    while (segments.size() > 1 && segments.front().end - 1 <= forgotten) dropFront();
  }

  // --- Syncing.

  std::shared_ptr<SyncWork> beginSync() {
    if (inFlight) return nullptr;
    if (refusedFrom || !owed.empty()) {
      // Where the disk still refuses, the next sync tries again.
      [[maybe_unused]] const auto error = write(nullptr);
    }
    auto work = std::make_shared<SyncWork>();
    if (mustMove) work->dataError = moveUnsynced();
    fill(*work);
    const bool idle = work->unsynced.empty() && !work->folderChanged && !work->state &&
                      work->removals.empty() && !work->dataError;
    if (idle) return nullptr;
    inFlight = work;
    return work;
  }

  void fill(SyncWork& work) {
    work.files = files;
    work.folder = options.folder;
    work.unsynced = std::move(unsynced);
    unsynced.clear();
    work.folderChanged = folderChanged;
    folderChanged = false;
    work.upTo = written;
    for (const Removal& removal : removals) {
      // None goes before an older one.
      if (removal.unneeded && work.unneeded == work.removals.size()) ++work.unneeded;
      work.removals.push_back(removal.path);
    }
    if (stateIsDue(!work.unsynced.empty())) {
      Claims claimed = claims();
      claimed.synced = written;  // By then.
      work.state = writeState({identity, claimed, kept, std::nullopt});
      keptChanged = false;
    }
  }

  bool stateIsDue(bool records) const {
    if (keptChanged || !removals.empty()) return true;
    const bool behind = persisted.forgotten != std::min(forgotten, synced);
    return behind && (!records || syncsSinceState >= kSyncsPerState);
  }

  std::optional<FileError> endSync(const std::shared_ptr<SyncWork>& work) {
    if (!work || work != inFlight) return std::nullopt;
    inFlight.reset();
    for (std::size_t i = 0; i < work->removed; ++i) removals.pop_front();
    if (!work->ran || work->dataError) return takeUnsynced(*work);
    synced = std::max(synced, work->upTo);
    copySerial.reset();
    promised = false;
    ++syncsSinceState;
    if (!work->state) return std::nullopt;
    if (work->stateError) {
      keptChanged = true;
      return work->stateError;
    }
    syncsSinceState = 0;
    stateSize = work->state->size();
    State state;
    if (readState(*work->state, state) == Readable::yes) persisted = state.claims;
    return std::nullopt;
  }

  /// After an error nobody knows which bytes are on the disk, and the system does not say it a
  /// second time.
  std::optional<FileError> takeUnsynced(SyncWork& work) {
    unsynced.insert(unsynced.begin(), work.unsynced.begin(), work.unsynced.end());
    folderChanged = folderChanged || work.folderChanged;
    keptChanged = keptChanged || work.state;
    if (!work.dataError) return std::nullopt;
    mustMove = true;
    return work.dataError;
  }

  /// Writes everything that is not certain into another segment.
  std::optional<FileError> moveUnsynced() {
    // The budget may have taken some of it meanwhile.
    const RecordNumber oldest = segments.empty() ? written + 1 : segments.front().first;
    const SegmentHeader header{identity, lastSerial + 1, std::max(synced + 1, oldest), claims()};
    const std::string path = options.folder + "/" + kNewSegmentName;
    FileError error;
    if (files->open(path, false, error)) {
      if (auto failed = files->remove(path)) return failed;
    }
    const auto file = files->open(path, true, error);
    if (!file) return error;
    ++lastSerial;
    Segment moved{options.folder + "/" + segmentName(header.first, header.serial),
                  header.serial,
                  header.first,
                  header.first,
                  0,
                  {}};
    auto failed = writeMoved(*file, header, moved);
    // It takes over with its name, from files that may be on the disk.
    if (!failed && promised) failed = file->sync();
    if (!failed) failed = files->rename(path, moved.path);
    if (failed) {
      // On a full disk what is there of it would stand in the way of others.
      [[maybe_unused]] const auto left = files->remove(path);
      return failed;
    }
    moved.size = file->size();
    takeMoved(std::move(moved), file);
    return std::nullopt;
  }

  std::optional<FileError> writeMoved(LogFile& file, const SegmentHeader& header, Segment& moved) {
    Bytes bytes;
    appendHeader(bytes, header);
    if (auto failed = file.append(bytes)) return failed;
    return copyUnsynced(file, moved);
  }

  std::optional<FileError> copyUnsynced(LogFile& to, Segment& moved) {
    constexpr std::size_t kMovedPiece = std::size_t{256} << 10U;
    Bytes bytes;
    for (const Segment& segment : segments) {
      if (segment.end <= moved.end) continue;
      FileError error;
      const auto from = files->open(segment.path, false, error);
      if (!from) return error;
      RecordScanner scanner(from, segment.placeFor(moved.end), tag, kReadSize);
      while (moved.end < segment.end) {
        const auto step = scanner.next();
        if (step == RecordScanner::Step::failed) return scanner.error();
        // What cannot be read any more is lost; a gap record will say so.
        if (step != RecordScanner::Step::record) return flush(to, bytes);
        if (scanner.head().number < moved.end) continue;
        if (!follows(moved.end, scanner.head(), scanner.bytes(), identity)) return flush(to, bytes);
        moved.mark(scanner.head().number, to.size() + bytes.size());
        bytes.insert(bytes.end(), scanner.bytes().begin(), scanner.bytes().end());
        moved.end = scanner.head().number + 1;
        if (bytes.size() < kMovedPiece) continue;
        if (auto failed = flush(to, bytes)) return failed;
      }
    }
    return flush(to, bytes);
  }

  static std::optional<FileError> flush(LogFile& to, Bytes& bytes) {
    auto error = to.append(bytes);
    bytes.clear();
    return error;
  }

  void takeMoved(Segment moved, const std::shared_ptr<LogFile>& file) {
    cursor.reset();
    while (!segments.empty() && segments.back().first >= moved.first) {
      const Segment& old = segments.back();
      // Where syncing goes on failing, each copy takes the place of the one before.
      if (promised || old.serial != copySerial || files->remove(old.path)) {
        removals.push_back({old.path, old.size});
      }
      segments.pop_back();
    }
    copySerial = moved.serial;
    if (!segments.empty()) segments.back().end = std::min(segments.back().end, moved.first);
    if (moved.end <= written) {
      findings.push_back("the disk has lost " + numbersText(moved.end, written) +
                         " before they were synced");
      refusedFrom = moved.end;
      written = moved.end - 1;
    }
    current = file;
    unsynced.assign(1, file);
    folderChanged = true;
    mustMove = false;
    segments.push_back(std::move(moved));
  }

  // --- Reading.

  std::optional<FileError> read(RecordNumber number, std::size_t most, std::size_t mostBytes,
                                std::vector<Record>& records) {
    std::size_t bytes = 0;
    std::size_t count = 0;
    while (count < most && (count == 0 || bytes < mostBytes)) {
      const Segment* const segment = segmentOf(number);
      if (segment == nullptr) return std::nullopt;
      number = std::max(number, segment->first);
      if (auto error = point(*segment, number)) return error;
      auto& scanner = cursor->scanner;
      auto step = scanner.next();
      if (step == RecordScanner::Step::unreadable) step = scanner.seek();
      if (step == RecordScanner::Step::failed) return failedRead();
      if (step == RecordScanner::Step::end || scanner.head().number >= segment->end) {
        cursor.reset();
        lost(number, segment->end - 1, segment->path);
        number = segment->end;
        continue;
      }
      if (scanner.head().number < number) continue;
      if (!skips(number)) lost(number, scanner.head().number - 1, segment->path);
      cursor->next = scanner.head().number + 1;
      number = cursor->next;
      records.push_back(readRecord(scanner.bytes()));
      bytes += scanner.head().length;
      ++count;
    }
    return std::nullopt;
  }

  const Segment* segmentOf(RecordNumber number) const {
    auto at = std::ranges::upper_bound(segments, number, {}, &Segment::end);
    while (at != segments.end() && at->end == at->first) ++at;
    return at == segments.end() ? nullptr : &*at;
  }

  std::optional<FileError> point(const Segment& segment, RecordNumber number) {
    if (cursor && cursor->serial == segment.serial && cursor->next == number) return std::nullopt;
    FileError error;
    // One that still grows says its size only to who writes it.
    const bool grows = current && &segment == &segments.back();
    const auto file = grows ? current : files->open(segment.path, false, error);
    if (!file) return error;
    cursor = std::make_unique<Cursor>(Cursor{
        segment.serial, number, RecordScanner(file, segment.placeFor(number), tag, kReadSize)});
    return std::nullopt;
  }

  FileError failedRead() {
    FileError error = cursor->scanner.error();
    cursor.reset();
    return error;
  }

  /// Whether nothing is missing from `number` up to the record at which the cursor stands.
  bool skips(RecordNumber number) const {
    const RecordHead& head = cursor->scanner.head();
    if (head.number == number) return true;
    if (head.kind != RecordKind::gap) return false;
    const Gap gap = readRecord(cursor->scanner.bytes()).gap.value_or(Gap{});
    return gap.log == identity && gap.from <= number && gap.to + 1 == head.number;
  }

  /// Records that have become unreadable hold nobody up: they are a gap.
  void lost(RecordNumber from, RecordNumber to, const std::string& path) {
    const bool said = std::ranges::any_of(
        unreadable, [&](const auto& range) { return range.first <= from && to <= range.second; });
    if (said) return;
    unreadable.emplace_back(from, to);
    owed.push_back({identity, from, to, GapReason::damaged});
    findings.push_back(numbersText(from, to) + " cannot be read any more in " + path);
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
  inside->segmentSize =
      std::min({options.segmentSize, options.budget / kSegmentsOfBudget, kLargestSegment});
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

const LogIdentity& Log::identity() const { return inside_->identity; }

RecordNumber Log::first() const {
  for (const Segment& segment : inside_->segments) {
    if (segment.end > segment.first) return segment.first;
  }
  return inside_->next;
}

RecordNumber Log::next() const { return inside_->next; }
RecordNumber Log::synced() const { return inside_->synced; }
std::uint64_t Log::size() const { return inside_->totalSize(); }

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
RecordNumber Log::forgotten() const { return inside_->forgotten; }

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
