// What the run loop's tests share: a loop in virtual time, a list of what ran, and a clock whose
// time passes with every look at it.
//
// Threads: the test's. Lifetime: each test has its own loop. Errors: none.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "KestrinBLESDK/platform/MainRunLoop.h"
#include "kestrin/simulated/VirtualClock.h"

namespace kestrin::test {

using namespace std::chrono_literals;
using Names = std::vector<std::string>;

class RunLoopTest : public ::testing::Test {
 protected:
  /// A task that writes `name`.
  RunLoop::Task writing(std::string name) {
    return [this, written = std::move(name)] { ran.push_back(written); };
  }

  const std::shared_ptr<simulated::VirtualClock> clock =
      std::make_shared<simulated::VirtualClock>();
  const std::shared_ptr<MainRunLoop> loop = std::make_shared<MainRunLoop>(clock);
  Names ran;
};

/// This one passes whatever the loop does: by a millisecond with every look. As real time does, or
/// as virtual time would that somebody else moves on.
class TickingClock final : public Clock {
 public:
  explicit TickingClock(bool passesByItself = true) : passesByItself_(passesByItself) {}
  [[nodiscard]] Time now() const override { return Time(1ms) * ++looks_; }
  void sleepFor(Time duration) override { looks_ += duration / Time(1ms); }
  [[nodiscard]] bool passesByItself() const noexcept override { return passesByItself_; }
  void wait(std::condition_variable& wakeUp, std::unique_lock<std::mutex>& lock,
            std::optional<Time> deadline) override {
    if (!deadline) {
      wakeUp.wait(lock);
    } else if (*deadline > Time(1ms) * looks_.load()) {
      looks_ = *deadline / Time(1ms);
    }
  }

 private:
  const bool passesByItself_;
  mutable std::atomic<std::int64_t> looks_ = 0;
};

}  // namespace kestrin::test
