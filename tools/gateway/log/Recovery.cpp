#include "tools/gateway/log/Recovery.h"

#include <algorithm>
#include <cerrno>
#include <memory>

#include "tools/gateway/log/LogFolder.h"
#include "tools/gateway/log/RecordScanner.h"
#include "tools/gateway/log/SyncWork.h"

namespace kestrin::gateway {
namespace {

using Step = RecordScanner::Step;

constexpr std::uint64_t kMarkDistance = 128ULL << 10U;
/// A last segment up to this size is written once more as a whole, so that many short runs do not
/// leave as many files.
constexpr std::uint64_t kSmallSegment = 1ULL << 20U;
constexpr std::size_t kPieceSize = std::size_t{1} << 20U;

/// Writes a segment under another name, and gives it its own once it is on the disk.
class SegmentWriter {
 public:
  SegmentWriter(FileLayer& files, std::string folder) : files_(files), folder_(std::move(folder)) {}

  std::optional<FileError> begin(const SegmentHeader& header) {
    name_ = segmentName(header.first, header.serial);
    FileError error;
    const std::string path = folder_ + "/" + kNewSegmentName;
    if (files_.open(path, false, error)) {
      if (auto failed = files_.remove(path)) return failed;
    }
    file_ = files_.open(path, true, error);
    if (!file_) return error;
    appendHeader(piece_, header);
    return std::nullopt;
  }
  std::optional<FileError> add(ByteView bytes) {
    piece_.insert(piece_.end(), bytes.begin(), bytes.end());
    return piece_.size() < kPieceSize ? std::nullopt : flush();
  }
  std::optional<FileError> finish() {
    if (auto error = flush()) return error;
    if (auto error = file_->sync()) return error;
    if (auto error = files_.rename(folder_ + "/" + kNewSegmentName, path())) return error;
    isNamed_ = true;
    return files_.syncFolder(folder_);
  }
  [[nodiscard]] std::string path() const { return folder_ + "/" + name_; }
  /// Whether it takes over from others now.
  [[nodiscard]] bool isNamed() const { return isNamed_; }

 private:
  std::optional<FileError> flush() {
    auto error = file_->append(piece_);
    piece_.clear();
    return error;
  }

  FileLayer& files_;
  const std::string folder_;
  std::string name_;
  std::shared_ptr<LogFile> file_;
  Bytes piece_;
  bool isNamed_ = false;
};

bool isFull(const FileError& error) { return error.number == ENOSPC || error.number == EDQUOT; }

class Recovery {
 public:
  Recovery(FileLayer& files, std::string folder, const std::function<LogIdentity()>& makeIdentity,
           Recovered& result, std::vector<std::string>& findings)
      : files_(files),
        path_(std::move(folder)),
        makeIdentity_(makeIdentity),
        result_(result),
        findings_(findings) {}

  std::optional<FileError> run() {
    // A log that is found to be damaged is moved away, and what is looked at then is another one.
    for (int round = 0; round < 3; ++round) {
      damaged_ = false;
      if (auto error = runOnce()) return error;
      if (!damaged_) return std::nullopt;
    }
    return FileError{EIO, path_ + ": the log is damaged, and so is the one that took its place"};
  }

 private:
  std::optional<FileError> runOnce() {
    if (auto error = read()) return error;
    if (folder_.state && folder_.state->moving) {
      if (auto error = moveDamaged(*folder_.state)) return error;
    }
    if (folder_.segments.empty() && (!folder_.state || folder_.state->moving)) {
      if (auto error = beginFirst()) return error;
    }
    const auto identity = identityOf(folder_);
    if (!identity) return searchUnknown();
    claims_ = claimsOf(folder_, *identity);
    highest_ = 0;
    return folder_.segments.empty() ? declareDamaged(*identity) : recoverLog(*identity);
  }

  std::optional<FileError> read() {
    if (auto error = readFolder(files_, path_, folder_)) return error;
    for (const std::string& leftover : folder_.leftovers) {
      if (auto error = files_.remove(leftover)) return error;
    }
    if (folder_.stateUnreadable) {
      findings_.push_back(path_ + "/" + kStateName +
                          " cannot be read: what consumers have committed is forgotten");
    }
    return std::nullopt;
  }

  // --- A log that begins.

