// A peripheral that records what is asked of it and what it reports. Its services and
// characteristics are those of the peripheral within.
//
// Threads: as CBPeripheral says.
// Lifetime: one per device, kept by the recording radio.
// Errors: none of its own.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "KestrinBLESDK/platform/CBPeripheral.h"
#include "KestrinBLESDK/recording/Recorder.h"

namespace kestrin {

std::optional<std::vector<std::string>> recordedUuids(
    const std::optional<std::vector<CBUUID>>& uuids);

class RecordedPeripheral final : public CBPeripheral,
                                 public CBPeripheralDelegate,
                                 public std::enable_shared_from_this<RecordedPeripheral> {
 public:
  RecordedPeripheral(std::shared_ptr<CBPeripheral> inner, std::shared_ptr<Recorder> recorder);
  [[nodiscard]] const std::shared_ptr<CBPeripheral>& inner() const noexcept { return inner_; }

  [[nodiscard]] std::string identifier() const override { return inner_->identifier(); }
  [[nodiscard]] std::optional<std::string> name() const override { return inner_->name(); }
  void setDelegate(std::weak_ptr<CBPeripheralDelegate> delegate) override;
  void discoverServices(const std::optional<std::vector<CBUUID>>& serviceUUIDs) override;
  [[nodiscard]] std::optional<std::vector<std::shared_ptr<CBService>>> services() const override {
    return inner_->services();
  }
  void discoverCharacteristics_forService(
      const std::optional<std::vector<CBUUID>>& characteristicUUIDs,
      const std::shared_ptr<CBService>& service) override;
  void readValueForCharacteristic(const std::shared_ptr<CBCharacteristic>& characteristic) override;
  void setNotifyValue_forCharacteristic(
      bool enabled, const std::shared_ptr<CBCharacteristic>& characteristic) override;
  void writeValue_forCharacteristic_type(const std::optional<NSData>& value,
                                         const std::shared_ptr<CBCharacteristic>& characteristic,
                                         CBCharacteristicWriteType type) override;

  void peripheral_didDiscoverServices(const std::shared_ptr<CBPeripheral>& peripheral,
                                      const std::optional<NSError>& error) noexcept override;
  void peripheral_didDiscoverCharacteristicsForService_error(
      const std::shared_ptr<CBPeripheral>& peripheral, const std::shared_ptr<CBService>& service,
      const std::optional<NSError>& error) noexcept override;
  void peripheral_didUpdateValueForCharacteristic_error(
      const std::shared_ptr<CBPeripheral>& peripheral,
      const std::shared_ptr<CBCharacteristic>& characteristic,
      const std::optional<NSError>& error) noexcept override;
  void peripheral_didUpdateNotificationStateForCharacteristic_error(
      const std::shared_ptr<CBPeripheral>& peripheral,
      const std::shared_ptr<CBCharacteristic>& characteristic,
      const std::optional<NSError>& error) noexcept override;

 private:
  [[nodiscard]] RecordedEvent eventOf(RecordedKind kind) const;
  [[nodiscard]] RecordedEvent eventOf(
      RecordedKind kind, const std::shared_ptr<CBCharacteristic>& characteristic) const;
  [[nodiscard]] RecordedEvent answerOf(RecordedKind kind,
                                       const std::shared_ptr<CBCharacteristic>& characteristic,
                                       const std::optional<NSError>& error) const;
  bool takeRead(const std::shared_ptr<CBCharacteristic>& characteristic);

  const std::shared_ptr<CBPeripheral> inner_;
  const std::shared_ptr<Recorder> recorder_;
  std::weak_ptr<CBPeripheralDelegate> delegate_;
  std::mutex mutex_;
  // How many reads of a characteristic have not been answered yet: both answers and notified values
  // come by the same event.
  std::map<std::weak_ptr<CBCharacteristic>, int, std::owner_less<>> reads_;
};

}  // namespace kestrin
