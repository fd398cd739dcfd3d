/// \file
/// Once-only execution, and the global work queues with synchronous submission.
///
/// Threads: any thread.
///
/// Lifetime: submitted work is borrowed: it has run when `dispatch_sync` returns.
///
/// Errors: none; work must not throw.
#pragma once

#include <memory>
#include <mutex>
#include <type_traits>
#include <utility>

#include "KestrinBLESDK/platform/Export.h"

namespace kestrin {
/// \addtogroup platform
/// @{

/// `dispatch_once_t` Marks whether the work of a `dispatch_once` is done.
using dispatch_once_t = std::once_flag;

/// `dispatch_once` Runs `work` the first time it is called with `token`; concurrent callers wait
/// until it is done. Apple's headers make a macro of the name: a file that calls this and includes
/// them includes them first.
template <class Work>
void dispatch_once(dispatch_once_t& token, Work&& work) {
  std::call_once(token, std::forward<Work>(work));
}

#ifdef DISPATCH_QUEUE_PRIORITY_HIGH
// Apple's headers make a macro of it, with the same value.
static_assert(DISPATCH_QUEUE_PRIORITY_HIGH == 2);
#else
/// The priority of the queue that frames are delivered on. Write it without `kestrin::` in front:
/// where Apple's headers are included as well, the name is their macro.
inline constexpr long DISPATCH_QUEUE_PRIORITY_HIGH = 2;
#endif

/// A global queue, by its priority.
struct dispatch_queue_t {
  long priority = 0;  ///< Which of the global queues it is.
};

/// A borrowed piece of work: neither copied nor kept.
class WorkReference {
 public:
  /// Refers to `work`, which has to live as long as this is used.
  template <class Work>
  requires(!std::is_same_v<std::remove_cvref_t<Work>, WorkReference>)
      // NOLINTNEXTLINE(google-explicit-constructor): a call site writes the work itself.
      WorkReference(const Work& work)
  noexcept : work_(&work), run_([](const void* w) { (*static_cast<const Work*>(w))(); }) {}
  /// Runs the work on the calling thread.
  void operator()() const { run_(work_); }

 private:
  const void* work_;
  void (*run_)(const void*);
};

/// The global queues. A platform may bring others by overriding the operations.
class KESTRIN_EXPORT Dispatch {
 public:
  virtual ~Dispatch();
  /// The system's own queues, one object for the whole process, which lives as long as it does.
  static const std::shared_ptr<Dispatch>& system();
  /// `dispatch_get_global_queue` The concurrent queue of that priority; `flags` is 0.
  [[nodiscard]] virtual dispatch_queue_t dispatch_get_global_queue(long priority,
                                                                   unsigned long flags) const;
  /// `dispatch_sync` Runs `work` and returns when it has run. It runs on the calling thread: the
  /// caller waits for it in any case, so another thread would add two hand-overs to every frame and
  /// nothing else. Work on a concurrent queue must not count on any particular thread.
  virtual void dispatch_sync(const dispatch_queue_t& queue, WorkReference work) const;
};

/// @}

}  // namespace kestrin
