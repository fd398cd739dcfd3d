/// \class kestrin::NSNotificationCenter
/// Named notifications, delivered at once to every observer of the name.
///
/// Threads: any thread; handlers run on the thread that posts, which for this library's own
/// notification must be the one that turns the main run loop. No lock is held meanwhile.
///
/// Lifetime: observers are held weakly; one that is gone is skipped and forgotten.
///
/// Errors: none.
#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "KestrinBLESDK/platform/Export.h"
#include "KestrinBLESDK/platform/SEL.h"

namespace kestrin {
/// \addtogroup platform
/// @{

/// Posted by an application that leaves the foreground: every manager closes its link on the next
/// turn of the main run loop.
inline constexpr std::string_view UIApplicationDidEnterBackgroundNotification =
    "UIApplicationDidEnterBackgroundNotification";

class KESTRIN_EXPORT NSNotificationCenter {
 public:
  virtual ~NSNotificationCenter();
  /// `defaultCenter` The process-wide centre.
  static const std::shared_ptr<NSNotificationCenter>& defaultCenter();

  /// `addObserver:selector:name:object:` Calls the operation on `observer` for every notification
  /// of that name whose sender is `object`, or from anybody when `object` is null.
  virtual void addObserver_selector_name_object(const std::shared_ptr<void>& observer,
                                                const SEL& selector, std::string_view name,
                                                const std::shared_ptr<void>& object);
  /// `postNotificationName:object:` Tells the observers, in order of registration; `object` is the
  /// sender, null for none, and is handed to the handlers.
  virtual void postNotificationName_object(std::string_view name,
                                           const std::shared_ptr<void>& object = nullptr);

 private:
  struct Observation {
    std::weak_ptr<void> observer;
    SEL selector;
    std::string name;
    const void* sender;
  };
  std::mutex mutex_;
  std::vector<Observation> observations_;
};

/// @}

}  // namespace kestrin
