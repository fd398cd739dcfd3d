#include "realstack/StressProbeFigures.h"

#include <malloc.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace kestrin::stress {
namespace {

std::size_t entries(const char* folder) {
  return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(folder), {}));
}

std::size_t residentBytes() {
  std::size_t whole = 0;
  std::size_t resident = 0;
  if (!(std::ifstream("/proc/self/statm") >> whole >> resident)) {
    throw std::runtime_error("/proc/self/statm cannot be read");
  }
  return resident * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
}

}  // namespace

Holdings holdings() {
  const auto memory = ::mallinfo2();
  return {// The one that the folder is read through does not count.
          .descriptors = entries("/proc/self/fd") - 1,
          .threads = entries("/proc/self/task"),
          // A large block has a mapping of its own, until the release of one makes the allocator
          // put the next of that size among the others: only both figures together stay the same.
          .allocated = memory.uordblks + memory.hblkhd,
          .resident = residentBytes()};
}

}  // namespace kestrin::stress
