#include "tools/gateway/log/LogFolder.h"

#include <algorithm>
#include <array>
#include <cerrno>

namespace kestrin::gateway {
namespace {

constexpr std::size_t kLargestState = std::size_t{4} << 20U;

FileError newerFormat(const std::string& path) {
  return {EPROTONOSUPPORT, path + " has a newer format than this program reads (" +
                               std::to_string(kFormatVersion) +
                               "): use the program that wrote it, or one that is as new"};
}

std::optional<FileError> readSegment(FileLayer& files, const std::string& path,
                                     const SegmentName& name, LogFolder& found) {
  FileError error;
  SegmentFile segment{path, name, files.open(path, false, error), 0, std::nullopt};
  if (!segment.file) return error;
  segment.size = segment.file->size();
  std::array<std::uint8_t, kSegmentHeaderSize> bytes{};
  std::size_t count = 0;
  if (auto failed = segment.file->read(0, bytes, count)) return failed;
  SegmentHeader header;
  const Readable readable = readHeader(ByteView(bytes).first(count), header);
  if (readable == Readable::newer) return newerFormat(path);
  if (readable == Readable::yes && header.first == name.first && header.serial == name.serial) {
    segment.header = header;
  }
  found.segments.push_back(std::move(segment));
  return std::nullopt;
}

std::optional<FileError> readStateFile(FileLayer& files, const std::string& path,
                                       LogFolder& found) {
  FileError error;
  const auto file = files.open(path, false, error);
  if (!file) return error;
  found.stateSize = file->size();
  Bytes bytes(static_cast<std::size_t>(std::min<std::uint64_t>(file->size(), kLargestState)));
  std::size_t count = 0;
  if (auto failed = file->read(0, bytes, count)) return failed;
  State state;
  const Readable readable = readState(ByteView(bytes).first(count), state);
  if (readable == Readable::newer) return newerFormat(path);
  found.stateUnreadable = readable == Readable::no;
  if (readable == Readable::yes) found.state = std::move(state);
  return std::nullopt;
}

}  // namespace

std::string numbersText(RecordNumber from, RecordNumber to) {
  return from == to ? "number " + std::to_string(from)
                    : "numbers " + std::to_string(from) + " to " + std::to_string(to);
}

std::optional<FileError> readFolder(FileLayer& files, const std::string& folder, LogFolder& found) {
  found = {};
  std::vector<std::string> names;
  if (auto error = files.list(folder, names)) return error;
  for (const std::string& name : names) {
    const std::string path = folder + "/" + name;
    std::optional<FileError> error;
    if (const auto segment = readSegmentName(name)) {
      error = readSegment(files, path, *segment, found);
    } else if (name == kStateName) {
      error = readStateFile(files, path, found);
    } else if (name == kNewStateName || name == kNewSegmentName) {
      found.leftovers.push_back(path);
    }
    if (error) return error;
  }
  std::ranges::stable_sort(found.segments, {},
                           [](const SegmentFile& segment) { return segment.name.serial; });
  return std::nullopt;
}

std::optional<LogIdentity> identityOf(const LogFolder& folder) {
  if (folder.state) return folder.state->identity;
  for (const SegmentFile& segment : folder.segments) {
    if (segment.header) return segment.header->identity;
  }
  return std::nullopt;
}

Claims claimsOf(const LogFolder& folder, const LogIdentity& identity) {
  Claims claims;
  if (folder.state && folder.state->identity == identity) claims = folder.state->claims;
  for (const SegmentFile& segment : folder.segments) {
    if (segment.header && segment.header->identity == identity) {
      takeLatest(claims, segment.header->claims);
    }
  }
  return claims;
}

std::vector<ChainLink> chainOf(const LogFolder& folder, const LogIdentity& identity,
                               RecordNumber oldest) {
  std::vector<ChainLink> chain;
  for (std::size_t i = 0; i < folder.segments.size(); ++i) {
    const auto& header = folder.segments[i].header;
    if (!header || header->identity != identity) continue;
    while (!chain.empty() && chain.back().first >= header->first) chain.pop_back();
    if (!chain.empty()) chain.back().limit = header->first;
    chain.push_back({i, header->first, std::nullopt});
  }
  const auto wanted = std::ranges::find_if(
      chain, [&](const ChainLink& link) { return !link.limit || *link.limit > oldest; });
  chain.erase(chain.begin(), wanted);
  return chain;
}

bool follows(RecordNumber expected, const RecordHead& head, ByteView bytes,
             const LogIdentity& identity) {
  if (head.number == expected) return true;
  if (head.kind != RecordKind::gap || head.number < expected) return false;
  const Gap gap = readRecord(bytes).gap.value_or(Gap{});
  const bool skips = gap.reason == GapReason::torn || gap.reason == GapReason::refused;
  return skips && gap.log == identity && gap.from == expected && gap.to == head.number - 1;
}

}  // namespace kestrin::gateway
