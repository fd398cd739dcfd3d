#include "tools/gateway/log/LogReader.h"

#include <utility>

#include "tools/gateway/log/LogFolder.h"
#include "tools/gateway/log/RecordScanner.h"

namespace kestrin::gateway {

struct LogReader::Inside {
  using Step = RecordScanner::Step;

  std::shared_ptr<FileLayer> files;
  LogFolder folder;
  LogIdentity identity;
  Claims claims;
  std::vector<ChainLink> chain;
  std::vector<std::string> findings;

  std::size_t link = 0;
  std::unique_ptr<RecordScanner> scanner;
  RecordNumber expected = 1;

  void prepare() {
    identity = identityOf(folder).value_or(kUnknownIdentity);
    claims = claimsOf(folder, identity);
    // Where a header cannot be read, the records behind it still can.
    for (SegmentFile& file : folder.segments) {
      if (file.header) continue;
      findings.push_back(file.path + ": its header cannot be read");
      file.header = SegmentHeader{identity, file.name.serial, file.name.first, {}};
    }
    chain = chainOf(folder, identity, claims.oldest);
    if (!chain.empty()) expected = chain.front().first;
    if (folder.stateUnreadable) findings.emplace_back("the log's state cannot be read");
  }

  bool next(Record& record) {
    while (link < chain.size()) {
      if (advance() && takes(record)) return true;
    }
    if (expected <= claims.synced) lost(claims.synced + 1);
    return false;
  }

  /// Whether it stands on a record then.
  bool advance() {
    if (!scanner) begin();
    Step step = scanner->next();
    if (step == Step::unreadable) {
      const std::uint64_t from = scanner->place();
      step = scanner->seek();
      findings.push_back(file().path + ": " + std::to_string(scanner->place() - from) +
                         " bytes from " + std::to_string(from) + " on cannot be read");
    }
    if (step == Step::record) return true;
    if (step == Step::failed) findings.push_back(scanner->error().text);
    end();
    return false;
  }

  bool takes(Record& record) {
    const RecordHead& head = scanner->head();
    if (chain[link].limit && head.number >= *chain[link].limit) {
      end();
      return false;
    }
    if (head.number < expected) return false;
    if (!follows(expected, head, scanner->bytes(), identity)) lost(head.number);
    expected = head.number + 1;
    record = readRecord(scanner->bytes());
    return true;
  }

  void lost(RecordNumber end) {
    findings.push_back(numbersText(expected, end - 1) + " cannot be read");
    expected = end;
  }

  const SegmentFile& file() const { return folder.segments[chain[link].segment]; }

  void begin() {
    const auto tag = identity == kUnknownIdentity ? std::nullopt : std::optional(tagOf(identity));
    scanner = std::make_unique<RecordScanner>(file().file, kSegmentHeaderSize, tag);
  }
  void end() {
    scanner.reset();
    ++link;
  }
};

std::unique_ptr<LogReader> LogReader::open(std::shared_ptr<FileLayer> files,
                                           const std::string& folder, std::string& error) {
  auto inside = std::make_unique<Inside>();
  inside->files = std::move(files);
  if (const auto failed = readFolder(*inside->files, folder, inside->folder)) {
    error = failed->text;
    return nullptr;
  }
  if (inside->folder.segments.empty()) {
    error = "there is no log in " + folder + ": a folder with files like " + segmentName(1, 1) +
            " would be right";
    return nullptr;
  }
  inside->prepare();
  return std::unique_ptr<LogReader>(new LogReader(std::move(inside)));
}

LogReader::LogReader(std::unique_ptr<Inside> inside) : inside_(std::move(inside)) {}
LogReader::~LogReader() = default;

const LogIdentity& LogReader::identity() const { return inside_->identity; }
RecordNumber LogReader::forgotten() const { return inside_->claims.forgotten; }
const std::vector<std::pair<std::string, RecordNumber>>& LogReader::kept() const {
  static const std::vector<std::pair<std::string, RecordNumber>> none;
  return inside_->folder.state ? inside_->folder.state->kept : none;
}

bool LogReader::next(Record& record) { return inside_->next(record); }
std::vector<std::string> LogReader::takeFindings() { return std::exchange(inside_->findings, {}); }

}  // namespace kestrin::gateway
