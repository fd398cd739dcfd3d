// The main thread as the radio uses it: the library's run loop for what comes later, and the way
// there for what other threads ask.
//
// Threads: `submit` and `post` from any; the rest on the main thread.
//
// Lifetime: shared by everything of one radio. The run loop is held weakly; without it what comes
// later does not come.
//
// Errors: none.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "KestrinBLESDK/platform/RunLoop.h"

namespace kestrin::corebluetooth {

class MainThread : public std::enable_shared_from_this<MainThread> {
 public:
  explicit MainThread(std::weak_ptr<RunLoop> mainRunLoop) : mainRunLoop_(std::move(mainRunLoop)) {}

  /// Whether the run loop is still there: without it no request is carried out.
  [[nodiscard]] bool hasLoop() const { return !mainRunLoop_.expired(); }
  void post(std::function<void()> task) const;
  void later(Time delay, std::function<void()> task) const;
  /// Carries out a request at once on the main thread, behind those of other threads; there soon
  /// from any other.
  void submit(std::function<void()> request);
  /// Carries out what other threads have asked so far.
  void carryOutSubmitted();

 private:
  const std::weak_ptr<RunLoop> mainRunLoop_;
  std::mutex mutex_;
  std::vector<std::function<void()>> submitted_;
};

}  // namespace kestrin::corebluetooth
