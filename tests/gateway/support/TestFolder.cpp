#include "gateway/support/TestFolder.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <system_error>

namespace kestrin::gateway {

TestFolder::TestFolder()
    : path_(std::filesystem::temp_directory_path() / "kestrin-gateway-XXXXXX") {
  if (::mkdtemp(path_.data()) == nullptr) {
    throw std::filesystem::filesystem_error("no folder for a test", path_,
                                            std::make_error_code(std::errc::io_error));
  }
}

TestFolder::~TestFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string TestFolder::write(const std::string& name, const std::string& text) const {
  std::ofstream stream(pathOf(name), std::ios::binary | std::ios::trunc);
  stream.exceptions(std::ios::failbit | std::ios::badbit);
  stream << text << std::flush;
  return pathOf(name);
}

}  // namespace kestrin::gateway
