/// \struct kestrin::Platform
/// Everything that a manager asks of the system it runs on, as one group that is handed to it at
/// creation. The system's own group is `Platform::systemDefault()`; the simulated radio offers one
/// with virtual readers and, if wanted, virtual time.
///
/// Threads: `systemDefault` and `installRadio` from any thread.
///
/// Lifetime: a manager shares what is in its platform, except for the run loop, which belongs to
/// whoever turns it: a pending delayed request keeps its manager, so a manager that kept its loop
/// would never end. Without its loop a manager can still be asked anything, but nothing delayed
/// runs.
///
/// Errors: none; a member left empty is filled from the system's default.
#pragma once

#include <memory>

#include "KestrinBLESDK/platform/Dispatch.h"
#include "KestrinBLESDK/platform/Export.h"
#include "KestrinBLESDK/platform/MainRunLoop.h"
#include "KestrinBLESDK/platform/NSLog.h"
#include "KestrinBLESDK/platform/NSNotificationCenter.h"
#include "KestrinBLESDK/platform/NSThread.h"
#include "KestrinBLESDK/platform/Radio.h"
#include "KestrinBLESDK/platform/RunLoop.h"

namespace kestrin {
/// \addtogroup platform
/// @{

struct KESTRIN_EXPORT Platform {
  /// Makes the central manager of each scan.
  std::shared_ptr<Radio> radio;
  /// Runs the delayed requests, and every event of the radio.
  std::weak_ptr<RunLoop> mainRunLoop;
  /// Sleeps the 0.05 s after each full slice of a frame.
  std::shared_ptr<NSThread> thread;
  /// Tells that the application has entered the background.
  std::shared_ptr<NSNotificationCenter> notificationCenter;
  /// The queue that frames are delivered on.
  std::shared_ptr<Dispatch> dispatch;
  /// Gets the log lines.
  std::shared_ptr<NSLogSink> log;

  /// Real time on `MainRunLoop::main()`, the default notification centre and log, and the installed
  /// radio. Until one is installed, every central manager reports the state unsupported.
  static Platform systemDefault();
  /// Makes `radio` the one that `systemDefault()` uses; a radio library calls it for the
  /// application, for example `kestrin::bluez::install()`. Central managers made before keep
  /// theirs.
  static void installRadio(std::shared_ptr<Radio> radio);
  /// This platform with every empty member taken from the system's default.
  [[nodiscard]] Platform completed() const;
};

/// @}

}  // namespace kestrin
