// Reports that something in a folder may have changed, so that nobody has to look all the time.
//
// Threads: one, which turns the loop. Lifetime: drop it before the loop.
// Errors: none; where the system has no watch to give, nothing is reported.
#pragma once

#include <KestrinBLESDK/platform/MainRunLoop.h>

#include <functional>
#include <optional>
#include <string>

namespace kestrin::gateway {

class FolderWatch {
 public:
  FolderWatch(MainRunLoop& loop, std::function<void()> onChange);
  ~FolderWatch();
  FolderWatch(const FolderWatch&) = delete;
  FolderWatch& operator=(const FolderWatch&) = delete;

  /// What has this name now; again where another one may have taken the name.
  void watch(const std::string& folder) const;

 private:
  void take() const;

  MainRunLoop& loop_;
  const std::function<void()> onChange_;
  int descriptor_ = -1;
  std::optional<MainRunLoop::WatchId> watch_;
};

}  // namespace kestrin::gateway
