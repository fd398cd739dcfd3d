// Which commands have been taken, by their correlation data, so that none is carried out twice.
//
// An entry is kept for ten minutes, and longer while there are no more than 1,000; there are never
// more than 10,000.
//
// Threads: the main run loop's.
// Lifetime: a plain value.
// Errors: none.
#pragma once

#include "KestrinBLESDK/platform/Clock.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kestrin::gateway {

class CommandMemory {
 public:
  struct Entry {
    std::string reader;
    std::vector<std::uint8_t> bytes;
    std::optional<std::string> answer{};  ///< Absent until it was carried out.
    friend bool operator==(const Entry&, const Entry&) = default;
  };
  /// Null when the correlation data is not known.
  [[nodiscard]] const Entry* find(const std::string& correlation) const;
  void remember(const std::string& correlation, Entry entry, Time now);
  void answered(const std::string& correlation, const std::string& answer);
  [[nodiscard]] std::size_t size() const noexcept { return entries_.size(); }

 private:
  std::map<std::string, Entry> entries_;
  std::deque<std::pair<Time, std::string>> order_;
};

}  // namespace kestrin::gateway
