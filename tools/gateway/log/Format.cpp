#include "tools/gateway/log/Format.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>

#include "tools/gateway/log/Crc32c.h"
#include "tools/gateway/log/LittleEndian.h"

namespace kestrin::gateway {
namespace {

constexpr std::array<std::uint8_t, 8> kSegmentMagic{'K', 'G', 'W', 'L', 'O', 'G', '\r', '\n'};
constexpr std::array<std::uint8_t, 8> kStateMagic{'K', 'G', 'W', 'S', 'T', 'A', '\r', '\n'};
constexpr std::size_t kPreambleSize = 16;  // Magic, checksum, version: the same in every version.
constexpr std::size_t kGapSize = kIdentityLength + 8 + 8 + 1;
constexpr std::size_t kMostKept = 4096;

// Places in a record.
constexpr std::size_t kLengthAt = 4;
constexpr std::size_t kTagAt = 8;
constexpr std::size_t kNumberAt = 12;
constexpr std::size_t kSyncedAt = 20;
constexpr std::size_t kKindAt = 28;
constexpr std::size_t kLinkAt = 29;
constexpr std::size_t kWallAt = 37;
constexpr std::size_t kMonoAt = 45;
constexpr std::size_t kReaderLengthAt = 53;
constexpr std::size_t kNameLengthAt = 55;

void putText(Bytes& bytes, const std::string& text) {
  bytes.insert(bytes.end(), text.begin(), text.end());
}

std::string text(ByteView bytes) { return {bytes.begin(), bytes.end()}; }

bool isIdentity(ByteView bytes) {
  return std::ranges::all_of(
      bytes, [](std::uint8_t c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'); });
}

void putIdentity(Bytes& bytes, LogIdentity identity) {
  identity.resize(kIdentityLength, '0');
  putText(bytes, identity);
}

void putClaims(Bytes& bytes, const Claims& claims) {
  put64(bytes, claims.synced);
  put64(bytes, claims.forgotten);
  put64(bytes, claims.oldest);
}

std::optional<Claims> readClaims(const std::uint8_t* bytes) {
  const Claims claims{get64(bytes), get64(bytes + 8), get64(bytes + 16)};
  const bool sane = claims.synced <= kHighestNumber && claims.forgotten <= claims.synced &&
                    claims.oldest >= 1 && claims.oldest <= kHighestNumber;
  return sane ? std::optional(claims) : std::nullopt;
}

void putGap(Bytes& bytes, const Gap& gap) {
  putIdentity(bytes, gap.log);
  put64(bytes, gap.from);
  put64(bytes, gap.to);
  bytes.push_back(static_cast<std::uint8_t>(gap.reason));
}

bool isGap(ByteView bytes) {
  if (bytes.size() < kGapSize) return false;
  const std::uint8_t reason = bytes[kGapSize - 1];
  return isIdentity(bytes.first(kIdentityLength)) && reason >= 1 && reason <= 4 &&
         get64(bytes.data() + kIdentityLength + 8) <= kHighestNumber;
}

Gap readGap(ByteView bytes) {
  const std::uint8_t* const numbers = bytes.data() + kIdentityLength;
  return {text(bytes.first(kIdentityLength)), get64(numbers), get64(numbers + 8),
          static_cast<GapReason>(bytes[kGapSize - 1])};
}

void putPreamble(Bytes& bytes, const std::array<std::uint8_t, 8>& magic) {
  bytes.insert(bytes.end(), magic.begin(), magic.end());
  put32(bytes, 0);
  put32(bytes, kFormatVersion);
}

/// Puts the checksum of what follows it into the preamble that begins at `place`.
void seal(Bytes& bytes, std::size_t place) {
  const auto crc = crc32c(ByteView(bytes).subspan(place + 12));
  setNumber(bytes.data() + place + 8, crc);
}

Readable readPreamble(ByteView bytes, const std::array<std::uint8_t, 8>& magic) {
  if (bytes.size() < kPreambleSize) return Readable::no;
  if (!std::equal(magic.begin(), magic.end(), bytes.begin())) return Readable::no;
  if (get32(bytes.data() + 8) != crc32c(bytes.subspan(12))) return Readable::no;
  const std::uint32_t version = get32(bytes.data() + 12);
  if (version > kFormatVersion) return Readable::newer;
  return version == kFormatVersion ? Readable::yes : Readable::no;
}

/// What lies between the fixed fields and the bytes.
std::size_t tailLength(ByteView record) {
  const std::size_t gap =
      record[kKindAt] == static_cast<std::uint8_t>(RecordKind::gap) ? kGapSize : 0;
  return std::size_t{get16(record.data() + kReaderLengthAt)} +
         get16(record.data() + kNameLengthAt) + gap;
}

bool fieldsFit(ByteView record) {
  if (record[kKindAt] < 1 || record[kKindAt] > 3) return false;
  const RecordNumber number = get64(record.data() + kNumberAt);
  const RecordNumber synced = get64(record.data() + kSyncedAt);
  if (number < 1 || number > kHighestNumber || synced >= number) return false;
  const std::size_t tail = tailLength(record);
  if (kSmallestRecord + tail > record.size()) return false;
  return record[kKindAt] != static_cast<std::uint8_t>(RecordKind::gap) ||
         isGap(record.subspan(kSmallestRecord + tail - kGapSize));
}

}  // namespace

void takeLatest(Claims& claims, const Claims& others) {
  claims.synced = std::max(claims.synced, others.synced);
  claims.forgotten = std::max(claims.forgotten, others.forgotten);
  claims.oldest = std::max(claims.oldest, others.oldest);
}

void appendHeader(Bytes& bytes, const SegmentHeader& header) {
  const std::size_t place = bytes.size();
  putPreamble(bytes, kSegmentMagic);
  putIdentity(bytes, header.identity);
  put64(bytes, header.serial);
  put64(bytes, header.first);
  putClaims(bytes, header.claims);
  seal(bytes, place);
}

Readable readHeader(ByteView bytes, SegmentHeader& header) {
  if (bytes.size() < kSegmentHeaderSize) return Readable::no;
  const Readable preamble = readPreamble(bytes.first(kSegmentHeaderSize), kSegmentMagic);
  if (preamble != Readable::yes) return preamble;
  const ByteView identity = bytes.subspan(kPreambleSize, kIdentityLength);
  const std::uint8_t* const numbers = bytes.data() + kPreambleSize + kIdentityLength;
  const auto claims = readClaims(numbers + 16);
  header.serial = get64(numbers);
  header.first = get64(numbers + 8);
  if (!isIdentity(identity) || !claims) return Readable::no;
  if (header.first < 1 || header.first > kHighestNumber) return Readable::no;
  header.identity = text(identity);
  header.claims = *claims;
  return Readable::yes;
}

std::string segmentName(RecordNumber first, std::uint64_t serial) {
  std::array<char, 64> name{};
  std::snprintf(name.data(), name.size(), "%020llu-%010llu.log",
                static_cast<unsigned long long>(first), static_cast<unsigned long long>(serial));
  return name.data();
}

std::optional<SegmentName> readSegmentName(const std::string& name) {
  constexpr std::size_t kFirstDigits = 20;
  const std::size_t end = name.size() < 4 ? 0 : name.size() - 4;
  if (end < kFirstDigits + 2 || end > kFirstDigits + 20 || name.substr(end) != ".log") {
    return std::nullopt;
  }
  SegmentName found;
  for (std::size_t i = 0; i < end; ++i) {
    if (i == kFirstDigits) continue;
    if (name[i] < '0' || name[i] > '9') return std::nullopt;
    auto& number = i < kFirstDigits ? found.first : found.serial;
    number = number * 10 + static_cast<std::uint64_t>(name[i] - '0');
  }
  // Whatever else has such a name is not a segment's file.
  if (segmentName(found.first, found.serial) != name) return std::nullopt;
  return found;
}

std::uint32_t tagOf(const LogIdentity& identity) {
  const Bytes bytes(identity.begin(), identity.end());
  return crc32c(bytes);
}

std::size_t recordSize(const Record& record) {
  const std::size_t gap = record.kind == RecordKind::gap ? kGapSize : 0;
  return kSmallestRecord + record.reader.size() + record.name.size() + gap + record.bytes.size();
}

void appendRecord(Bytes& bytes, const Record& record, RecordNumber synced, std::uint32_t tag) {
  const std::size_t place = bytes.size();
  bytes.reserve(place + recordSize(record));
  put32(bytes, 0);
  put32(bytes, static_cast<std::uint32_t>(recordSize(record)));
  put32(bytes, tag);
  put64(bytes, record.number);
  put64(bytes, synced);
  bytes.push_back(static_cast<std::uint8_t>(record.kind));
  put64(bytes, record.link);
  put64(bytes, static_cast<std::uint64_t>(record.wallMs));
  put64(bytes, static_cast<std::uint64_t>(record.monoMs));
  put16(bytes, static_cast<std::uint16_t>(record.reader.size()));
  put16(bytes, static_cast<std::uint16_t>(record.name.size()));
  putText(bytes, record.reader);
  putText(bytes, record.name);
  if (record.kind == RecordKind::gap) putGap(bytes, record.gap.value_or(Gap{}));
  bytes.insert(bytes.end(), record.bytes.begin(), record.bytes.end());
  setNumber(bytes.data() + place, crc32c(ByteView(bytes).subspan(place + kLengthAt)));
}

std::optional<std::size_t> recordLength(ByteView bytes) {
  if (bytes.size() < kSmallestRecord) return std::nullopt;
  const std::size_t length = get32(bytes.data() + kLengthAt);
  if (length < kSmallestRecord || length > kLargestRecord) return std::nullopt;
  return length;
}

std::optional<RecordHead> readHead(ByteView bytes, std::optional<std::uint32_t> tag) {
  const auto length = recordLength(bytes);
  if (!length || *length > bytes.size()) return std::nullopt;
  const ByteView record = bytes.first(*length);
  if (tag && get32(record.data() + kTagAt) != *tag) return std::nullopt;
  if (!fieldsFit(record)) return std::nullopt;
  if (get32(record.data()) != crc32c(record.subspan(kLengthAt))) return std::nullopt;
  return RecordHead{get64(record.data() + kNumberAt), get64(record.data() + kSyncedAt),
                    static_cast<RecordKind>(record[kKindAt]), *length};
}

Record readRecord(ByteView bytes) {
  Record record;
  record.number = get64(bytes.data() + kNumberAt);
  record.kind = static_cast<RecordKind>(bytes[kKindAt]);
  record.link = get64(bytes.data() + kLinkAt);
  record.wallMs = static_cast<std::int64_t>(get64(bytes.data() + kWallAt));
  record.monoMs = static_cast<std::int64_t>(get64(bytes.data() + kMonoAt));
  const std::size_t readerLength = get16(bytes.data() + kReaderLengthAt);
  const std::size_t nameLength = get16(bytes.data() + kNameLengthAt);
  ByteView rest = bytes.subspan(kSmallestRecord);
  record.reader = text(rest.first(readerLength));
  record.name = text(rest.subspan(readerLength, nameLength));
  rest = rest.subspan(readerLength + nameLength);
  if (record.kind == RecordKind::gap) {
    record.gap = readGap(rest);
    rest = rest.subspan(kGapSize);
  }
  record.bytes.assign(rest.begin(), rest.end());
  return record;
}

Bytes writeState(const State& state) {
  Bytes bytes;
  putPreamble(bytes, kStateMagic);
  putIdentity(bytes, state.identity);
  putClaims(bytes, state.claims);
  bytes.push_back(state.moving ? 1 : 0);
  putGap(bytes, state.moving.value_or(Gap{LogIdentity(kIdentityLength, '0'), 0, 0, {}}));
  put32(bytes, static_cast<std::uint32_t>(state.kept.size()));
  for (const auto& [name, value] : state.kept) {
    put16(bytes, static_cast<std::uint16_t>(name.size()));
    putText(bytes, name);
    put64(bytes, value);
  }
  seal(bytes, 0);
  return bytes;
}

Readable readState(ByteView bytes, State& state) {
  const Readable preamble = readPreamble(bytes, kStateMagic);
  if (preamble != Readable::yes) return preamble;
  constexpr std::size_t kMovingAt = kPreambleSize + kIdentityLength + 24;
  constexpr std::size_t kKeptAt = kMovingAt + 1 + kGapSize;
  if (bytes.size() < kKeptAt + 4) return Readable::no;
  const ByteView identity = bytes.subspan(kPreambleSize, kIdentityLength);
  const auto claims = readClaims(bytes.data() + kPreambleSize + kIdentityLength);
  if (!isIdentity(identity) || !claims) return Readable::no;
  state = State{text(identity), *claims, {}, std::nullopt};
  if (bytes[kMovingAt] != 0) {
    if (!isGap(bytes.subspan(kMovingAt + 1))) return Readable::no;
    state.moving = readGap(bytes.subspan(kMovingAt + 1));
  }
  const std::uint32_t count = get32(bytes.data() + kKeptAt);
  ByteView rest = bytes.subspan(kKeptAt + 4);
  if (count > kMostKept) return Readable::no;
  for (std::uint32_t i = 0; i < count; ++i) {
    if (rest.size() < 2) return Readable::no;
    const std::size_t length = get16(rest.data());
    if (rest.size() < 2 + length + 8) return Readable::no;
    state.kept.emplace_back(text(rest.subspan(2, length)), get64(rest.data() + 2 + length));
    rest = rest.subspan(2 + length + 8);
  }
  return Readable::yes;
}

}  // namespace kestrin::gateway
