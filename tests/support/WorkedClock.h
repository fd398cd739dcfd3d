// A clock whose time passes by itself, as real time does, and only as the test says: it stands
// still unless a task works or a loop waits.
//
// Threads: the test's. Lifetime: shared by the loops that read it.
// Errors: a wait that nothing would end throws.
#pragma once

#include <algorithm>
#include <stdexcept>

#include "KestrinBLESDK/platform/Clock.h"

namespace kestrin::test {

class WorkedClock final : public Clock {
 public:
  [[nodiscard]] Time now() const override { return now_; }
  /// What a task does that takes `duration`.
  void work(Time duration) { now_ += duration; }
  void sleepFor(Time duration) override { work(duration); }
  [[nodiscard]] bool passesByItself() const noexcept override { return true; }
  void wait(std::condition_variable& /*wakeUp*/, std::unique_lock<std::mutex>& /*lock*/,
            std::optional<Time> deadline) override {
    if (!deadline) throw std::logic_error("nothing would ever end this wait");
    now_ = std::max(now_, *deadline);
  }

 private:
  Time now_{};
};

}  // namespace kestrin::test
