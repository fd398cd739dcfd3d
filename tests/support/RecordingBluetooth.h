// The central role of Bluetooth as a test plays it: every request is recorded and does nothing; the
// test itself says what the radio reports, by the verbs of `RecordingPlatform`. A service, its
// characteristics and their values are seen only when the test has reported them.
//
// Threads: the test's own, requests from any.
// Lifetime: delegates are held weakly, as every radio holds them.
// Errors: none.
#pragma once

#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "KestrinBLESDK/platform/CBCentralManager.h"
#include "KestrinBLESDK/platform/Radio.h"
#include "support/Transcript.h"

namespace kestrin::test {

class RecordingPlatform;

/// What a test says of an attribute: successive answers, of which the last one stays.
template <class T>
class Answers {
 public:
  explicit Answers(T answer) : answers_{std::move(answer)} {}
  void set(std::deque<T> answers) { answers_ = std::move(answers); }
  T next() const {
    T answer = answers_.front();
    if (answers_.size() > 1) answers_.pop_front();
    return answer;
  }

 private:
  mutable std::deque<T> answers_;
};

class RecordingCharacteristic final : public CBCharacteristic {
 public:
  RecordingCharacteristic(std::string_view uuid, CBCharacteristicProperties properties);
  [[nodiscard]] CBUUID UUID() const override { return uuid_; }
  [[nodiscard]] CBCharacteristicProperties properties() const override {
    return propertyReads.next();
  }
  [[nodiscard]] std::optional<NSData> value() const override { return shownValue; }

  Answers<CBCharacteristicProperties> propertyReads;
  std::optional<NSData> shownValue;

 private:
  const CBUUID uuid_;
};

using Characteristics = std::vector<std::shared_ptr<RecordingCharacteristic>>;

class RecordingService final : public CBService {
 public:
  explicit RecordingService(std::string_view uuid);
  [[nodiscard]] CBUUID UUID() const override { return uuid_; }
  [[nodiscard]] std::optional<std::vector<std::shared_ptr<CBCharacteristic>>> characteristics()
      const override;
  [[nodiscard]] std::string debugDescription() const override;

  std::optional<Characteristics> shownCharacteristics;

 private:
  const CBUUID uuid_;
};

using Services = std::vector<std::shared_ptr<RecordingService>>;

class RecordingPeripheral final : public CBPeripheral {
 public:
  RecordingPeripheral(RecordingPlatform& platform, std::string label,
                      std::optional<std::string> name);
  [[nodiscard]] std::string identifier() const override { return label_; }
  [[nodiscard]] std::optional<std::string> name() const override { return nameReads.next(); }
  void setDelegate(std::weak_ptr<CBPeripheralDelegate> delegate) override;
  void discoverServices(const std::optional<std::vector<CBUUID>>& serviceUUIDs) override;
  [[nodiscard]] std::optional<std::vector<std::shared_ptr<CBService>>> services() const override;
  void discoverCharacteristics_forService(
      const std::optional<std::vector<CBUUID>>& characteristicUUIDs,
      const std::shared_ptr<CBService>& service) override;
  void readValueForCharacteristic(const std::shared_ptr<CBCharacteristic>& characteristic) override;
  void setNotifyValue_forCharacteristic(
      bool enabled, const std::shared_ptr<CBCharacteristic>& characteristic) override;
  void writeValue_forCharacteristic_type(const std::optional<NSData>& value,
                                         const std::shared_ptr<CBCharacteristic>& characteristic,
                                         CBCharacteristicWriteType type) override;

  [[nodiscard]] std::shared_ptr<CBPeripheralDelegate> delegate() const { return delegate_.lock(); }

  Answers<std::optional<std::string>> nameReads;
  std::optional<Services> shownServices;

 private:
  void record(const std::string& request) const;

  RecordingPlatform& platform_;
  const std::string label_;
  std::weak_ptr<CBPeripheralDelegate> delegate_;
};

class RecordingCentral final : public CBCentralManager {
 public:
  RecordingCentral(RecordingPlatform& platform, int number,
                   std::weak_ptr<CBCentralManagerDelegate> delegate);
  ~RecordingCentral() override;
  [[nodiscard]] CBManagerState state() const override { return shownState; }
  void scanForPeripheralsWithServices_options(const std::optional<std::vector<CBUUID>>& services,
                                              const std::optional<CBScanOptions>& options) override;
  void stopScan() override;
  void connectPeripheral_options(const std::shared_ptr<CBPeripheral>& peripheral,
                                 const std::optional<CBConnectOptions>& options) override;
  void cancelPeripheralConnection(const std::shared_ptr<CBPeripheral>& peripheral) override;

  [[nodiscard]] std::shared_ptr<CBCentralManagerDelegate> delegate() const {
    return delegate_.lock();
  }
  /// `central#1`; the first that a platform makes is number 1.
  [[nodiscard]] std::string label() const { return "central#" + std::to_string(number_); }

  CBManagerState shownState = CBManagerState::unknown;

 private:
  void record(const std::string& request) const;

  RecordingPlatform& platform_;
  const int number_;
  const std::weak_ptr<CBCentralManagerDelegate> delegate_;
};

/// The text of an optional list of UUIDs: `[2A27 2A29]`, or `(absent)`.
std::string uuidsText(const std::optional<std::vector<CBUUID>>& uuids);
/// The label of a peripheral in quotes, or `(absent)`.
std::string peripheralText(const std::shared_ptr<CBPeripheral>& peripheral);
/// The UUID of a characteristic, or `(absent)`.
std::string characteristicText(const std::shared_ptr<CBCharacteristic>& characteristic);
/// The bytes as the log shows them, or `(absent)`.
std::string valueText(const std::optional<NSData>& value);

}  // namespace kestrin::test
