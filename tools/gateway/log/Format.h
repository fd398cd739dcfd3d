// The log's files, byte by byte. docs/gateway-log.md describes them.
//
// Threads: pure functions. Errors: bytes that are not what they should be are absent, or said to be
// unreadable; nothing is taken from them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "tools/gateway/log/Record.h"

namespace kestrin::gateway {

using Bytes = std::vector<std::uint8_t>;
using ByteView = std::span<const std::uint8_t>;

constexpr std::uint32_t kFormatVersion = 1;
constexpr std::size_t kIdentityLength = 32;
constexpr std::size_t kSegmentHeaderSize = 88;
constexpr std::size_t kSmallestRecord = 57;
constexpr std::size_t kLargestRecord = std::size_t{64} << 10U;
/// No number comes near it; what claims to is not believed.
constexpr RecordNumber kHighestNumber = 1ULL << 62U;

/// What was certain when a segment was begun. It still is, so that the latest of them counts.
struct Claims {
  RecordNumber synced = 0;     ///< Up to here everything was on the disk.
  RecordNumber forgotten = 0;  ///< Up to here nobody needs anything.
  RecordNumber oldest = 1;     ///< What is below has been removed on purpose.
};
void takeLatest(Claims& claims, const Claims& others);

struct SegmentHeader {
  LogIdentity identity;
  std::uint64_t serial = 0;
  RecordNumber first = 1;
  Claims claims;
};

enum class Readable : std::uint8_t { yes, no, newer };

void appendHeader(Bytes& bytes, const SegmentHeader& header);
Readable readHeader(ByteView bytes, SegmentHeader& header);

/// The name of a segment's file, and what such a name says.
std::string segmentName(RecordNumber first, std::uint64_t serial);
struct SegmentName {
  RecordNumber first = 0;
  std::uint64_t serial = 0;
};
std::optional<SegmentName> readSegmentName(const std::string& name);

/// What stands in each record of a log, so that no other log's is taken for one of its own.
std::uint32_t tagOf(const LogIdentity& identity);

std::size_t recordSize(const Record& record);
/// `record.number` counts here.
void appendRecord(Bytes& bytes, const Record& record, RecordNumber synced, std::uint32_t tag);

struct RecordHead {
  RecordNumber number = 0;
  RecordNumber synced = 0;
  RecordKind kind = RecordKind::frame;
  std::size_t length = 0;
};
/// How long the record says it is that begins here; absent when it cannot be one.
std::optional<std::size_t> recordLength(ByteView bytes);
/// The record that begins here, if all of it is there and right. Any log's without a tag.
std::optional<RecordHead> readHead(ByteView bytes, std::optional<std::uint32_t> tag);
/// The record that `readHead` found: its bytes and no more.
Record readRecord(ByteView bytes);

/// What is kept beside the records.
struct State {
  LogIdentity identity;
  Claims claims;
  std::vector<std::pair<std::string, RecordNumber>> kept;
  /// A damaged log whose files are being moved out of the way, and what is lost of it.
  std::optional<Gap> moving;
};
Bytes writeState(const State& state);
Readable readState(ByteView bytes, State& state);

}  // namespace kestrin::gateway
