// A record as a row of a table, for whatever is written out.
//
// Threads: pure functions. Lifetime: plain values. Errors: none.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/gateway/log/Log.h"

namespace kestrin::gateway {

/// What is absent has no value in this kind of record.
struct RecordRow {
  std::string log;
  RecordNumber number = 0;
  std::string kind;  ///< frame, value, gap.
  std::optional<std::string> reader{};
  std::optional<std::string> name{};  ///< Bytes that are not printable ASCII as `\xNN`.
  std::optional<std::uint64_t> link{};
  std::optional<std::string> at{};  ///< As in 2026-11-22T13:05:09.123Z.
  std::optional<std::int64_t> mono{};
  std::optional<std::string> bytes{};  ///< Hexadecimal, and so is `payload`.
  std::optional<std::uint8_t> type{};
  std::optional<std::uint8_t> code{};
  std::optional<std::string> payload{};
  std::optional<Gap> gap{};
};

RecordRow rowOf(const LogIdentity& log, const Record& record);

/// The names of a table's columns, in the order of the members above; a gap has four.
const std::vector<std::string>& columnNames();

/// The same values as text; absent ones stay absent.
std::vector<std::optional<std::string>> columnsOf(const RecordRow& row);

/// A line for a person.
std::string lineOf(const RecordRow& row);

}  // namespace kestrin::gateway
