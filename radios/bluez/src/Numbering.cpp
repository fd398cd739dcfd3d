#include "Numbering.h"

#include <atomic>

namespace kestrin::bluez {

std::uint64_t nextId() noexcept {
  static std::atomic<std::uint64_t> last = 0;
  return ++last;
}

}  // namespace kestrin::bluez
