#include "tools/gateway/commands/LineFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "tools/gateway/commands/Output.h"

namespace kestrin::gateway {

LineFile::~LineFile() {
  if (descriptor_ >= 0) ::close(descriptor_);
}

std::optional<std::string> LineFile::open(const std::string& path) {
  constexpr mode_t kMode = 0644;
  descriptor_ = ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, kMode);
  if (descriptor_ >= 0) return std::nullopt;
  return path + ": " + std::error_code(errno, std::generic_category()).message();
}

void LineFile::add(const std::string& line) {
  if (descriptor_ >= 0) writeAll(descriptor_, line + "\n");
}

}  // namespace kestrin::gateway
