/// \file
/// The real radio on Linux: the central role over the Bluetooth daemon (BlueZ) on the message bus.
///
/// \code
/// kestrin::bluez::install();  // once, before the first KestrinBleMgr::sharedInstance()
/// \endcode
///
/// Threads: `makeRadio` and `install` from any thread. A radio has a thread of its own for the bus
/// and reports every event on the main run loop.
///
/// Lifetime: a radio lives as long as someone holds it or one of its central managers. The last
/// release waits for what was asked of it before to be handed to the daemon, two seconds at most.
///
/// Errors: none is thrown. Without a bus, a daemon or an adapter the radio reports the state
/// unsupported and `Radio::stateReason` says what to do.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "KestrinBLESDK/platform/Export.h"
#include "KestrinBLESDK/platform/Radio.h"
#include "KestrinBLESDK/platform/RunLoop.h"

namespace kestrin::bluez {
/// \addtogroup bluez
/// @{

/// Which adapter on which bus.
struct Options {
  /// The adapter by its name, for example `hci0`. Absent: the first that is powered, else the
  /// first.
  std::optional<std::string> adapter;
  /// The address of the message bus, for example `unix:path=/run/dbus/system_bus_socket`. Absent:
  /// the system bus.
  std::optional<std::string> busAddress;
  /// A file in which the radio keeps, for as long as a link lasts, the name under which the reader
  /// advertised. A process that is killed leaves its links up at the daemon, and over a link the
  /// daemon knows a reader by the name in its own attributes only. The next radio that is made with
  /// this file reports such a reader under the name that was advertised. All radios of a process on
  /// one bus share the file that was named first; programs that run beside each other take one
  /// each. A file that cannot be read or written is as good as none. Absent: no name is kept.
  std::optional<std::string> linkNames{};
};

/// A radio that reports on `mainRunLoop`. When that loop has ended its events go nowhere.
KESTRIN_EXPORT std::shared_ptr<Radio> makeRadio(std::weak_ptr<RunLoop> mainRunLoop,
                                                Options options = {});

/// Makes such a radio, on `MainRunLoop::main()`, the one that `Platform::systemDefault()` uses.
KESTRIN_EXPORT void install(Options options = {});

/// @}

}  // namespace kestrin::bluez
