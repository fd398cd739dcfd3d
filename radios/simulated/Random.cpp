#include "Random.h"

#include <limits>

namespace kestrin::simulated {

std::uint64_t Random::upTo(std::uint64_t last) {
  static constexpr std::uint64_t kLargest = std::numeric_limits<std::uint64_t>::max();
  if (last == kLargest) return generator_();
  const std::uint64_t count = last + 1;
  // Numbers of an incomplete last round are drawn again: they would favour the small results.
  const std::uint64_t usable = kLargest - kLargest % count;
  std::uint64_t drawn = generator_();
  while (drawn >= usable) drawn = generator_();
  return drawn % count;
}

Time Random::between(const Range<Time>& range) {
  if (range.max <= range.min) return range.min;
  return range.min + Time(upTo(static_cast<std::uint64_t>((range.max - range.min).count())));
}

int Random::between(const Range<int>& range) {
  if (range.max <= range.min) return range.min;
  const auto span = std::int64_t{range.max} - range.min;
  return static_cast<int>(range.min +
                          static_cast<std::int64_t>(upTo(static_cast<std::uint64_t>(span))));
}

std::size_t Random::between(const Range<std::size_t>& range) {
  if (range.max <= range.min) return range.min;
  return range.min + static_cast<std::size_t>(upTo(range.max - range.min));
}

}  // namespace kestrin::simulated
