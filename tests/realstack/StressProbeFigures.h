// What this process holds, as the system tells it.
//
// Threads: any. Errors: `std::runtime_error` when the system does not tell.
#pragma once

#include <cstddef>

namespace kestrin::stress {

struct Holdings {
  std::size_t descriptors = 0;
  std::size_t threads = 0;
  /// Bytes that are allocated, in all libraries.
  std::size_t allocated = 0;
  /// Bytes of memory that the process occupies.
  std::size_t resident = 0;
};

Holdings holdings();

}  // namespace kestrin::stress
