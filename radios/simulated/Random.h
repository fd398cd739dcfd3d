// Everything left to chance, from one seed and the same on every system: the generator is fixed by
// the C++ standard, its distributions are not, so these are written here.
//
// Threads: one at a time. Lifetime: a value. Errors: none.
#pragma once

#include <cstddef>
#include <cstdint>
#include <random>

#include "KestrinBLESDK/platform/Clock.h"
#include "kestrin/simulated/Options.h"

namespace kestrin::simulated {

class Random {
 public:
  explicit Random(std::uint64_t seed) : generator_(seed) {}

  /// A number from 0 to `last`, each as likely as every other.
  std::uint64_t upTo(std::uint64_t last);
  Time between(const Range<Time>& range);
  int between(const Range<int>& range);
  std::size_t between(const Range<std::size_t>& range);

 private:
  std::mt19937_64 generator_;
};

}  // namespace kestrin::simulated
