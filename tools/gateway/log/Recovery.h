// Brings a log's folder into order after whatever has ended the last run.
//
// What is certain is what any readable record, header or the state claims to have been synced.
// Where that cannot be read, the log is damaged: its files go into a folder of their own and a log
// of another identity begins. Where the rest cannot be read, it was never promised to anybody: it
// is cut off, and the numbers that it can have held are not used again. What can be read but is not
// certain is written once more, since an earlier process may have seen its sync fail.
//
// Threads: one. Errors: in words; the folder is then as it was, or will be brought into order the
// next time.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tools/gateway/files/FileLayer.h"
#include "tools/gateway/log/Format.h"

namespace kestrin::gateway {

/// Where in a file a number is.
struct Mark {
  RecordNumber number = 0;
  std::uint64_t place = 0;
};

/// A segment's records: from `first` up to the one before `end`.
struct Segment {
  std::string path;
  std::uint64_t serial = 0;
  RecordNumber first = 1;
  RecordNumber end = 1;
  std::uint64_t size = 0;
  std::vector<Mark> marks;

  /// Notes the record if the last mark is far away.
  void mark(RecordNumber number, std::uint64_t place);
  /// Where to look for a number: there, or not far behind it.
  [[nodiscard]] std::uint64_t placeFor(RecordNumber number) const;
};

struct Recovered {
  LogIdentity identity;
  Claims claims;
  std::vector<std::pair<std::string, RecordNumber>> kept;
  std::vector<Segment> segments;  ///< At least one.
  std::uint64_t lastSerial = 0;
  std::uint64_t stateSize = 0;
  /// Up to here a gap record of the budget says what is lost.
  RecordNumber budgetGapTo = 0;
  /// The disk is full: what is behind `claims.synced` has yet to be written once more.
  bool uncertain = false;
  /// Files, by path and size, that may go only after that.
  std::vector<std::pair<std::string, std::uint64_t>> superseded;
  /// The record that says what is lost of an earlier log.
  std::optional<std::pair<RecordNumber, Gap>> foreign;
};

std::optional<FileError> recover(FileLayer& files, const std::string& folder,
                                 const std::function<LogIdentity()>& makeIdentity,
                                 Recovered& recovered, std::vector<std::string>& findings);

}  // namespace kestrin::gateway
