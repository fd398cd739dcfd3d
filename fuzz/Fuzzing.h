// What every fuzzer shares: its entry point, the one way to say that something must hold, and the
// reader that turns an input into decisions.
//
// Threads: one. Lifetime: a `ByteSource` views bytes that its maker keeps.
// Errors: an invariant that does not hold ends the process, which is what a finding is.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/// Takes one input; the same input does the same every time. Always 0.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace kestrin::fuzz {

using Bytes = std::vector<std::uint8_t>;
using ByteView = std::span<const std::uint8_t>;

/// Ends the process unless `holds`, telling the claim that was broken.
inline void require(bool holds, std::string_view claim) {
  if (holds) return;
  std::fprintf(stderr, "fuzz: broken: %.*s\n", static_cast<int>(claim.size()), claim.data());
  std::fflush(stderr);
  std::abort();
}

/// Decisions from the front of an input. What is read past the end is zero, so every input decides
/// everything.
class ByteSource {
 public:
  explicit ByteSource(ByteView bytes) noexcept : left_(bytes) {}

  [[nodiscard]] bool empty() const noexcept { return left_.empty(); }
  std::uint8_t u8() noexcept {
    if (left_.empty()) return 0;
    const std::uint8_t byte = left_.front();
    left_ = left_.subspan(1);
    return byte;
  }
  std::uint16_t u16() noexcept {
    const unsigned high = u8();
    return static_cast<std::uint16_t>(high << 8 | u8());
  }
  bool flag() noexcept { return (u8() & 1) != 0; }
  /// A number less than `bound`, which is from 1 to 256.
  std::size_t below(std::size_t bound) noexcept { return u8() % bound; }
  /// The next `count` bytes, or as many as there are.
  ByteView take(std::size_t count) noexcept {
    const ByteView taken = left_.first(std::min(count, left_.size()));
    left_ = left_.subspan(taken.size());
    return taken;
  }
  /// As many bytes as the next byte says.
  ByteView block() noexcept { return take(u8()); }
  ByteView rest() noexcept { return take(left_.size()); }

 private:
  ByteView left_;
};

inline std::string textOf(ByteView bytes) { return {bytes.begin(), bytes.end()}; }

}  // namespace kestrin::fuzz
