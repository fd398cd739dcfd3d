// The login service, and the delay lock that is held on the machine's sleep.
//
// Threads: the watch's own thread, except for the constructor.
// Lifetime: started, run and stopped by that thread.
// Errors: what keeps the sleep from being watched is told once.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "Bus.h"
#include "BusLibrary.h"

namespace kestrin::bluez {

/// What the core has to tell, on its thread.
struct SleepListener {
  std::function<void()> sleeps;
  std::function<void()> wakes;
  std::function<void(const std::string&)> trouble;
};

class SleepCore {
 public:
  /// How long a sleep is held up at most.
  static constexpr Time kLongestDelay = std::chrono::seconds(3);

  SleepCore(BusThread& thread, std::optional<std::string> busAddress, SleepListener listener);

  void start();
  void stop();
  /// Lets the machine sleep.
  void release();

 private:
  void tell(const std::string& why);
  void askForService();
  void askForLongestDelay();
  void inhibit();
  void serviceChanged(sdbus::Message& message);
  void prepareForSleep(sdbus::Message& message);
  void wakeUp();

  BusThread& thread_;
  const std::optional<std::string> busAddress_;
  const SleepListener listener_;
  Bus bus_;
  std::optional<sdbus::UnixFd> lock_;
  std::optional<TimerQueue::Id> limit_;
  Time longestDelay_ = kLongestDelay;
  bool sleeping_ = false;
  bool told_ = false;
};

}  // namespace kestrin::bluez
