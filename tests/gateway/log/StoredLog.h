// A log as a text that a test can compare, and the records that a stored log is made of.
//
// Threads: pure functions, and one that uses a log.
// Lifetime: plain values.
// Errors: a log that does not read gives a text that says so.
#pragma once

#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

#include "tools/gateway/log/Log.h"

namespace kestrin::gateway {

inline std::string storedHex(const std::vector<std::uint8_t>& bytes) {
  constexpr const char* kDigits = "0123456789abcdef";
  std::string text;
  for (const std::uint8_t byte : bytes) {
    text += kDigits[byte >> 4U];
    text += kDigits[byte & 0x0FU];
  }
  return text;
}

inline std::string storedHex(const std::string& text) {
  return storedHex(std::vector<std::uint8_t>(text.begin(), text.end()));
}

/// Names as hexadecimal text too, since they are whatever came from the air.
inline std::string describedRecord(const Record& record) {
  std::ostringstream text;
  text << record.number << " kind " << static_cast<int>(record.kind) << " link " << record.link
       << " wall " << record.wallMs << " mono " << record.monoMs << " reader " << record.reader
       << " name " << storedHex(record.name);
  if (record.gap) {
    text << " gap " << record.gap->log << ' ' << record.gap->from << ' ' << record.gap->to << ' '
         << static_cast<int>(record.gap->reason);
  }
  text << " bytes " << storedHex(record.bytes) << '\n';
  return text.str();
}

/// Everything that a log keeps, a line each.
inline std::string describedLog(Log& log) {
  std::ostringstream text;
  text << "log " << log.identity() << " first " << log.first() << " next " << log.next()
       << " forgotten " << log.forgotten() << '\n';
  for (const auto& [name, number] : log.kept()) text << "kept " << name << ' ' << number << '\n';
  std::vector<Record> records;
  const auto failed = log.read(log.first(), 1000, std::size_t{1} << 20U, records);
  if (failed) text << "cannot be read: " << failed->text << '\n';
  for (const Record& record : records) text << describedRecord(record);
  return text.str();
}

}  // namespace kestrin::gateway
