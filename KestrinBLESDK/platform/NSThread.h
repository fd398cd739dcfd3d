/// \class kestrin::NSThread
/// Blocking the calling thread, which is the write path's only flow control.
///
/// Threads: from any thread.
///
/// Lifetime: shared.
///
/// Errors: none.
#pragma once

#include <memory>

#include "KestrinBLESDK/platform/Export.h"

namespace kestrin {
/// \addtogroup platform
/// @{

class MainRunLoop;

class KESTRIN_EXPORT NSThread {
 public:
  virtual ~NSThread();
  /// `sleepForTimeInterval:` Blocks the calling thread for `seconds`; not at all when that is no
  /// positive number.
  virtual void sleepForTimeInterval(double seconds) = 0;
};

/// Sleeps by the loop's clock, so that virtual time passes too, also within a turn when the loop's
/// own thread sleeps. The loop is held weakly; without it nothing sleeps.
KESTRIN_EXPORT std::shared_ptr<NSThread> sleepOn(std::weak_ptr<MainRunLoop> loop);

/// @}

}  // namespace kestrin
