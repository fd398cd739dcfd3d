// The watch on the machine's sleep: its thread, and what it does on the main run loop.
//
// Threads: as SleepWatch. Lifetime: the drop waits for the thread's end.
// Errors: a system without threads or descriptors left gives a watch that does nothing and says so.
#pragma once

#include <memory>
#include <thread>

#include "SleepCore.h"
#include "kestrin/bluez/SleepWatch.h"

namespace kestrin::bluez {

class BusSleepWatch final : public SleepWatch {
 public:
  /// How long is taken for enough when nobody says what is down.
  static constexpr Time kEnough = std::chrono::seconds(1);

  /// The limit on the delay follows `clock`.
  BusSleepWatch(const Platform& platform, SleepOptions options,
                std::shared_ptr<Clock> clock = std::make_shared<MonotonicClock>());
  ~BusSleepWatch() override;
  BusSleepWatch(const BusSleepWatch&) = delete;
  BusSleepWatch& operator=(const BusSleepWatch&) = delete;

 private:
  class OnMainLoop;

  std::shared_ptr<OnMainLoop> onMainLoop_;
  std::shared_ptr<BusThread> thread_;
  std::shared_ptr<SleepCore> core_;
  std::thread runner_;
};

}  // namespace kestrin::bluez
