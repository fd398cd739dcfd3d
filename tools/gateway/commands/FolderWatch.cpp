#include "tools/gateway/commands/FolderWatch.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <utility>

namespace kestrin::gateway {

FolderWatch::FolderWatch(MainRunLoop& loop, std::function<void()> onChange)
    : loop_(loop),
      onChange_(std::move(onChange)),
      descriptor_(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
  if (descriptor_ < 0) return;
  watch_ = loop_.watch(descriptor_, Readiness::readable, [this](Readiness) { take(); });
}

FolderWatch::~FolderWatch() {
  if (watch_) loop_.unwatch(*watch_);
  if (descriptor_ >= 0) ::close(descriptor_);
}

void FolderWatch::watch(const std::string& folder) const {
  if (descriptor_ < 0) return;
  ::inotify_add_watch(descriptor_, folder.c_str(), IN_MODIFY | IN_MOVED_TO | IN_ONLYDIR);
}

void FolderWatch::take() const {
  // Which file it was says nothing that a look does not.
  std::array<char, 4096> events{};
  while (::read(descriptor_, events.data(), events.size()) > 0) {
  }
  onChange_();
}

}  // namespace kestrin::gateway
