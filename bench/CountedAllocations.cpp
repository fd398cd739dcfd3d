#include "CountedAllocations.h"

#include <malloc.h>

#include <cstdlib>
#include <new>

namespace {

std::uint64_t count = 0;
std::size_t live = 0;

void release(void* memory) noexcept {
  live -= malloc_usable_size(memory);
  std::free(memory);
}

}  // namespace

// The forms for arrays and without exceptions call these.
void* operator new(std::size_t size) {
  void* const memory = std::malloc(size == 0 ? 1 : size);
  if (memory == nullptr) throw std::bad_alloc();
  ++count;
  live += malloc_usable_size(memory);
  return memory;
}
void operator delete(void* memory) noexcept { release(memory); }
void operator delete(void* memory, std::size_t /*size*/) noexcept { release(memory); }

namespace kestrin::bench {

std::uint64_t allocations() noexcept { return count; }
std::size_t liveBytes() noexcept { return live; }

}  // namespace kestrin::bench