  std::optional<FileError> beginFirst() {
    State state;
    std::optional<Gap> gap;
    if (folder_.state) {
      state = *folder_.state;
      gap = state.moving;
    } else {
      state.identity = makeIdentity_();
    }
    if (gap && gap->from > gap->to) gap.reset();
    SegmentWriter writer(files_, path_);
    if (auto error = writer.begin({state.identity, 1, 1, {}})) return error;
    if (gap) {
      Bytes bytes;
      appendRecord(bytes, gapRecord(1, *gap), 0, tagOf(state.identity));
      if (auto error = writer.add(bytes)) return error;
    }
    if (auto error = writer.finish()) return error;
    state.moving.reset();
    if (auto error = replaceState(files_, path_, writeState(state))) return error;
    return read();
  }

  static Record gapRecord(RecordNumber number, const Gap& gap) {
    Record record;
    record.number = number;
    record.kind = RecordKind::gap;
    record.gap = gap;
    return record;
  }

  // --- A log that is damaged.

  /// Nothing says whose records these are; the log to which they belonged is told by its numbers.
  std::optional<FileError> searchUnknown() {
    claims_ = {};
    highest_ = 0;
    tag_.reset();
    for (const SegmentFile& file : folder_.segments) {
      if (auto error = searchFile(file, 0)) return error;
    }
    return declareDamaged(kUnknownIdentity);
  }

  /// The state on the disk says from here on which log counts, so this may be cut off anywhere.
  std::optional<FileError> declareDamaged(const LogIdentity& identity) {
    damaged_ = true;
    State state;
    state.identity = makeIdentity_();
    const RecordNumber to = std::max(claims_.synced, highest_);
    state.moving = Gap{identity, claims_.forgotten + 1, to, GapReason::damaged};
    return replaceState(files_, path_, writeState(state));
  }

  std::optional<FileError> moveDamaged(const State& state) {
    const Gap& gap = *state.moving;
    const std::string name = gap.log == kUnknownIdentity ? "before-" + state.identity : gap.log;
    const std::string to = path_ + "/" + name + kDamagedSuffix;
    if (auto error = files_.makeFolder(to)) return error;
    for (const SegmentFile& segment : folder_.segments) {
      if (segment.header && segment.header->identity == state.identity) continue;
      const std::string file = segmentName(segment.name.first, segment.name.serial);
      if (auto error = files_.rename(segment.path, to + "/" + file)) return error;
    }
    if (auto error = files_.syncFolder(to)) return error;
    if (auto error = files_.syncFolder(path_)) return error;
    const std::string lost =
        gap.from > gap.to ? "" : ", " + numbersText(gap.from, gap.to) + " with it";
    findings_.push_back("the log " + gap.log + " is damaged" + lost +
                        "; what can be read of it is in " + to +
                        ", and a log of another identity begins: " + state.identity);
    return read();
  }

  // --- A log that goes on.

  std::optional<FileError> recoverLog(const LogIdentity& identity) {
    result_ = {};
    result_.identity = identity;
    tag_ = tagOf(identity);
    scanned_.clear();
    hole_ = false;
    cut_ = 0;
    chain_ = chainOf(folder_, identity, claims_.oldest);
    if (auto error = scanChain()) return error;
    if (claims_.synced >= expected_) return declareDamaged(identity);
    fillResult();
    const bool uncertain = expected_ - 1 > claims_.synced;
    if (hole_ || uncertain || result_.segments.empty()) {
      if (auto error = writeTail()) return error;
    }
    if (auto error = removeUnused()) return error;
    return result_.uncertain ? std::nullopt : writeFinalState();
  }

  std::optional<FileError> scanChain() {
    expected_ = chain_.empty() ? claims_.oldest : chain_.front().first;
    if (const auto lost = unreadableBefore(expected_)) {
      expected_ = *lost;
      hole_ = true;
      return lookBehind(0, 0);
    }
    for (std::size_t i = 0; i < chain_.size(); ++i) {
      if (expected_ != chain_[i].first) {
        hole_ = true;
        return lookBehind(i, 0);
      }
      std::optional<std::uint64_t> hole;
      if (auto error = scanSegment(chain_[i], hole)) return error;
      if (hole) {
        hole_ = true;
        return lookBehind(i, *hole);
      }
    }
    return lookAtTheEnd();
  }

