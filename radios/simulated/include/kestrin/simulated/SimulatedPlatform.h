/// \class kestrin::simulated::SimulatedPlatform
/// A whole platform around a simulated radio: a run loop in real or virtual time, a notification
/// centre of its own, and a log.
///
/// \code
/// SimulatedPlatform simulated({.virtualTime = true});
/// simulated.radio().addReader("KVR-1", ReaderFamily::standard);
/// auto manager = kestrin::KestrinBleMgr::init(simulated.platform());
/// manager->scanBLE();
/// simulated.runLoop().runFor(std::chrono::seconds(5));
/// \endcode
///
/// Threads: on the thread that turns the run loop; `MainRunLoop.h` says what any thread may do.
///
/// Lifetime: a manager shares the radio and the centre, but not the loop: once this platform has
/// ended nothing happens any more.
///
/// Errors: none.
#pragma once

#include <memory>

#include "KestrinBLESDK/platform/Export.h"
#include "KestrinBLESDK/platform/MainRunLoop.h"
#include "KestrinBLESDK/platform/NSNotificationCenter.h"
#include "KestrinBLESDK/platform/Platform.h"
#include "kestrin/simulated/Options.h"
#include "kestrin/simulated/SimulatedRadio.h"
#include "kestrin/simulated/VirtualClock.h"

namespace kestrin::simulated {
/// \addtogroup simulated
/// @{

class KESTRIN_EXPORT SimulatedPlatform {
 public:
  /// A platform whose radio and time are as `options` say, with no reader in range.
  explicit SimulatedPlatform(const Options& options = {});
  ~SimulatedPlatform();
  SimulatedPlatform(const SimulatedPlatform&) = delete;
  SimulatedPlatform& operator=(const SimulatedPlatform&) = delete;

  /// The group to hand to a manager.
  [[nodiscard]] Platform platform() const;
  /// The run loop that everything happens on.
  [[nodiscard]] MainRunLoop& runLoop() const noexcept { return *runLoop_; }
  /// The radio, to put readers in range of.
  [[nodiscard]] SimulatedRadio& radio() const noexcept { return *radio_; }
  /// Where to post that the application has entered the background.
  [[nodiscard]] NSNotificationCenter& notificationCenter() const noexcept {
    return *notificationCenter_;
  }

 private:
  const std::shared_ptr<MainRunLoop> runLoop_;
  const std::shared_ptr<SimulatedRadio> radio_;
  const std::shared_ptr<NSNotificationCenter> notificationCenter_;
  const std::shared_ptr<NSLogSink> log_;
};

/// Makes a simulated radio the one that `Platform::systemDefault()` uses, in real time on
/// `MainRunLoop::main()`; of the options those about platforms are not looked at. Once, before the
/// first `KestrinBleMgr::sharedInstance()`.
KESTRIN_EXPORT std::shared_ptr<SimulatedRadio> install(const Options& options = {});

/// @}

}  // namespace kestrin::simulated
