#include "Peripheral.h"

#include <algorithm>

#include "Guarded.h"

namespace kestrin::corebluetooth {

std::optional<std::string> Peripheral::name() const {
  const std::scoped_lock lock(nameMutex_);
  return name_;
}

void Peripheral::takeName(const std::string& name) {
  if (link_) return;
  const std::scoped_lock lock(nameMutex_);
  name_ = name;
}

void Peripheral::setDelegate(std::weak_ptr<CBPeripheralDelegate> delegate) {
  delegate_ = std::move(delegate);
}

// Links.

void Peripheral::showLink(::CBPeripheral* device) {
  link_ = std::make_shared<Link>(device, static_cast<DeviceEvents*>(this));
}

void Peripheral::claim(const void* central, ::CBPeripheral* device) {
  claims_.emplace_back(central, Strong<::CBPeripheral*>(device));
  if (!link_) showLink(device);
}

void Peripheral::release(const void* central, const std::optional<NSError>& error) {
  std::erase_if(claims_, [central](const auto& claim) { return claim.first == central; });
  if (!link_) return;
  const bool stays = std::any_of(claims_.begin(), claims_.end(), [this](const auto& claim) {
    return claim.second.get() == link_->device();
  });
  if (stays) return;
  const auto ended = std::exchange(link_, nullptr);
  ended->end();
  if (!claims_.empty()) showLink(claims_.front().second.get());
  if (!error) return;
  const auto self = shared_from_this();
  for (const auto& each : ended->takeOwed()) each.give(*error);
}

// Requests.

std::shared_ptr<Link> Peripheral::linkForDiscovery() const {
  const auto mainThread = mainThread_.lock();
  if (!mainThread || !mainThread->hasLoop()) return nullptr;
  mainThread->carryOutSubmitted();
  return link_;
}

void Peripheral::discoverServices(const std::optional<std::vector<CBUUID>>& serviceUUIDs) {
  const auto link = linkForDiscovery();
  if (!link) return;
  link->owe({Owed::Kind::services, nullptr, [this](const NSError& error) {
               if (const auto delegate = delegate_.lock()) {
                 delegate->peripheral_didDiscoverServices(shared_from_this(), error);
               }
             }});
  if (!link->takesRequests()) return;
  guarded("discoverServices:", [&] { [link->device() discoverServices:uuids(serviceUUIDs)]; });
}

std::optional<std::vector<std::shared_ptr<CBService>>> Peripheral::services() const {
  return link_ ? link_->services() : std::nullopt;
}

void Peripheral::discoverCharacteristics_forService(
    const std::optional<std::vector<CBUUID>>& characteristicUUIDs,
    const std::shared_ptr<CBService>& asked) {
  const auto service = std::dynamic_pointer_cast<Service>(asked);
  const auto link = linkForDiscovery();
  if (!service || !link || service->link() != link) return;
  link->owe({Owed::Kind::characteristics, service, [this, service](const NSError& error) {
               if (const auto delegate = delegate_.lock()) {
                 delegate->peripheral_didDiscoverCharacteristicsForService_error(shared_from_this(),
                                                                                 service, error);
               }
             }});
  if (!link->takesRequests()) return;
  guarded("discoverCharacteristics:forService:", [&] {
    [link->device() discoverCharacteristics:uuids(characteristicUUIDs)
                                 forService:service->attribute()];
  });
}

void Peripheral::onCharacteristic(const std::shared_ptr<CBCharacteristic>& asked, Request request) {
  const auto mainThread = mainThread_.lock();
  auto characteristic = std::dynamic_pointer_cast<Characteristic>(asked);
  if (!mainThread || !mainThread->hasLoop() || !characteristic) return;
  mainThread->submit([self = shared_from_this(), characteristic = std::move(characteristic),
                      request = std::move(request)] {
    const auto link = characteristic->link();
    if (!link || link != self->link_) return;
    guarded("a request for a characteristic", [&] { request(*link, *characteristic); });
  });
}

void Peripheral::readValueForCharacteristic(
    const std::shared_ptr<CBCharacteristic>& characteristic) {
  onCharacteristic(characteristic, [this, characteristic](Link& link, Characteristic& own) {
    link.owe({Owed::Kind::value, characteristic, [this, characteristic](const NSError& error) {
                if (const auto delegate = delegate_.lock()) {
                  delegate->peripheral_didUpdateValueForCharacteristic_error(shared_from_this(),
                                                                             characteristic, error);
                }
              }});
    if (link.takesRequests()) [link.device() readValueForCharacteristic:own.attribute()];
  });
}

void Peripheral::setNotifyValue_forCharacteristic(
    bool enabled, const std::shared_ptr<CBCharacteristic>& characteristic) {
  onCharacteristic(
      characteristic, [this, enabled, characteristic](Link& link, Characteristic& own) {
        link.owe({Owed::Kind::notificationState, characteristic,
                  [this, characteristic](const NSError& error) {
                    if (const auto delegate = delegate_.lock()) {
                      delegate->peripheral_didUpdateNotificationStateForCharacteristic_error(
                          shared_from_this(), characteristic, error);
                    }
                  }});
        if (!link.takesRequests()) return;
        [link.device() setNotifyValue:enabled forCharacteristic:own.attribute()];
      });
}

void Peripheral::writeValue_forCharacteristic_type(
    const std::optional<NSData>& value, const std::shared_ptr<CBCharacteristic>& characteristic,
    CBCharacteristicWriteType type) {
  if (!value) return;  // CoreBluetooth takes no absent value.
  onCharacteristic(characteristic, [value = *value, type](Link& link, Characteristic& own) {
    if (!link.takesRequests()) return;
    [link.device() writeValue:data(value)
            forCharacteristic:own.attribute()
                         type:static_cast<::CBCharacteristicWriteType>(type)];
  });
}

// Events.

void Peripheral::didDiscoverServices(const std::optional<NSError>& error) {
  const auto self = shared_from_this();
  link_->settle(Owed::Kind::services, nullptr);
  if (!error) link_->takeServices();
  if (const auto delegate = delegate_.lock()) {
    delegate->peripheral_didDiscoverServices(self, error);
  }
}

void Peripheral::didDiscoverCharacteristics(::CBService* attribute,
                                            const std::optional<NSError>& error) {
  const auto self = shared_from_this();
  const auto service = link_->find(attribute);
  if (!service) return;
  link_->settle(Owed::Kind::characteristics, service.get());
  if (!error) service->takeCharacteristics();
  if (const auto delegate = delegate_.lock()) {
    delegate->peripheral_didDiscoverCharacteristicsForService_error(self, service, error);
  }
}

void Peripheral::didUpdateValue(::CBCharacteristic* attribute,
                                const std::optional<NSError>& error) {
  const auto self = shared_from_this();
  const auto characteristic = link_->find(attribute);
  if (!characteristic) return;
  link_->settle(Owed::Kind::value, characteristic.get());
  if (!error) characteristic->takeValue();
  if (const auto delegate = delegate_.lock()) {
    delegate->peripheral_didUpdateValueForCharacteristic_error(self, characteristic, error);
  }
}

void Peripheral::didUpdateNotificationState(::CBCharacteristic* attribute,
                                            const std::optional<NSError>& error) {
  const auto self = shared_from_this();
  const auto characteristic = link_->find(attribute);
  if (!characteristic) return;
  link_->settle(Owed::Kind::notificationState, characteristic.get());
  if (const auto delegate = delegate_.lock()) {
    delegate->peripheral_didUpdateNotificationStateForCharacteristic_error(self, characteristic,
                                                                           error);
  }
}

}  // namespace kestrin::corebluetooth