  /// The first number of a segment whose header cannot be read, where no other one has it.
  std::optional<RecordNumber> unreadableBefore(RecordNumber number) const {
    std::optional<RecordNumber> lowest;
    for (const SegmentFile& segment : folder_.segments) {
      const RecordNumber first = segment.name.first;
      if (segment.header || first < claims_.oldest || first >= number) continue;
      lowest = std::min(lowest.value_or(first), first);
    }
    return lowest;
  }

  /// `hole` gets where the segment cannot be read though more should be there.
  std::optional<FileError> scanSegment(const ChainLink& link, std::optional<std::uint64_t>& hole) {
    const SegmentFile& file = folder_.segments[link.segment];
    Segment segment{file.path, file.name.serial, link.first, link.first, file.size, {}};
    RecordScanner scanner(file.file, kSegmentHeaderSize, tag_);
    while (!link.limit || expected_ < *link.limit) {
      const Step step = scanner.next();
      if (step == Step::failed) return scanner.error();
      if (step == Step::end && !link.limit) break;
      if (step != Step::record || !takes(scanner, link)) {
        hole = scanner.place();
        break;
      }
      segment.mark(scanner.head().number, scanner.place());
      note(scanner);
      expected_ = scanner.head().number + 1;
    }
    segment.end = expected_;
    if (hole) segment.size = *hole;
    scanned_.push_back(std::move(segment));
    return std::nullopt;
  }

  bool takes(const RecordScanner& scanner, const ChainLink& link) const {
    if (link.limit && scanner.head().number >= *link.limit) return false;
    return follows(expected_, scanner.head(), scanner.bytes(), result_.identity);
  }

  void note(const RecordScanner& scanner) {
    const RecordHead& head = scanner.head();
    claims_.synced = std::max(claims_.synced, head.synced);
    if (head.kind != RecordKind::gap) return;
    const Gap gap = readRecord(scanner.bytes()).gap.value_or(Gap{});
    if (gap.log != result_.identity) {
      result_.foreign = {head.number, gap};
    } else if (gap.reason == GapReason::budget) {
      result_.budgetGapTo = std::max(result_.budgetGapTo, gap.to);
    }
  }

  /// Segments that were begun last and of which not even the header got onto the disk.
  std::optional<FileError> lookAtTheEnd() {
    const bool any = std::ranges::any_of(
        folder_.segments, [this](const SegmentFile& file) { return isTornOff(file); });
    if (!any) return std::nullopt;
    hole_ = true;
    return lookBehind(chain_.size(), 0);
  }

  bool isTornOff(const SegmentFile& file) const {
    return !file.header && file.name.first >= expected_ && file.size > 0;
  }

  /// What lies behind a hole says whether it was promised, and which numbers are lost.
  std::optional<FileError> lookBehind(std::size_t link, std::uint64_t place) {
    for (std::size_t i = link; i < chain_.size(); ++i) {
      const std::uint64_t from = i == link ? place : 0;
      if (auto error = searchFile(folder_.segments[chain_[i].segment], from)) return error;
    }
    for (const SegmentFile& file : folder_.segments) {
      if (!isTornOff(file)) continue;
      if (auto error = searchFile(file, 0)) return error;
    }
    return std::nullopt;
  }

  std::optional<FileError> searchFile(const SegmentFile& file, std::uint64_t from) {
    cut_ += file.size > from ? file.size - from : 0;
    RecordScanner scanner(file.file, from, tag_);
    Step step = scanner.next();
    while (step != Step::end) {
      if (step == Step::failed) return scanner.error();
      if (step == Step::record) {
        claims_.synced = std::max(claims_.synced, scanner.head().synced);
        highest_ = std::max(highest_, scanner.head().number);
      }
      step = step == Step::record ? scanner.next() : scanner.seek();
    }
    return std::nullopt;
  }

  void fillResult() {
    result_.claims = claims_;
    result_.stateSize = folder_.stateSize;
    if (folder_.state) result_.kept = folder_.state->kept;
    for (Segment& segment : scanned_) {
      if (segment.end > segment.first || &segment == &scanned_.back()) {
        result_.segments.push_back(std::move(segment));
      }
    }
    scanned_.clear();
    for (const SegmentFile& file : folder_.segments) {
      result_.lastSerial = std::max(result_.lastSerial, file.name.serial);
    }
  }

