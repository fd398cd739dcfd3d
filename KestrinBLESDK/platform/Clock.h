/// \class kestrin::Clock
/// Time for a run loop: where it comes from and how to wait for it. Real and virtual time differ
/// here and nowhere else.
///
/// Threads: all operations from any thread.
///
/// Lifetime: shared by the loops that read it.
///
/// Errors: none.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>

#include "KestrinBLESDK/platform/Export.h"

namespace kestrin {
/// \addtogroup platform
/// @{

/// A point in time or a span of it, in nanoseconds. Points count from the clock's own beginning.
using Time = std::chrono::nanoseconds;

/// `point` and `span` after it. What is too long to count, either way, is the furthest time there
/// is.
constexpr Time timeAfter(Time point, Time span) noexcept {
  if (span > Time::zero() && point > Time::max() - span) return Time::max();
  if (span < Time::zero() && point < Time::min() - span) return Time::min();
  return point + span;
}

/// Seconds as a `Time`, rounded to the nearest nanosecond. What is not a positive number is zero;
/// what is too long to count is a hundred years.
KESTRIN_EXPORT Time timeFromSeconds(double seconds) noexcept;

class KESTRIN_EXPORT Clock {
 public:
  virtual ~Clock();
  /// The current time; never goes back.
  [[nodiscard]] virtual Time now() const = 0;
  /// Blocks the calling thread for `duration`.
  virtual void sleepFor(Time duration) = 0;
  /// Whether time goes on while nobody waits for it; false for virtual time.
  [[nodiscard]] virtual bool passesByItself() const noexcept = 0;
  /// Waits until `deadline`, or without end when it is absent, or until `wakeUp` is notified.
  /// `lock` is held by the caller and on return. Virtual time is moved on to `deadline` instead.
  virtual void wait(std::condition_variable& wakeUp, std::unique_lock<std::mutex>& lock,
                    std::optional<Time> deadline) = 0;
};

/// Real time, by the system's monotonic clock. On Linux it stands still while the machine is
/// suspended: a delay of 2 s that a suspend of an hour interrupts ends 2 s of running time after it
/// was armed.
class KESTRIN_EXPORT MonotonicClock final : public Clock {
 public:
  [[nodiscard]] Time now() const override;
  void sleepFor(Time duration) override;
  [[nodiscard]] bool passesByItself() const noexcept override { return true; }
  void wait(std::condition_variable& wakeUp, std::unique_lock<std::mutex>& lock,
            std::optional<Time> deadline) override;
};

/// @}

}  // namespace kestrin
