// The services and characteristics of one link, as the central sees them.
//
// Threads: as CBService.h and CBCharacteristic.h say; everything that changes, changes on the main
// run loop.
// Lifetime: made with their link and owned by it; the application may keep them beyond its end.
// Errors: none.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "KestrinBLESDK/platform/CBCharacteristic.h"
#include "KestrinBLESDK/platform/CBService.h"
#include "kestrin/simulated/GattLayout.h"

namespace kestrin::simulated {

class Link;

class SimulatedCharacteristic final : public CBCharacteristic {
 public:
  SimulatedCharacteristic(const GattCharacteristic& declared, std::weak_ptr<Link> link)
      : uuid_(declared.uuid), properties_(declared.properties), link_(std::move(link)) {}

  [[nodiscard]] CBUUID UUID() const override { return uuid_; }
  [[nodiscard]] CBCharacteristicProperties properties() const override { return properties_; }
  [[nodiscard]] std::optional<NSData> value() const override { return value_; }

  [[nodiscard]] const std::weak_ptr<Link>& link() const noexcept { return link_; }
  [[nodiscard]] bool has(CBCharacteristicProperties anyOf) const noexcept {
    return (properties_ & anyOf) != 0;
  }
  void setValue(NSData value) { value_ = std::move(value); }

  /// Whether it has been found by a discovery.
  bool shown = false;
  /// Whether the device notifies it, by the device's account.
  bool subscribed = false;

 private:
  const CBUUID uuid_;
  const CBCharacteristicProperties properties_;
  const std::weak_ptr<Link> link_;
  std::optional<NSData> value_;
};

class SimulatedService final : public CBService {
 public:
  SimulatedService(const GattService& declared, const std::weak_ptr<Link>& link);

  [[nodiscard]] CBUUID UUID() const override { return uuid_; }
  [[nodiscard]] std::optional<std::vector<std::shared_ptr<CBCharacteristic>>> characteristics()
      const override;
  [[nodiscard]] std::string debugDescription() const override;

  [[nodiscard]] const std::weak_ptr<Link>& link() const noexcept { return link_; }
  /// All there are, found or not, in handle order.
  [[nodiscard]] const std::vector<std::shared_ptr<SimulatedCharacteristic>>& all() const noexcept {
    return all_;
  }
  /// Shows those that were asked for, all when `wanted` is absent.
  void show(const std::optional<std::vector<CBUUID>>& wanted);

  /// Whether it has been found by a discovery.
  bool shown = false;

 private:
  const CBUUID uuid_;
  const std::weak_ptr<Link> link_;
  std::vector<std::shared_ptr<SimulatedCharacteristic>> all_;
  bool answered_ = false;
};

/// Whether `uuid` is asked for by a list; an absent list asks for everything.
bool isWanted(const std::optional<std::vector<CBUUID>>& wanted, const CBUUID& uuid);

}  // namespace kestrin::simulated
