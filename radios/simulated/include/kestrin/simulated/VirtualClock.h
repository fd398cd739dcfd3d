/// \class kestrin::simulated::VirtualClock
/// Time that passes only when somebody waits for it: a run loop with this clock does hours of
/// waiting at once and the same way every time.
///
/// \code
/// auto loop = std::make_shared<kestrin::MainRunLoop>(std::make_shared<VirtualClock>());
/// \endcode
///
/// Threads: all operations from any thread.
///
/// Lifetime: shared by the loops that read it.
///
/// Errors: none.
#pragma once

#include <condition_variable>
#include <mutex>
#include <optional>

#include "KestrinBLESDK/platform/Clock.h"
#include "KestrinBLESDK/platform/Export.h"

namespace kestrin::simulated {
/// \addtogroup simulated
/// @{

class KESTRIN_EXPORT VirtualClock final : public Clock {
 public:
  /// Zero at first.
  [[nodiscard]] Time now() const override;
  /// Moves the clock on by `duration` and returns at once.
  void sleepFor(Time duration) override;
  [[nodiscard]] bool passesByItself() const noexcept override { return false; }
  /// Moves the clock on to `deadline`; waits for `wakeUp` when that is absent.
  void wait(std::condition_variable& wakeUp, std::unique_lock<std::mutex>& lock,
            std::optional<Time> deadline) override;

 private:
  mutable std::mutex mutex_;
  Time now_{};
};

/// @}

}  // namespace kestrin::simulated
