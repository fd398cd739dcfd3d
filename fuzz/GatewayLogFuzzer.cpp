// Whatever lies in a log's folder: it is opened, recovered, read and gone on with. The input says
// which files there are: bytes as they stand there, or records with a right checksum, so that what
// lies behind the checksum is reached too.
//
// Threads: one. Lifetime: nothing outlives an input. Errors: see Fuzzing.h.
#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "fuzz/Fuzzing.h"
#include "fuzz/MemoryFiles.h"
#include "tools/gateway/log/Format.h"
#include "tools/gateway/log/Log.h"
#include "tools/gateway/log/LogReader.h"

namespace kestrin::fuzz {
namespace {

using gateway::Log;
using gateway::Record;
using gateway::RecordNumber;

constexpr const char* kFolder = "/log";
const gateway::LogIdentity kIdentity(32, 'a');

/// Records of the input's making: a few bytes each say what they are.
Bytes sealedRecords(ByteSource& source, std::size_t count) {
  Bytes bytes;
  RecordNumber number = source.below(4);
  for (std::size_t i = 0; i < count; ++i) {
    Record record;
    number += source.below(8) == 7 ? source.below(5) : 1;
    record.number = std::max<RecordNumber>(number, 1);
    const bool isGap = source.below(5) == 4;
    record.kind = isGap ? gateway::RecordKind::gap : gateway::RecordKind::frame;
    if (isGap) {
      record.gap = gateway::Gap{source.flag() ? kIdentity : std::string(32, 'b'), source.u16(),
                                record.number - source.below(2),
                                static_cast<gateway::GapReason>(1 + source.below(4))};
    }
    const ByteView payload = source.take(source.below(40));
    record.bytes.assign(payload.begin(), payload.end());
    const RecordNumber synced = std::min<RecordNumber>(source.below(64), record.number - 1);
    gateway::appendRecord(bytes, record, synced, gateway::tagOf(kIdentity));
  }
  return bytes;
}

Bytes segment(ByteSource& source, RecordNumber first, std::uint64_t serial) {
  Bytes bytes;
  switch (source.below(4)) {
    case 0: {
      const ByteView raw = source.block();
      return {raw.begin(), raw.end()};
    }
    case 1: {
      const ByteView raw = source.block();
      gateway::appendHeader(bytes, {kIdentity, serial, first, {}});
      bytes.insert(bytes.end(), raw.begin(), raw.end());
      return bytes;
    }
    default: {
      const RecordNumber synced = source.below(32);
      gateway::appendHeader(
          bytes, {kIdentity, serial, first, {synced, source.below(32) % (synced + 1), 1}});
      const Bytes records = sealedRecords(source, source.below(12));
      bytes.insert(bytes.end(), records.begin(), records.end());
    }
  }
  // Damage somewhere.
  for (std::size_t i = source.below(3); i > 0 && !bytes.empty(); --i) {
    bytes[source.u16() % bytes.size()] ^= source.u8();
  }
  if (source.below(4) == 0) bytes.resize(bytes.size() - source.u16() % (bytes.size() + 1));
  return bytes;
}

void place(MemoryFiles& files, const std::string& name, const Bytes& bytes) {
  gateway::FileError error;
  const auto file = files.open(std::string(kFolder) + "/" + name, true, error);
  if (file) require(!file->append(bytes), "the disk takes what it is given");
}

/// Everything readable that was put into the folder, wherever it lies.
std::vector<Record> readableIn(const std::vector<Bytes>& contents) {
  std::vector<Record> records;
  for (const Bytes& bytes : contents) {
    for (std::size_t at = 0; at < bytes.size(); ++at) {
      const auto rest = ByteView(bytes).subspan(at);
      const auto head = gateway::readHead(rest, std::nullopt);
      if (head) records.push_back(gateway::readRecord(rest.first(head->length)));
    }
  }
  return records;
}

std::unique_ptr<Log> open(const std::shared_ptr<MemoryFiles>& files, std::string& error) {
  gateway::LogOptions options;
  options.folder = kFolder;
  options.budget = gateway::kSmallestBudget;
  options.makeIdentity = [] { return gateway::LogIdentity(32, 'c'); };
  return Log::open(files, options, error);
}

void sync(Log& log) {
  for (int i = 0; i < 3; ++i) {
    const auto work = log.beginSync();
    if (!work) return;
    run(*work);
    require(!log.endSync(work), "a disk without faults syncs");
  }
}

void check(Log& log, const std::vector<Record>& put) {
  std::vector<Record> records;
  const auto error = log.read(1, 100000, 1U << 30U, records);
  require(!error, "a disk without faults reads: " + (error ? error->text : ""));
  RecordNumber last = 0;
  for (const Record& record : records) {
    require(record.number > last && record.number < log.next(), "numbers go up to the next one");
    last = record.number;
    // Gaps are the log's own.
    if (record.gap) continue;
    require(std::ranges::find(put, record) != put.end(), "no record is invented");
  }
}

void goOn(const std::shared_ptr<MemoryFiles>& files, std::unique_ptr<Log> log,
          std::vector<Record> put) {
  Record record;
  record.bytes = {1, 2, 3};
  gateway::FileError error;
  const auto number = log->append(record, error);
  if (!number) return;
  sync(*log);
  require(log->synced() >= *number, "what was synced is said to be");
  record.number = *number;
  put.push_back(record);
  const gateway::LogIdentity identity = log->identity();
  log.reset();
  std::string text;
  log = open(files, text);
  require(log != nullptr, "a log that was in use opens");
  require(log->identity() == identity, "a log that was recovered is not damaged");
  require(log->next() > *number, "no number is used again");
  check(*log, put);
}

void readByReader(const std::shared_ptr<MemoryFiles>& files, const std::vector<Record>& put) {
  std::string error;
  const auto reader = gateway::LogReader::open(files, kFolder, error);
  if (!reader) return;
  for (Record record; reader->next(record);) {
    require(std::ranges::find(put, record) != put.end(), "the reader invents no record");
  }
}

}  // namespace
}  // namespace kestrin::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace kestrin;
  using namespace kestrin::fuzz;
  ByteSource source(ByteView(data, size));
  const auto files = std::make_shared<MemoryFiles>();
  require(!files->makeFolder(kFolder), "the disk makes folders");
  std::vector<kestrin::fuzz::Bytes> contents;
  const std::size_t count = source.below(4);
  for (std::uint64_t serial = 1; serial <= count; ++serial) {
    const RecordNumber first = 1 + source.below(16);
    contents.push_back(segment(source, first, serial));
    place(*files, gateway::segmentName(first, serial), contents.back());
  }
  if (source.flag()) {
    const ByteView state = source.rest();
    place(*files, "state", {state.begin(), state.end()});
  }
  const auto put = readableIn(contents);
  readByReader(files, put);
  std::string error;
  auto log = open(files, error);
  require(log != nullptr || !error.empty(), "a log that is refused says why");
  if (!log) return 0;
  sync(*log);
  check(*log, put);
  goOn(files, std::move(log), put);
  return 0;
}
