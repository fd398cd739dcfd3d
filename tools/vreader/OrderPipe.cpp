#include "tools/vreader/OrderPipe.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "tools/vreader/SystemError.h"

namespace kestrin::vreader {

OrderPipe::~OrderPipe() {
  if (descriptor_ >= 0) ::close(descriptor_);
  if (!pathToRemove_.empty()) ::unlink(pathToRemove_.c_str());
}

std::optional<std::string> OrderPipe::open(const std::string& path) {
  constexpr mode_t kOwnerOnly = 0600;
  if (::mkfifo(path.c_str(), kOwnerOnly) == 0) {
    pathToRemove_ = path;
  } else if (errno != EEXIST) {
    return "cannot make the pipe " + path + ": " + systemErrorText(errno);
  }
  // Open for writing too, so that the pipe does not end when the last writer closes it.
  descriptor_ = ::open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
  if (descriptor_ < 0) return "cannot open the pipe " + path + ": " + systemErrorText(errno);
  struct stat status {};
  if (::fstat(descriptor_, &status) != 0 || !S_ISFIFO(status.st_mode)) {
    return path + " is there and is not a pipe";
  }
  return std::nullopt;
}

std::vector<std::string> OrderPipe::readLines() {
  std::array<char, 4096> buffer{};
  for (;;) {
    const ssize_t size = ::read(descriptor_, buffer.data(), buffer.size());
    if (size <= 0) break;
    waiting_.append(buffer.data(), static_cast<std::size_t>(size));
  }
  std::vector<std::string> lines;
  for (auto end = waiting_.find('\n'); end != std::string::npos; end = waiting_.find('\n')) {
    lines.push_back(waiting_.substr(0, end));
    waiting_.erase(0, end + 1);
  }
  return lines;
}

}  // namespace kestrin::vreader
