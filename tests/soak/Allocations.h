// How much memory the whole process has from `new` at this moment. A program that links this has
// its own `operator new`.
//
// Threads: any. Errors: none.
#pragma once

#include <cstddef>

namespace kestrin::test {

/// Bytes that have been allocated and not been given back.
std::size_t allocatedBytes() noexcept;

}  // namespace kestrin::test
