// Which devices are held by a `Reader` of this process: two of them on one device would take each
// other's events.
//
// Threads: any; a listener is called on the thread that gives a claim up, without a lock.
// Lifetime: a claim holds its device until it is dropped. It keeps the device.
// Errors: none.
#pragma once

#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "KestrinBLESDK/platform/CBPeripheral.h"

namespace kestrin::reader {

class Claim final {
 public:
  /// Null when the device is held.
  static std::unique_ptr<Claim> take(const std::shared_ptr<CBPeripheral>& device);
  static bool isHeld(const std::shared_ptr<CBPeripheral>& device);
  /// Every device that is held, in no order.
  static std::vector<std::shared_ptr<CBPeripheral>> held();
  /// Calls `listener` whenever a claim was given up, until the returned token is dropped.
  [[nodiscard]] static std::shared_ptr<void> onRelease(std::function<void()> listener);

  explicit Claim(std::shared_ptr<CBPeripheral> device) : device_(std::move(device)) {}
  ~Claim();
  Claim(const Claim&) = delete;
  Claim& operator=(const Claim&) = delete;

 private:
  const std::shared_ptr<CBPeripheral> device_;
};

}  // namespace kestrin::reader
