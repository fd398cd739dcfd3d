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
    throw std::runtime_error("/proc/self/statm can not be read");
  }
  return resident * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
}

}  // namespace

Holdings holdings() {
  return {// The one that the folder is read through does not count.
          .descriptors = entries("/proc/self/fd") - 1,
          .threads = entries("/proc/self/task"),
          .allocated = ::mallinfo2().uordblks,
          .resident = residentBytes()};
}

}  // namespace kestrin::stress
