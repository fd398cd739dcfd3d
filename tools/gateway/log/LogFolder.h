// What lies in a log's folder: its segments, in the order in which they count, and the state beside
// them.
//
// Threads: one. Errors: in words. Nothing here changes the folder.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/gateway/files/FileLayer.h"
#include "tools/gateway/log/Format.h"

namespace kestrin::gateway {

inline const std::string kStateName = "state";
inline const std::string kNewStateName = "state.new";
inline const std::string kNewSegmentName = "segment.new";
inline const std::string kDamagedSuffix = ".damaged";
/// Stands for a log whose identity nothing says any more.
inline const LogIdentity kUnknownIdentity(kIdentityLength, '0');

/// For a person: "number 5", "numbers 5 to 7".
std::string numbersText(RecordNumber from, RecordNumber to);

struct SegmentFile {
  std::string path;
  SegmentName name;
  std::shared_ptr<LogFile> file;
  std::uint64_t size = 0;
  /// Absent where it cannot be read.
  std::optional<SegmentHeader> header;
};

struct LogFolder {
  std::vector<SegmentFile> segments;  ///< In the order in which they were begun.
  std::optional<State> state;
  bool stateUnreadable = false;
  std::uint64_t stateSize = 0;
  std::vector<std::string> leftovers;  ///< Paths of files that were never finished.
};

/// Fails when the disk does not read, and when a file has a newer format.
std::optional<FileError> readFolder(FileLayer& files, const std::string& folder, LogFolder& found);

/// Absent when nothing says it.
std::optional<LogIdentity> identityOf(const LogFolder& folder);
/// What the state and every header of that log claim.
Claims claimsOf(const LogFolder& folder, const LogIdentity& identity);

/// A segment, and the number at which the next one takes over; what stands behind does not count.
struct ChainLink {
  std::size_t segment = 0;  ///< In `LogFolder::segments`.
  RecordNumber first = 0;
  std::optional<RecordNumber> limit;
};
/// The segments that count, by their numbers. A segment that was begun later takes over from all
/// earlier ones at its first number.
std::vector<ChainLink> chainOf(const LogFolder& folder, const LogIdentity& identity,
                               RecordNumber oldest);

/// Whether the record follows the one before `expected`: it has that number, or it says itself that
/// the numbers between are lost.
bool follows(RecordNumber expected, const RecordHead& head, ByteView bytes,
             const LogIdentity& identity);

}  // namespace kestrin::gateway
