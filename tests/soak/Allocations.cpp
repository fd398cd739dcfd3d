#include "soak/Allocations.h"

#include <malloc.h>

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<std::size_t> allocated{0};

void* allocate(std::size_t size) {
  void* const memory = std::malloc(size == 0 ? 1 : size);
  if (memory == nullptr) throw std::bad_alloc();
  allocated += malloc_usable_size(memory);
  return memory;
}

void release(void* memory) noexcept {
  if (memory == nullptr) return;
  allocated -= malloc_usable_size(memory);
  std::free(memory);
}

}  // namespace

std::size_t kestrin::test::allocatedBytes() noexcept { return allocated; }

// The forms for arrays and without exceptions call these two.
void* operator new(std::size_t size) { return allocate(size); }
void operator delete(void* memory) noexcept { release(memory); }
void operator delete(void* memory, std::size_t) noexcept { release(memory); }
