// What the central managers of one radio share: its state, its devices, its time and its dice.
//
// Threads: on the main run loop, except for `submit` and `state`, which may be called from any
// thread.
// Lifetime: held by the radio and by each of its central managers. It holds its devices, and weakly
// the central managers and the run loop. What it leaves with the loop holds nothing for long.
// Errors: none.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "KestrinBLESDK/platform/CBCentralManager.h"
#include "KestrinBLESDK/platform/RunLoop.h"
#include "Random.h"
#include "kestrin/simulated/Options.h"

namespace kestrin::simulated {

class CentralManager;
class Device;

/// Names one central manager for the length of its radio's life.
using CentralId = std::uint64_t;

class RadioCore : public std::enable_shared_from_this<RadioCore> {
 public:
  using DeviceTask = std::function<void(RadioCore&, Device&)>;

  RadioCore(std::weak_ptr<RunLoop> mainRunLoop, const Options& options);

  [[nodiscard]] const Options& options() const noexcept { return options_; }
  [[nodiscard]] Random& random() noexcept { return random_; }
  [[nodiscard]] std::shared_ptr<RunLoop> mainRunLoop() const { return mainRunLoop_.lock(); }
  [[nodiscard]] Time now() const;

  /// Runs `task` in a later turn.
  void post(std::function<void()> task);
  /// Runs `task` after `delay`, in a later turn, if this radio and `device` are still there.
  void later(Time delay, const std::shared_ptr<Device>& device, DeviceTask task);

  /// Leaves a request to be carried out on the main run loop, in the order of submission. It must
  /// not call out.
  void submit(std::function<void()> request);
  /// Carries out what has been submitted so far, so that a request made after it cannot overtake
  /// it.
  void carryOutSubmitted();

  [[nodiscard]] CBManagerState state() const noexcept { return state_.load(); }
  [[nodiscard]] bool isPoweredOn() const noexcept { return state() == CBManagerState::poweredOn; }
  /// How often the state has changed.
  [[nodiscard]] std::uint64_t stateChanges() const noexcept { return stateChanges_; }
  void setState(CBManagerState state);

  CentralId nextCentralId() noexcept { return ++lastCentralId_; }
  void addCentral(const std::shared_ptr<CentralManager>& central);
  /// Ends what a central manager that is going away still holds.
  void letGo(CentralId central);
  /// The central managers that are still there.
  [[nodiscard]] std::vector<std::shared_ptr<CentralManager>> centrals();

  /// An address for a further device, a static random one (Bluetooth Core, Vol 6, Part B, 1.3.2.1).
  [[nodiscard]] std::string nextAddress() const;
  void addDevice(std::shared_ptr<Device> device);
  /// The device can be heard, or something about it has changed: every running scan hears it.
  void announce(Device& device);
  [[nodiscard]] const std::vector<std::shared_ptr<Device>>& devices() const noexcept {
    return devices_;
  }

 private:
  const Options options_;
  const std::weak_ptr<RunLoop> mainRunLoop_;
  Random random_;
  std::atomic<CBManagerState> state_;
  std::uint64_t stateChanges_ = 0;
  CentralId lastCentralId_ = 0;
  std::vector<std::weak_ptr<CentralManager>> centrals_;
  std::vector<std::shared_ptr<Device>> devices_;
  std::mutex submittedMutex_;
  std::vector<std::function<void()>> submitted_;
};

}  // namespace kestrin::simulated
