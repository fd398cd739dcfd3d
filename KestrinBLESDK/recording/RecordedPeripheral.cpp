#include "KestrinBLESDK/recording/RecordedPeripheral.h"

#include <utility>

namespace kestrin {

std::optional<std::vector<std::string>> recordedUuids(
    const std::optional<std::vector<CBUUID>>& uuids) {
  if (!uuids) return std::nullopt;
  std::vector<std::string> texts;
  for (const CBUUID& uuid : *uuids) texts.push_back(uuid.UUIDString());
  return texts;
}

RecordedPeripheral::RecordedPeripheral(std::shared_ptr<CBPeripheral> inner,
                                       std::shared_ptr<Recorder> recorder)
    : inner_(std::move(inner)), recorder_(std::move(recorder)) {}

RecordedEvent RecordedPeripheral::eventOf(RecordedKind kind) const {
  RecordedEvent event;
  event.kind = kind;
  event.name = inner_->name();
  event.identifier = inner_->identifier();
  return event;
}

RecordedEvent RecordedPeripheral::eventOf(
    RecordedKind kind, const std::shared_ptr<CBCharacteristic>& characteristic) const {
  RecordedEvent event = eventOf(kind);
  event.characteristic = characteristic ? characteristic->UUID().UUIDString() : "";
  return event;
}

RecordedEvent RecordedPeripheral::answerOf(RecordedKind kind,
                                           const std::shared_ptr<CBCharacteristic>& characteristic,
                                           const std::optional<NSError>& error) const {
  RecordedEvent event = eventOf(kind, characteristic);
  if (const auto value = characteristic->value()) {
    const auto bytes = value->span();
    event.bytes.emplace(bytes.begin(), bytes.end());
  }
  if (error) event.error = error->description();
  return event;
}

void RecordedPeripheral::setDelegate(std::weak_ptr<CBPeripheralDelegate> delegate) {
  delegate_ = std::move(delegate);
  inner_->setDelegate(weak_from_this());
}

void RecordedPeripheral::discoverServices(const std::optional<std::vector<CBUUID>>& serviceUUIDs) {
  RecordedEvent event = eventOf(RecordedKind::discoverServices);
  event.services = recordedUuids(serviceUUIDs);
  recorder_->take(std::move(event));
  inner_->discoverServices(serviceUUIDs);
}

void RecordedPeripheral::discoverCharacteristics_forService(
    const std::optional<std::vector<CBUUID>>& characteristicUUIDs,
    const std::shared_ptr<CBService>& service) {
  RecordedEvent event = eventOf(RecordedKind::discoverCharacteristics);
  event.service = service ? service->UUID().UUIDString() : "";
  event.characteristics = recordedUuids(characteristicUUIDs);
  recorder_->take(std::move(event));
  inner_->discoverCharacteristics_forService(characteristicUUIDs, service);
}

void RecordedPeripheral::readValueForCharacteristic(
    const std::shared_ptr<CBCharacteristic>& characteristic) {
  recorder_->take(eventOf(RecordedKind::read, characteristic));
  if (characteristic) {
    const std::scoped_lock lock(mutex_);
    std::erase_if(reads_, [](const auto& entry) { return entry.first.expired(); });
    ++reads_[characteristic];
  }
  inner_->readValueForCharacteristic(characteristic);
}

void RecordedPeripheral::setNotifyValue_forCharacteristic(
    bool enabled, const std::shared_ptr<CBCharacteristic>& characteristic) {
  RecordedEvent event = eventOf(RecordedKind::subscribe, characteristic);
  event.enabled = enabled;
  recorder_->take(std::move(event));
  inner_->setNotifyValue_forCharacteristic(enabled, characteristic);
}

void RecordedPeripheral::writeValue_forCharacteristic_type(
    const std::optional<NSData>& value, const std::shared_ptr<CBCharacteristic>& characteristic,
    CBCharacteristicWriteType type) {
  RecordedEvent event = eventOf(RecordedKind::write, characteristic);
  if (value) {
    const auto bytes = value->span();
    event.bytes.emplace(bytes.begin(), bytes.end());
  }
  recorder_->take(std::move(event));
  inner_->writeValue_forCharacteristic_type(value, characteristic, type);
}

void RecordedPeripheral::peripheral_didDiscoverServices(
    const std::shared_ptr<CBPeripheral>& /*peripheral*/,
    const std::optional<NSError>& error) noexcept {
  const auto self = shared_from_this();
  RecordedEvent event = eventOf(RecordedKind::services);
  if (const auto found = inner_->services()) {
    event.services.emplace();
    for (const auto& service : *found) event.services->push_back(service->UUID().UUIDString());
  }
  if (error) event.error = error->description();
  recorder_->take(std::move(event));
  if (const auto delegate = delegate_.lock()) delegate->peripheral_didDiscoverServices(self, error);
}

void RecordedPeripheral::peripheral_didDiscoverCharacteristicsForService_error(
    const std::shared_ptr<CBPeripheral>& /*peripheral*/, const std::shared_ptr<CBService>& service,
    const std::optional<NSError>& error) noexcept {
  const auto self = shared_from_this();
  RecordedEvent event = eventOf(RecordedKind::characteristics);
  event.service = service->UUID().UUIDString();
  if (const auto found = service->characteristics()) {
    event.characteristics.emplace();
    event.properties.emplace();
    for (const auto& characteristic : *found) {
      event.characteristics->push_back(characteristic->UUID().UUIDString());
      event.properties->push_back(recordedProperties(characteristic->properties()));
    }
  }
  if (error) event.error = error->description();
  recorder_->take(std::move(event));
  if (const auto delegate = delegate_.lock()) {
    delegate->peripheral_didDiscoverCharacteristicsForService_error(self, service, error);
  }
}

bool RecordedPeripheral::takeRead(const std::shared_ptr<CBCharacteristic>& characteristic) {
  const std::scoped_lock lock(mutex_);
  const auto found = reads_.find(characteristic);
  if (found == reads_.end()) return false;
  if (--found->second == 0) reads_.erase(found);
  return true;
}

void RecordedPeripheral::peripheral_didUpdateValueForCharacteristic_error(
    const std::shared_ptr<CBPeripheral>& /*peripheral*/,
    const std::shared_ptr<CBCharacteristic>& characteristic,
    const std::optional<NSError>& error) noexcept {
  const auto self = shared_from_this();
  const RecordedKind kind =
      takeRead(characteristic) ? RecordedKind::readValue : RecordedKind::notification;
  recorder_->take(answerOf(kind, characteristic, error));
  if (const auto delegate = delegate_.lock()) {
    delegate->peripheral_didUpdateValueForCharacteristic_error(self, characteristic, error);
  }
}

void RecordedPeripheral::peripheral_didUpdateNotificationStateForCharacteristic_error(
    const std::shared_ptr<CBPeripheral>& /*peripheral*/,
    const std::shared_ptr<CBCharacteristic>& characteristic,
    const std::optional<NSError>& error) noexcept {
  const auto self = shared_from_this();
  recorder_->take(answerOf(RecordedKind::subscription, characteristic, error));
  if (const auto delegate = delegate_.lock()) {
    delegate->peripheral_didUpdateNotificationStateForCharacteristic_error(self, characteristic,
                                                                           error);
  }
}

}  // namespace kestrin
