// What the central managers of one radio share: its devices, its main thread and the state.
//
// Threads: the main thread's; `state` may be read from any. Lifetime: shared by the radio and its
// central managers. Errors: none.
#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <string>

#include "KestrinBLESDK/platform/CBCentralManager.h"
#include "MainThread.h"
#include "Peripheral.h"
#include "kestrin/corebluetooth/CoreBluetooth.h"

namespace kestrin::corebluetooth {

class Core {
 public:
  Core(std::weak_ptr<RunLoop> mainRunLoop, const Options& options)
      : mainThread_(std::make_shared<MainThread>(std::move(mainRunLoop))), options_(options) {}

  [[nodiscard]] MainThread& mainThread() const { return *mainThread_; }
  [[nodiscard]] const Options& options() const { return options_; }
  /// The one object for a device, whichever central manager saw it.
  std::shared_ptr<Peripheral> peripheralOf(::CBPeripheral* device);
  /// The same object for one of this radio; null for any other.
  [[nodiscard]] std::shared_ptr<Peripheral> own(
      const std::shared_ptr<CBPeripheral>& peripheral) const;

  [[nodiscard]] CBManagerState state() const { return state_; }
  void setState(CBManagerState state) { state_ = state; }

 private:
  const std::shared_ptr<MainThread> mainThread_;
  const Options options_;
  std::map<std::string, std::shared_ptr<Peripheral>> peripherals_;
  std::atomic<CBManagerState> state_{CBManagerState::unknown};
};

}  // namespace kestrin::corebluetooth
