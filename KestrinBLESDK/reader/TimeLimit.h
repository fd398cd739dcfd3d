// A limit that does not run while its owner is away.
//
// Threads: the main run loop's.
// Lifetime: belongs to an object that `passed` holds weakly. Errors: none.
#pragma once

#include <functional>
#include <memory>
#include <optional>

#include "KestrinBLESDK/platform/RunLoop.h"

namespace kestrin::reader {

class TimeLimit final {
 public:
  explicit TimeLimit(std::weak_ptr<RunLoop> loop) : loop_(std::move(loop)) {}
  ~TimeLimit() { stop(); }
  TimeLimit(const TimeLimit&) = delete;
  TimeLimit& operator=(const TimeLimit&) = delete;

  /// Calls `passed` after `span`, unless stopped before.
  void start(Time span, std::function<void()> passed);
  void stop();
  [[nodiscard]] bool isRunning() const noexcept { return passed_ != nullptr; }
  void suspend();
  void resume();

 private:
  void arm();

  const std::weak_ptr<RunLoop> loop_;
  std::shared_ptr<const std::function<void()>> passed_;
  Time left_{};
  Time armedAt_{};
  std::optional<RunLoop::TimerId> timer_;
};

}  // namespace kestrin::reader
