// One link to a device: what it has shown of the device's attributes, and which answers are still
// to come.
//
// Threads: the main thread's. Lifetime: held by its peripheral while it lasts; its end takes the
// device's delegate away. Errors: what the system never answers is answered at the end, see
// `takeOwed`.
#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "Attributes.h"
#include "KestrinBLESDK/platform/NSError.h"
#include "Strong.h"

@class KestrinPeripheralEvents;

namespace kestrin::corebluetooth {

class DeviceEvents;

/// An answer that is still to come.
struct Owed {
  enum class Kind { services, characteristics, value, notificationState } kind;
  std::shared_ptr<const void> about;  // The service or the characteristic.
  std::function<void(const NSError&)> give;
};

class Link : public std::enable_shared_from_this<Link> {
 public:
  /// Routes the device's events to `owner` until this link's end.
  Link(::CBPeripheral* device, DeviceEvents* owner);
  ~Link() { end(); }
  Link(const Link&) = delete;
  Link& operator=(const Link&) = delete;

  [[nodiscard]] ::CBPeripheral* device() const { return device_.get(); }
  [[nodiscard]] std::optional<std::vector<std::shared_ptr<CBService>>> services() const;
  void takeServices();
  [[nodiscard]] std::shared_ptr<Service> find(::CBService* attribute) const;
  [[nodiscard]] std::shared_ptr<Characteristic> find(::CBCharacteristic* attribute) const;

  /// Whether the system takes requests: not any more once the end was asked for. What is asked then
  /// is answered at the end.
  [[nodiscard]] bool takesRequests() const;
  void owe(Owed owed) { owed_.push_back(std::move(owed)); }
  /// The oldest such answer has come.
  void settle(Owed::Kind kind, const void* about);
  /// No event of the device comes any more. Ended already, it does nothing.
  void end();
  /// The answers that have not come, in the order of the requests.
  std::deque<Owed> takeOwed() { return std::exchange(owed_, {}); }

 private:
  const Strong<::CBPeripheral*> device_;
  const Strong<::KestrinPeripheralEvents*> events_;
  std::optional<std::vector<std::shared_ptr<Service>>> services_;
  std::deque<Owed> owed_;
};

}  // namespace kestrin::corebluetooth
