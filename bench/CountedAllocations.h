// Counts what this program allocates. A program that links this replaces `operator new`, which
// slows it: nothing is timed in such a program.
//
// Threads: one. Lifetime: the process. Errors: as `operator new`'s own.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kestrin::bench {

/// Allocations so far.
std::uint64_t allocations() noexcept;
/// Bytes that are allocated at this moment, with what the heap rounds them up to.
std::size_t liveBytes() noexcept;

}  // namespace kestrin::bench
