// What the gateway's log keeps.
//
// Threads: plain values. Errors: none.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kestrin::gateway {

using RecordNumber = std::uint64_t;  ///< From 1.

/// What tells a log from every other one: 32 lower-case hexadecimal digits, random.
using LogIdentity = std::string;

enum class RecordKind : std::uint8_t { frame = 1, value = 2, gap = 3 };
enum class GapReason : std::uint8_t {
  budget = 1,  ///< The oldest records made room for new ones.

  damaged = 2,  ///< The log could not be read in its middle; the rest of it is kept beside.
  refused = 3,  ///< The disk did not take them.
};

struct Gap {
  LogIdentity
      log;  ///< The log whose numbers are meant; another one than the record's own after damage.
  RecordNumber from = 0;
  RecordNumber to = 0;
  GapReason reason = GapReason::budget;
  friend bool operator==(const Gap&, const Gap&) = default;
};

/// Above every number that a log comes to: at a million records a second that takes 146,000 years.
/// A higher one is not a log's.
inline constexpr RecordNumber kHighestNumber = std::uint64_t{1} << 62U;

struct Record {
  RecordNumber number = 0;
  RecordKind kind = RecordKind::frame;
  std::string reader;       ///< Its identifier, for example an address.
  std::string name;         ///< Its name, as it came from the air.
  std::uint64_t link = 0;   ///< Which link of the gateway's run; counts up over all readers.
  std::int64_t wallMs = 0;  ///< Milliseconds since 1970-01-01T00:00:00Z.
  std::int64_t monoMs = 0;  ///< Milliseconds of the monotonic clock, which starts with the machine.
  std::vector<std::uint8_t> bytes;  ///< The whole frame, or the value.
  std::optional<Gap> gap;           ///< With `RecordKind::gap`.
  friend bool operator==(const Record&, const Record&) = default;
};

}  // namespace kestrin::gateway
