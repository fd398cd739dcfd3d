/// \file
/// The real radio of Apple's systems: the central role over CoreBluetooth. Plain C++: nothing of
/// Objective-C is needed to use it.
///
/// \code
/// kestrin::corebluetooth::install();  // once, before the first KestrinBleMgr::sharedInstance()
/// \endcode
///
/// Compiled for iOS and contract-tested on Linux; not yet run on a device.
///
/// Threads: everything on the main thread, whose run loop must be running: CoreBluetooth reports on
/// the main queue.
///
/// Lifetime: a radio lives as long as someone holds it or one of its central managers.
///
/// Errors: none is thrown. Where Bluetooth cannot be used, `Radio::stateReason` says what to do.
/// What CoreBluetooth refuses by an exception is a line in the log.
#pragma once

#include <memory>

#include "KestrinBLESDK/platform/Export.h"
#include "KestrinBLESDK/platform/NSLog.h"
#include "KestrinBLESDK/platform/Radio.h"
#include "KestrinBLESDK/platform/RunLoop.h"

namespace kestrin::corebluetooth {
/// \addtogroup corebluetooth
/// @{

/// How the radio uses CoreBluetooth.
struct Options {
  /// Whether the system asks the user to switch Bluetooth on when a central manager is made while
  /// it is off. A manager makes one for each scan.
  bool showsPowerAlert = false;
};

/// A radio that reports on `mainRunLoop`, which the main thread must turn. When that loop has ended
/// its events go nowhere.
KESTRIN_EXPORT std::shared_ptr<Radio> makeRadio(std::weak_ptr<RunLoop> mainRunLoop,
                                                Options options = {});

/// Makes such a radio, on `MainRunLoop::main()`, the one that `Platform::systemDefault()` uses, and
/// has the application's main run loop host that loop, see `hostMainRunLoop`.
KESTRIN_EXPORT void install(Options options = {});

/// From now on the main queue turns `MainRunLoop::main()` whenever it has something to do, in all
/// common modes of the application's main run loop: also while a user scrolls. Do not turn it
/// otherwise. Asked for again it does nothing.
KESTRIN_EXPORT void hostMainRunLoop();

/// The system's log, as Foundation's `NSLog` writes it, for `Platform::log` or `setDefaultLogSink`.
KESTRIN_EXPORT std::shared_ptr<NSLogSink> systemLog();

/// @}

}  // namespace kestrin::corebluetooth
