// A peripheral and its characteristic without a radio: what a bench notifies goes straight to the
// manager, as a radio's own call would.
//
// Threads: one. Lifetime: as any peripheral. Errors: none.
#pragma once

#include <KestrinBLESDK/platform/CBPeripheral.h>

#include <string>
#include <utility>

namespace kestrin::bench {

class FeedCharacteristic final : public CBCharacteristic {
 public:
  explicit FeedCharacteristic(CBUUID uuid) : uuid_(uuid) {}
  void setValue(const NSData& value) { value_ = value; }

  [[nodiscard]] CBUUID UUID() const override { return uuid_; }
  [[nodiscard]] CBCharacteristicProperties properties() const override {
    return CBCharacteristicPropertyNotify;
  }
  [[nodiscard]] std::optional<NSData> value() const override { return value_; }

 private:
  const CBUUID uuid_;
  std::optional<NSData> value_;
};

class FeedPeripheral final : public CBPeripheral,
                             public std::enable_shared_from_this<CBPeripheral> {
 public:
  /// `uuid`: of the characteristic that notifies, in the textual form.
  FeedPeripheral(std::string name, const char* uuid)
      : name_(std::move(name)),
        characteristic_(std::make_shared<FeedCharacteristic>(*CBUUID::UUIDWithString(uuid))) {}

  /// Hands one value to the delegate.
  void notify(const NSData& value) {
    characteristic_->setValue(value);
    if (const auto delegate = delegate_.lock()) {
      delegate->peripheral_didUpdateValueForCharacteristic_error(shared_from_this(),
                                                                 characteristic_, std::nullopt);
    }
  }

  [[nodiscard]] std::string identifier() const override { return "C0:00:00:00:00:01"; }
  [[nodiscard]] std::optional<std::string> name() const override { return name_; }
  void setDelegate(std::weak_ptr<CBPeripheralDelegate> delegate) override {
    delegate_ = std::move(delegate);
  }
  void discoverServices(const std::optional<std::vector<CBUUID>>& /*uuids*/) override {}
  [[nodiscard]] std::optional<std::vector<std::shared_ptr<CBService>>> services() const override {
    return std::nullopt;
  }
  void discoverCharacteristics_forService(const std::optional<std::vector<CBUUID>>& /*uuids*/,
                                          const std::shared_ptr<CBService>& /*service*/) override {}
  void readValueForCharacteristic(
      const std::shared_ptr<CBCharacteristic>& /*characteristic*/) override {}
  void setNotifyValue_forCharacteristic(
      bool /*enabled*/, const std::shared_ptr<CBCharacteristic>& /*characteristic*/) override {}
  void writeValue_forCharacteristic_type(const std::optional<NSData>& /*value*/,
                                         const std::shared_ptr<CBCharacteristic>& /*to*/,
                                         CBCharacteristicWriteType /*type*/) override {}

 private:
  const std::string name_;
  const std::shared_ptr<FeedCharacteristic> characteristic_;
  std::weak_ptr<CBPeripheralDelegate> delegate_;
};

}  // namespace kestrin::bench
