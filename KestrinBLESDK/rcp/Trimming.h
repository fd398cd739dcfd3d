// What a parse leaves in the receive buffer, as a rule on numbers. Knows nothing else.
#pragma once

#include <cstdint>

namespace kestrin::rcp {

/// The buffer's length as a parse counts it: 32 bits with a sign, so that of 2 GiB and more only
/// the low 32 bits count. One that comes out negative is a count of no bytes.
constexpr std::int32_t countOf(std::uint64_t length) noexcept {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(length));
}

/// Which bytes of the buffer stay: `count` of them, from `first` on.
struct KeptBytes {
  std::uint64_t first;
  std::uint64_t count;
  friend bool operator==(const KeptBytes&, const KeptBytes&) = default;
};

/// What a parse leaves of `length` bytes that saw its last preamble at `start` and the end of the
/// last frame that it delivered at `end`; both are 0 when there was none. Of a buffer whose count
/// is negative nothing was looked at, and all of it stays.
constexpr KeptBytes keptAfterParse(std::uint64_t length, std::int32_t start,
                                   std::int32_t end) noexcept {
  const std::int32_t n = countOf(length);
  if (n < 0) return {0, length};
  if (n == end + 1) return {0, 0};
  return {static_cast<std::uint64_t>(start), static_cast<std::uint64_t>(n - start)};
}

}  // namespace kestrin::rcp