  struct TailBegin {
    std::size_t segment = 0;
    RecordNumber from = 1;
    std::uint64_t place = kSegmentHeaderSize;
  };

  /// Writes what is not certain once more, together with what is lost behind it.
  std::optional<FileError> writeTail() {
    std::optional<Gap> gap;
    if (hole_ && cut_ > 0) {
      const RecordNumber most = (cut_ + kSmallestRecord - 1) / kSmallestRecord;
      gap = Gap{result_.identity, expected_, std::max(expected_ + most - 1, highest_),
                GapReason::torn};
      findings_.push_back("the end of the log was torn off: " + std::to_string(cut_) +
                          " bytes that were not on the disk yet, at most " +
                          numbersText(gap->from, gap->to));
    }
    const auto [segment, from, place] = tailBegin();
    SegmentHeader header{result_.identity, ++result_.lastSerial, from, claims_};
    header.claims.synced = gap ? gap->to + 1 : expected_ - 1;
    SegmentWriter writer(files_, path_);
    const auto error = fillTail(writer, header, {segment, from, place}, gap);
    if (!error) return takeTail(writer.path(), header);
    return mayWait(*error) && !writer.isNamed() ? letTailWait(*error) : error;
  }

  std::optional<FileError> fillTail(SegmentWriter& writer, const SegmentHeader& header,
                                    const TailBegin& begin, const std::optional<Gap>& gap) {
    if (auto error = writer.begin(header)) return error;
    if (auto error = copy(writer, begin.segment, begin.from, begin.place)) return error;
    if (gap) {
      Bytes bytes;
      appendRecord(bytes, gapRecord(gap->to + 1, *gap), expected_ - 1, tagOf(result_.identity));
      if (auto error = writer.add(bytes)) return error;
    }
    return writer.finish();
  }

  /// A full disk gets room when what is certain has left the log.
  bool mayWait(const FileError& error) const {
    return isFull(error) && !hole_ && !result_.segments.empty();
  }

  std::optional<FileError> letTailWait(const FileError& full) {
    [[maybe_unused]] const auto left = files_.remove(path_ + "/" + kNewSegmentName);
    findings_.push_back(numbersText(claims_.synced + 1, expected_ - 1) +
                        " of the log wait until the disk has room: " + full.text);
    result_.uncertain = true;
    // Nothing is claimed of that, but a power cut costs no more than it has to meanwhile.
    for (const Segment& segment : result_.segments) {
      if (segment.end <= claims_.synced + 1) continue;
      if (const auto file = openedFile(segment)) [[maybe_unused]]
        const auto error = file->sync();
    }
    [[maybe_unused]] const auto named = files_.syncFolder(path_);
    return std::nullopt;
  }

  /// Where the tail begins: not behind the first number that is not certain.
  TailBegin tailBegin() const {
    const auto& segments = result_.segments;
    if (segments.empty()) return {0, expected_, kSegmentHeaderSize};
    std::size_t i = segments.size() - 1;
    while (i > 0 && segments[i].first > claims_.synced + 1) --i;
    const Segment& segment = segments[i];
    const RecordNumber sure = std::max(claims_.synced, segment.first - 1);
    if (segment.size <= kSmallSegment || sure < segment.first) {
      return {i, segment.first, kSegmentHeaderSize};
    }
    return behind(i, sure);
  }

  /// The number behind the last record up to `sure`, which may be one that was skipped.
  TailBegin behind(std::size_t i, RecordNumber sure) const {
    const Segment& segment = result_.segments[i];
    RecordScanner scanner(openedFile(segment), segment.placeFor(sure), tag_);
    TailBegin begin{i, segment.end, segment.size};
    while (scanner.next() == Step::record && scanner.head().number <= sure) {
      begin.from = scanner.head().number + 1;
      begin.place = scanner.place() + scanner.head().length;
    }
    return begin;
  }

  std::shared_ptr<LogFile> openedFile(const Segment& segment) const {
    for (const SegmentFile& file : folder_.segments) {
      if (file.name.serial == segment.serial && file.path == segment.path) return file.file;
    }
    return nullptr;
  }

