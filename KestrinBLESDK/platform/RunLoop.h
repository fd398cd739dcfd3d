/// \class kestrin::RunLoop
/// The operations that the library and the radios ask of a run loop: delayed requests on an object,
/// timers, and work posted from another thread.
///
/// Threads: every operation may be called from any thread; what was armed or posted runs on the
/// thread that turns the loop, one at a time and in order of due time, ties in order of arming.
///
/// Lifetime: a pending delayed request keeps its target alive. A loop that is destroyed drops what
/// is pending.
///
/// Errors: none; work must not throw.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "KestrinBLESDK/platform/Clock.h"
#include "KestrinBLESDK/platform/Export.h"
#include "KestrinBLESDK/platform/SEL.h"

namespace kestrin {
/// \addtogroup platform
/// @{

class KESTRIN_EXPORT RunLoop {
 public:
  /// What runs in a turn. It must not throw.
  using Task = std::function<void()>;
  /// Names one armed timer; never used again for another.
  using TimerId = std::uint64_t;

  virtual ~RunLoop();
  /// The loop's time. Real time passes always; virtual time stands still within a turn for the
  /// thread that turns the loop, unless that thread sleeps.
  [[nodiscard]] virtual Time now() const = 0;
  /// Runs `task` in a later turn, as soon as may be.
  virtual void post(Task task) = 0;
  /// Runs `task` once, `delay` after `now()` as it is in this call, in a later turn.
  virtual TimerId arm(Time delay, Task task) = 0;
  /// Forgets a timer; harmless when it has run.
  virtual void cancel(TimerId timer) = 0;

  /// `performSelector:withObject:afterDelay:` Runs the operation on `target` once, `seconds`
  /// after this call, in a later turn even when the delay is zero. A null `object` is the absent
  /// argument.
  virtual void performSelector_withObject_afterDelay(std::shared_ptr<void> target,
                                                     const SEL& selector,
                                                     std::shared_ptr<void> object,
                                                     double seconds) = 0;
  /// `cancelPreviousPerformRequestsWithTarget:selector:object:` Drops every pending delayed request
  /// of that operation on that target with that argument.
  virtual void cancelPreviousPerformRequestsWithTarget_selector_object(const void* target,
                                                                       const SEL& selector,
                                                                       const void* object) = 0;
};

/// @}

}  // namespace kestrin
