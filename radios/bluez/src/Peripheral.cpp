#include "Peripheral.h"

#include <algorithm>
#include <map>
#include <utility>

#include "Conversions.h"

namespace kestrin::bluez {
namespace {

struct Registry {
  std::mutex mutex;
  std::map<std::pair<std::string, std::string>, std::shared_ptr<Peripheral>> byBusAndPath;
};

Registry& registry() {
  static auto* const all = new Registry;  // Static objects may still use it at exit.
  return *all;
}

/// Adds the objects that are not there yet; the order is that of the handles.
template <typename Object>
void merge(std::optional<std::vector<std::shared_ptr<Object>>>& known,
           const std::vector<std::shared_ptr<Object>>& found) {
  if (!known) known.emplace();
  for (const auto& object : found) {
    if (std::find(known->begin(), known->end(), object) == known->end()) known->push_back(object);
  }
  std::stable_sort(known->begin(), known->end(),
                   [](const auto& a, const auto& b) { return handleOrder(a->path(), b->path()); });
}

}  // namespace

Characteristic::Characteristic(std::shared_ptr<LinkLine> link, std::string path, const CBUUID& uuid,
                               CBCharacteristicProperties properties)
    : link_(std::move(link)), path_(std::move(path)), uuid_(uuid), properties_(properties) {}

Service::Service(std::shared_ptr<LinkLine> link, std::string path, const CBUUID& uuid)
    : link_(std::move(link)), path_(std::move(path)), uuid_(uuid) {}

std::optional<std::vector<std::shared_ptr<CBCharacteristic>>> Service::characteristics() const {
  if (!characteristics_) return std::nullopt;
  return std::vector<std::shared_ptr<CBCharacteristic>>(characteristics_->begin(),
                                                        characteristics_->end());
}

std::string Service::debugDescription() const {
  return "<CBService " + uuid_.UUIDString() + " at " + std::string(lastElement(path_)) + ">";
}

void Service::addCharacteristics(const Characteristics& found) { merge(characteristics_, found); }

Peripheral::Peripheral(std::string bus, std::string path, std::string address)
    : bus_(std::move(bus)), path_(std::move(path)), address_(std::move(address)) {}

std::shared_ptr<Peripheral> Peripheral::of(const std::string& bus, const std::string& path,
                                           const std::string& address) {
  auto& all = registry();
  const std::scoped_lock lock(all.mutex);
  auto& known = all.byBusAndPath[{bus, path}];
  if (!known) known = std::make_shared<Peripheral>(bus, path, address);
  return known;
}

std::optional<std::string> Peripheral::name() const {
  const std::scoped_lock lock(mutex_);
  return name_;
}

void Peripheral::setName(const std::optional<std::string>& name) {
  const std::scoped_lock lock(mutex_);
  name_ = name;
}

void Peripheral::setDelegate(std::weak_ptr<CBPeripheralDelegate> delegate) {
  delegate_ = std::move(delegate);
}

void Peripheral::discoverServices(const std::optional<std::vector<CBUUID>>& serviceUUIDs) {
  if (!link_) return;
  link_->line->ask({.kind = LinkRequest::Kind::discoverServices, .wanted = serviceUUIDs});
}

std::optional<std::vector<std::shared_ptr<CBService>>> Peripheral::services() const {
  if (!services_) return std::nullopt;
  return std::vector<std::shared_ptr<CBService>>(services_->begin(), services_->end());
}

void Peripheral::discoverCharacteristics_forService(
    const std::optional<std::vector<CBUUID>>& characteristicUUIDs,
    const std::shared_ptr<CBService>& service) {
  const auto ours = std::dynamic_pointer_cast<Service>(service);
  if (!ours) return;
  ours->link()->ask({.kind = LinkRequest::Kind::discoverCharacteristics,
                     .wanted = characteristicUUIDs,
                     .service = ours});
}

void Peripheral::readValueForCharacteristic(
    const std::shared_ptr<CBCharacteristic>& characteristic) {
  const auto ours = std::dynamic_pointer_cast<Characteristic>(characteristic);
  if (!ours) return;
  ours->link()->ask({.kind = LinkRequest::Kind::read, .characteristic = ours});
}

void Peripheral::setNotifyValue_forCharacteristic(
    bool enabled, const std::shared_ptr<CBCharacteristic>& characteristic) {
  const auto ours = std::dynamic_pointer_cast<Characteristic>(characteristic);
  if (!ours) return;
  ours->link()->ask(
      {.kind = enabled ? LinkRequest::Kind::subscribe : LinkRequest::Kind::unsubscribe,
       .characteristic = ours});
}

void Peripheral::writeValue_forCharacteristic_type(
    const std::optional<NSData>& value, const std::shared_ptr<CBCharacteristic>& characteristic,
    CBCharacteristicWriteType type) {
  const auto ours = std::dynamic_pointer_cast<Characteristic>(characteristic);
  if (!ours || !value) return;
  ours->link()->ask(
      {.kind = LinkRequest::Kind::write, .characteristic = ours, .value = *value, .type = type});
}

bool Peripheral::isCurrent(std::uint64_t link) const {
  if (!link_ || link_->line->number() != link) return false;
  return std::any_of(link_->holders.begin(), link_->holders.end(),
                     [](const auto& holder) { return !holder.expired(); });
}

void Peripheral::beginLink(const std::shared_ptr<LinkLine>& link,
                           std::weak_ptr<CBCentralManager> holder) {
  if (!link_ || link_->line->number() != link->number()) {
    services_.reset();
    link_.emplace();
    link_->line = link;
  }
  link_->holders.push_back(std::move(holder));
}

bool Peripheral::isHeldByOthersThan(const std::shared_ptr<CBCentralManager>& holder) const {
  return std::any_of(link_->holders.begin(), link_->holders.end(), [&](const auto& one) {
    const auto alive = one.lock();
    return alive && alive != holder;
  });
}

void Peripheral::endLink(std::uint64_t number, const std::shared_ptr<CBCentralManager>& holder,
                         const NSError& reason) {
  if (!link_ || link_->line->number() != number) return;
  if (isHeldByOthersThan(holder)) {
    std::erase_if(link_->holders, [&](const std::weak_ptr<CBCentralManager>& one) {
      const auto alive = one.lock();
      return !alive || alive == holder;
    });
    return;
  }
  for (const auto& request : link_->line->close()) deliverEnd(request, number, reason);
  link_.reset();
  services_.reset();
}

void Peripheral::addServices(std::uint64_t link, const Services& found) {
  if (isCurrent(link)) merge(services_, found);
}

void Peripheral::addCharacteristics(const std::shared_ptr<Service>& service,
                                    const Service::Characteristics& found) {
  if (isCurrent(service->link()->number())) service->addCharacteristics(found);
}

void Peripheral::deliverValue(const std::shared_ptr<Characteristic>& characteristic,
                              const NSData& value) {
  if (!isCurrent(characteristic->link()->number())) return;
  characteristic->setValue(value);
  const auto delegate = delegate_.lock();
  if (!delegate) return;
  delegate->peripheral_didUpdateValueForCharacteristic_error(shared_from_this(), characteristic,
                                                             std::nullopt);
}

void Peripheral::deliverEnd(const LinkRequest& request, std::uint64_t link,
                            const std::optional<NSError>& error) {
  const auto delegate = delegate_.lock();
  if (!delegate || !isCurrent(link) || !request.isReported(error)) return;
  const auto self = shared_from_this();
  switch (request.kind) {
    case LinkRequest::Kind::discoverServices:
      delegate->peripheral_didDiscoverServices(self, error);
      break;
    case LinkRequest::Kind::discoverCharacteristics:
      delegate->peripheral_didDiscoverCharacteristicsForService_error(self, request.service, error);
      break;
    case LinkRequest::Kind::read:
      delegate->peripheral_didUpdateValueForCharacteristic_error(self, request.characteristic,
                                                                 error);
      break;
    case LinkRequest::Kind::subscribe:
    case LinkRequest::Kind::unsubscribe:
      delegate->peripheral_didUpdateNotificationStateForCharacteristic_error(
          self, request.characteristic, error);
      break;
    case LinkRequest::Kind::takeOver:
    case LinkRequest::Kind::write:
      break;
  }
}

}  // namespace kestrin::bluez
