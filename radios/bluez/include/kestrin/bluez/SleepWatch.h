/// \file
/// The machine's sleep, told to the library as what it is to a link: an application that enters the
/// background. A machine that sleeps cannot hold up its end of a link, and a reader would wait for
/// it; so every manager closes its link before.
///
/// \code
/// const auto sleep = kestrin::bluez::watchSleep(Platform::systemDefault());  // and keep it
/// \endcode
///
/// When the login service (logind) announces a sleep, this posts
/// `UIApplicationDidEnterBackgroundNotification` on the main run loop. It holds the sleep up with a
/// delay lock until the links are down, for at most three seconds or what the service grants, and
/// takes a new lock after each wake-up. Managers do not link up again by themselves, see
/// `afterWake`.
///
/// Threads: made and dropped on the thread that turns the main run loop, where everything is called
/// that the options hold. A thread of its own listens to the message bus.
///
/// Lifetime: nothing is called after the drop; a lock that is held is released.
///
/// Errors: none is thrown. Without a message bus or a login service one line in the log says so,
/// and nothing else happens.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "KestrinBLESDK/platform/Export.h"
#include "KestrinBLESDK/platform/Platform.h"

namespace kestrin::bluez {
/// \addtogroup bluez
/// @{

/// What to do around a sleep. Everything may be left out.
struct SleepOptions {
  /// Called before the notification is posted.
  std::function<void()> beforeSleep{};
  /// Whether everything is down that has to be before the machine sleeps; asked again and again
  /// after the notification. Absent: a second is taken for enough.
  std::function<bool()> isDown{};
  /// Called when the machine is awake again: the moment to scan or to connect.
  std::function<void()> afterWake{};
  /// The address of the message bus. Absent: the system bus.
  std::optional<std::string> busAddress{};
};

/// Watches for as long as it is held.
class KESTRIN_EXPORT SleepWatch {
 public:
  virtual ~SleepWatch();
};

/// Watches until the answer is dropped. The platform's run loop, notification centre and log are
/// used; what it leaves empty is the system's.
KESTRIN_EXPORT std::shared_ptr<SleepWatch> watchSleep(const Platform& platform,
                                                      SleepOptions options = {});

/// @}

}  // namespace kestrin::bluez
