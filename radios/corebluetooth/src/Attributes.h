// Services and characteristics, as one link shows them.
//
// Threads: as CBService.h and CBCharacteristic.h say. Lifetime: made with their link; they outlive
// it and keep what they last had. Errors: none.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "KestrinBLESDK/platform/CBCharacteristic.h"
#include "KestrinBLESDK/platform/CBService.h"
#include "Strong.h"
#include "Values.h"

namespace kestrin::corebluetooth {

class Link;

class Characteristic final : public CBCharacteristic {
 public:
  Characteristic(std::weak_ptr<Link> link, ::CBCharacteristic* attribute);
  [[nodiscard]] CBUUID UUID() const override { return uuid_; }
  [[nodiscard]] CBCharacteristicProperties properties() const override { return properties_; }
  [[nodiscard]] std::optional<NSData> value() const override { return value_; }

  [[nodiscard]] std::shared_ptr<Link> link() const { return link_.lock(); }
  [[nodiscard]] ::CBCharacteristic* attribute() const { return attribute_.get(); }
  void takeValue() { value_ = data([attribute_.get() value]); }

 private:
  const std::weak_ptr<Link> link_;
  const Strong<::CBCharacteristic*> attribute_;
  const CBUUID uuid_;
  const CBCharacteristicProperties properties_;
  std::optional<NSData> value_;
};

class Service final : public CBService {
 public:
  Service(std::weak_ptr<Link> link, ::CBService* attribute);
  [[nodiscard]] CBUUID UUID() const override { return uuid_; }
  [[nodiscard]] std::optional<std::vector<std::shared_ptr<CBCharacteristic>>> characteristics()
      const override;
  /// Not the system's own: that one writes a well-known service's name in place of its UUID.
  [[nodiscard]] std::string debugDescription() const override;

  [[nodiscard]] std::shared_ptr<Link> link() const { return link_.lock(); }
  [[nodiscard]] ::CBService* attribute() const { return attribute_.get(); }
  void takeCharacteristics();
  /// Null when this service does not show it.
  [[nodiscard]] std::shared_ptr<Characteristic> find(::CBCharacteristic* attribute) const;

 private:
  const std::weak_ptr<Link> link_;
  const Strong<::CBService*> attribute_;
  const CBUUID uuid_;
  std::optional<std::vector<std::shared_ptr<Characteristic>>> characteristics_;
};

}  // namespace kestrin::corebluetooth
