// Which devices are held by a `Reader` of this process: two of them on one device would take each
// other's events.
//
// Threads: any. A listener's task runs on the run loop that it was given with.
// Lifetime: a claim holds its device until it is dropped. It keeps device and radio.
// Errors: none.
#pragma once

#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "KestrinBLESDK/Reader.h"
#include "KestrinBLESDK/platform/CBPeripheral.h"
#include "KestrinBLESDK/platform/Radio.h"
#include "KestrinBLESDK/platform/RunLoop.h"

namespace kestrin::reader {

class Claim final {
 public:
  /// What is held. The texts are those of the moment in which it was taken: other threads may not
  /// ask the device.
  struct Held {
    /// The device itself, not one that records for it.
    std::shared_ptr<CBPeripheral> device;
    /// The radio itself, likewise: identifiers are its own.
    std::shared_ptr<Radio> radio;
    SeenReader reader;
  };

  /// Null when the device is held.
  static std::unique_ptr<Claim> take(const Held& held);
  static bool isHeld(const std::shared_ptr<CBPeripheral>& device);
  /// What is held of a radio's devices, in no order.
  static std::vector<SeenReader> heldOf(const std::shared_ptr<Radio>& radio);
  /// Has `loop` run `task` whenever a claim was given up, until the returned token is dropped. What
  /// the task holds must not matter on other threads.
  [[nodiscard]] static std::shared_ptr<void> onRelease(std::weak_ptr<RunLoop> loop,
                                                       std::function<void()> task);

  explicit Claim(std::shared_ptr<CBPeripheral> device) : device_(std::move(device)) {}
  ~Claim();
  Claim(const Claim&) = delete;
  Claim& operator=(const Claim&) = delete;

 private:
  std::shared_ptr<CBPeripheral> device_;  // Null where another claim holds it.
};

}  // namespace kestrin::reader
