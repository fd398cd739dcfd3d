// What a client of the measurement on the real stack tells and is asked, the same for every client.
//
// It prints "UP MILLISECONDS" once values come: the time from its connect request until the
// reader's services were known. A line "count" on its standard input is answered with "COUNT N
// SUM": how many values have come since the last such line, and the sum of their numbers. The end
// of the input ends the client.
//
// Threads: `add` and `up` from the thread that gets the values; the lines are read on another.
// Lifetime: the process's. Errors: none.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>

namespace kestrin::bench {

/// The characteristic that the values come on.
inline constexpr char kReceiveUUID[] = "ba821002-3b5b-4654-85fe-e998b123adea";
/// What the reader's name begins with.
inline constexpr char kReaderName[] = "KVR";

class Tally {
 public:
  /// One value: an RCP frame whose payload begins with its number, the most significant byte first.
  void add(const std::uint8_t* bytes, std::size_t length) noexcept {
    constexpr std::size_t kPayload = 5;
    constexpr std::size_t kShortest = kPayload + 4;
    if (length < kShortest) return;
    const auto number = static_cast<std::uint32_t>(bytes[kPayload]) << 24 |
                        static_cast<std::uint32_t>(bytes[kPayload + 1]) << 16 |
                        static_cast<std::uint32_t>(bytes[kPayload + 2]) << 8 | bytes[kPayload + 3];
    count_.fetch_add(1, std::memory_order_relaxed);
    sum_.fetch_add(number, std::memory_order_relaxed);
  }

  void connecting() noexcept;
  void servicesKnown() noexcept;
  /// Values may come from now on.
  void up() const noexcept;
  /// Returns the lines of the standard input and ends the process with it.
  void answerLines() noexcept;

 private:
  std::atomic<std::uint64_t> count_ = 0;
  std::atomic<std::uint64_t> sum_ = 0;
  std::int64_t began_ = 0;
  std::int64_t known_ = 0;
};

/// The process's own, whose lines are answered on a thread of their own from the first call on.
Tally& tally();

}  // namespace kestrin::bench
