// What came lately: how much of each reader in each minute of the last hour, and the last frames.
//
// Threads: the main run loop's.
// Lifetime: belongs to a gateway.
// Errors: none.
#pragma once

#include "KestrinBLESDK/platform/Clock.h"
#include "tools/gateway/log/Record.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <vector>

namespace kestrin::gateway {

class Activity {
 public:
  static constexpr std::size_t kMinutes = 60;
  static constexpr std::size_t kLastFrames = 30;

  /// A reader has sent a frame or a value.
  void count(const std::string& reader, Time now);
  /// The log has taken it.
  void keep(const Record& record, RecordNumber number);
  /// Nothing is to be known of a reader any more.
  void forget(const std::string& reader) { readers_.erase(reader); }

  [[nodiscard]] std::uint64_t total(const std::string& reader) const;
  /// Of each minute of the last hour, oldest first; the last one has not ended.
  [[nodiscard]] std::vector<std::uint64_t> minutes(const std::string& reader, Time now) const;
  /// How many the log has taken.
  [[nodiscard]] std::uint64_t kept() const noexcept { return kept_; }
  [[nodiscard]] const std::deque<Record>& lastFrames() const noexcept { return last_; }

 private:
  struct Counts {
    std::array<std::uint64_t, kMinutes> minutes{};
    std::int64_t newest = 0;  // The minute that was counted in last.
    std::uint64_t total = 0;
  };
  static std::int64_t minuteOf(Time now);
  static std::size_t placeOf(std::int64_t minute);

  std::map<std::string, Counts> readers_;
  std::deque<Record> last_;
  std::uint64_t kept_ = 0;
};

}  // namespace kestrin::gateway