  std::optional<FileError> copy(SegmentWriter& writer, std::size_t segment, RecordNumber from,
                                std::uint64_t place) {
    for (std::size_t i = segment; i < result_.segments.size(); ++i) {
      const Segment& source = result_.segments[i];
      RecordScanner scanner(openedFile(source), place, tag_);
      for (RecordNumber at = std::max(from, source.first); at < source.end;) {
        const Step step = scanner.next();
        if (step == Step::failed) return scanner.error();
        if (step != Step::record) {
          return FileError{EIO, source.path + " has changed while it was read"};
        }
        if (auto error = writer.add(scanner.bytes())) return error;
        at = scanner.head().number + 1;
      }
      place = kSegmentHeaderSize;
    }
    return std::nullopt;
  }

  /// The new segment takes over from its first number on.
  std::optional<FileError> takeTail(const std::string& path, const SegmentHeader& header) {
    auto& segments = result_.segments;
    while (!segments.empty() && segments.back().first >= header.first) segments.pop_back();
    if (!segments.empty()) segments.back().end = header.first;
    FileError error;
    const auto file = files_.open(path, false, error);
    if (!file) return error;
    Segment segment{path, header.serial, header.first, header.first, file->size(), {}};
    RecordScanner scanner(file, kSegmentHeaderSize, tag_);
    while (scanner.next() == Step::record) {
      segment.mark(scanner.head().number, scanner.place());
      segment.end = scanner.head().number + 1;
    }
    if (segment.end != header.claims.synced + 1) {
      return FileError{EIO, path + " does not read as it was written"};
    }
    segments.push_back(std::move(segment));
    return std::nullopt;
  }

  /// Oldest first, and off the disk before the next one goes: see SyncWork.
  std::optional<FileError> removeUnused() {
    for (const SegmentFile& file : folder_.segments) {
      const auto used = std::ranges::find(result_.segments, file.path, &Segment::path);
      if (used != result_.segments.end()) {
        // Behind the cut nothing counts, so it does no harm where this fails.
        if (used->size < file.size) [[maybe_unused]]
          const auto error = file.file->truncate(used->size);
        continue;
      }
      // What has taken over from it may not be on the disk yet.
      if (result_.uncertain && file.name.first >= result_.segments.front().first) {
        result_.superseded.emplace_back(file.path, file.size);
        continue;
      }
      if (auto error = files_.remove(file.path)) return error;
      if (auto error = files_.syncFolder(path_)) return error;
    }
    return std::nullopt;
  }

  std::optional<FileError> writeFinalState() {
    result_.claims.synced = result_.segments.back().end - 1;
    result_.claims.forgotten = std::min(result_.claims.forgotten, result_.claims.synced);
    result_.claims.oldest = result_.segments.front().first;
    const Bytes bytes = writeState({result_.identity, result_.claims, result_.kept, std::nullopt});
    const auto error = replaceState(files_, path_, bytes);
    // The old one claims less, and nothing that is wrong.
    if (error && isFull(*error) && folder_.state) return std::nullopt;
    result_.stateSize = bytes.size();
    return error;
  }

  FileLayer& files_;
  const std::string path_;
  const std::function<LogIdentity()>& makeIdentity_;
  Recovered& result_;
  std::vector<std::string>& findings_;

  LogFolder folder_;
  std::vector<ChainLink> chain_;
  std::vector<Segment> scanned_;
  Claims claims_;
  std::optional<std::uint32_t> tag_;
  RecordNumber expected_ = 1;
  RecordNumber highest_ = 0;  // Behind a hole.
  std::uint64_t cut_ = 0;
  bool hole_ = false;
  bool damaged_ = false;
};

}  // namespace

void Segment::mark(RecordNumber number, std::uint64_t place) {
  if (!marks.empty() && place - marks.back().place < kMarkDistance) return;
  marks.push_back({number, place});
}

std::uint64_t Segment::placeFor(RecordNumber number) const {
  const auto behind = std::ranges::upper_bound(marks, number, {}, &Mark::number);
  return behind == marks.begin() ? kSegmentHeaderSize : std::prev(behind)->place;
}

std::optional<FileError> recover(FileLayer& files, const std::string& folder,
                                 const std::function<LogIdentity()>& makeIdentity,
                                 Recovered& recovered, std::vector<std::string>& findings) {
  return Recovery(files, folder, makeIdentity, recovered, findings).run();
}

}  // namespace kestrin::gateway
