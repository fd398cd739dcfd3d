// The signals by which a supervisor or a terminal steers the program, as tasks on its run loop.
//
// SIGTERM and SIGINT ask for the end, SIGHUP for another look at the configuration. A second
// SIGTERM or SIGINT ends the process at once.
//
// Threads: made before any other thread is started (a thread that does not block the signals would
// be killed by them), on the thread that turns the loop; the handlers are called there.
// Lifetime: drop it before the loop; from then on the signals act as before.
// Errors: `isWatching` is false when the system has no descriptor left.
#pragma once

#include <KestrinBLESDK/platform/MainRunLoop.h>

#include <csignal>
#include <functional>
#include <optional>

namespace kestrin::gateway {

class Signals {
 public:
  struct Handlers {
    std::function<void()> end{};
    /// Absent: SIGHUP asks for the end.
    std::function<void()> reload{};
  };
  Signals(MainRunLoop& loop, Handlers handlers);
  ~Signals();
  Signals(const Signals&) = delete;
  Signals& operator=(const Signals&) = delete;

  [[nodiscard]] bool isWatching() const noexcept { return watch_.has_value(); }

 private:
  void take();
  void take(int number);

  MainRunLoop& loop_;
  const Handlers handlers_;
  sigset_t before_{};
  int descriptor_ = -1;
  bool ending_ = false;
  std::optional<MainRunLoop::WatchId> watch_;
};

}  // namespace kestrin::gateway
