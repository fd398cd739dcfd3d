#include "AttributeServer.h"

#include <utility>

#include "Errors.h"

namespace kestrin::simulated {
namespace {

constexpr CBCharacteristicProperties kWritable =
    CBCharacteristicPropertyWrite | CBCharacteristicPropertyWriteWithoutResponse;
constexpr CBCharacteristicProperties kNotifying =
    CBCharacteristicPropertyNotify | CBCharacteristicPropertyIndicate;

std::optional<ReaderCharacteristics> characteristicsOf(std::optional<ReaderFamily> family) {
  if (!family) return std::nullopt;
  return readerCharacteristics(*family);
}

template <class Change>
void changeEach(GattLayout& layout, const CBUUID& uuid, const Change& change) {
  for (auto& service : layout) {
    for (auto& characteristic : service.characteristics) {
      if (characteristic.uuid == uuid) change(characteristic);
    }
  }
}

}  // namespace

AttributeServer::AttributeServer(GattLayout layout, std::optional<ReaderFamily> family)
    : layout_(std::move(layout)), reader_(characteristicsOf(family)) {}

GattLayout AttributeServer::layoutOfNextLink() const {
  GattLayout shown;
  for (const auto& service : layout_) {
    if (missing_.contains(service.uuid)) continue;
    GattService& kept = shown.emplace_back(GattService{service.uuid, {}});
    for (const auto& characteristic : service.characteristics) {
      if (!missing_.contains(characteristic.uuid)) kept.characteristics.push_back(characteristic);
    }
  }
  return shown;
}

void AttributeServer::setMissing(const CBUUID& uuid, bool missing) {
  if (missing) {
    missing_.insert(uuid);
  } else {
    missing_.erase(uuid);
  }
}

void AttributeServer::setProperties(const CBUUID& characteristic,
                                    CBCharacteristicProperties properties) {
  changeEach(layout_, characteristic,
             [properties](GattCharacteristic& found) { found.properties = properties; });
}

void AttributeServer::setValue(const CBUUID& characteristic, const NSData& value) {
  changeEach(layout_, characteristic, [&value](GattCharacteristic& found) { found.value = value; });
}

std::optional<NSError> AttributeServer::read(const SimulatedCharacteristic& characteristic,
                                             NSData& value) const {
  if (faults.read) return faults.read;
  if (!characteristic.has(CBCharacteristicPropertyRead)) return readNotPermitted();
  for (const auto& service : layout_) {
    for (const auto& declared : service.characteristics) {
      if (declared.uuid == characteristic.UUID()) value = declared.value;
    }
  }
  return std::nullopt;
}

std::optional<NSError> AttributeServer::subscribe(SimulatedCharacteristic& characteristic,
                                                  bool enabled) const {
  if (faults.subscription) return faults.subscription;
  if (!characteristic.has(kNotifying)) return requestNotSupported();
  characteristic.subscribed = enabled;
  return std::nullopt;
}

std::vector<NSData> AttributeServer::write(const SimulatedCharacteristic& characteristic,
                                           ReceivedWrite write) {
  if (faults.write || !characteristic.has(kWritable)) {
    ++refusedWrites_;
    return {};
  }
  const NSData slice = write.value;
  writes_.push_back(std::move(write));
  if (!reader_ || characteristic.UUID() != reader_->tx) return {};
  auto replies = conversation_.take(slice);
  if (faults.silent) replies.clear();
  return replies;
}

std::optional<CBUUID> AttributeServer::replyCharacteristic() const {
  if (!reader_) return std::nullopt;
  return reader_->rx;
}

}  // namespace kestrin::simulated
