#include "soak/Allocations.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

std::atomic<std::size_t> allocated{0};

// In front of each block stands its size.
constexpr std::size_t kHeader = alignof(std::max_align_t);

void* allocate(std::size_t size) noexcept {
  auto* const block = static_cast<unsigned char*>(std::malloc(kHeader + size));
  if (block == nullptr) return nullptr;
  std::memcpy(block, &size, sizeof size);
  allocated += size;
  return block + kHeader;
}

void release(void* memory) noexcept {
  if (memory == nullptr) return;
  unsigned char* const block = static_cast<unsigned char*>(memory) - kHeader;
  std::size_t size = 0;
  std::memcpy(&size, block, sizeof size);
  allocated -= size;
  std::free(block);
}

}  // namespace

std::size_t kestrin::test::allocatedBytes() noexcept { return allocated; }

// The forms for arrays call these. The one without exceptions does so in the C++ library, but not
// in a sanitizer's, which allocates by itself what is then released here.
void* operator new(std::size_t size) {
  void* const memory = allocate(size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return allocate(size); }
void operator delete(void* memory) noexcept { release(memory); }
void operator delete(void* memory, std::size_t) noexcept { release(memory); }
