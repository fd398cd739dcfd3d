#include "Peripheral.h"

#include <algorithm>
#include <map>
#include <utility>

#include "Conversions.h"
#include "LinkGatt.h"
#include "RadioCore.h"

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

using Work = std::function<void(LinkGatt&)>;

void postToLink(const LinkAddress& address, Work work) {
  const auto session = address.session.lock();
  if (!session) return;
  session->post([number = address.number, work = std::move(work)](RadioCore& core) {
    core.withLink(number, work);
  });
}

/// Runs `work` with the link's attributes, if that link is still up by then. If not, the request is
/// answered by `refusal` before the link's end is reported.
void ask(const LinkAddress& address, UntakenRequests::Refusal refusal, Work work) {
  const auto number = address.untaken->add(std::move(refusal));
  if (!number) return;
  postToLink(address,
             [number = *number, untaken = address.untaken, work = std::move(work)](LinkGatt& gatt) {
               if (untaken->take(number)) work(gatt);
             });
}

}  // namespace

Characteristic::Characteristic(LinkAddress link, std::string path, const CBUUID& uuid,
                               CBCharacteristicProperties properties)
    : link_(std::move(link)), path_(std::move(path)), uuid_(uuid), properties_(properties) {}

Service::Service(LinkAddress link, std::string path, const CBUUID& uuid)
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
  ask(
      link_->address,
      [self = shared_from_this(), number = link_->address.number](const NSError& reason) {
        self->deliverServices(number, {}, reason);
      },
      [serviceUUIDs](LinkGatt& gatt) { gatt.discoverServices(serviceUUIDs); });
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
  ask(
      ours->link(),
      [self = shared_from_this(), ours](const NSError& reason) {
        self->deliverCharacteristics(ours, {}, reason);
      },
      [characteristicUUIDs, ours](LinkGatt& gatt) {
        gatt.discoverCharacteristics(characteristicUUIDs, ours);
      });
}

void Peripheral::readValueForCharacteristic(
    const std::shared_ptr<CBCharacteristic>& characteristic) {
  const auto ours = std::dynamic_pointer_cast<Characteristic>(characteristic);
  if (!ours) return;
  ask(
      ours->link(),
      [self = shared_from_this(), ours](const NSError& reason) {
        self->deliverReadError(ours, reason);
      },
      [ours](LinkGatt& gatt) { gatt.read(ours); });
}

void Peripheral::setNotifyValue_forCharacteristic(
    bool enabled, const std::shared_ptr<CBCharacteristic>& characteristic) {
  const auto ours = std::dynamic_pointer_cast<Characteristic>(characteristic);
  if (!ours) return;
  ask(
      ours->link(),
      [self = shared_from_this(), ours](const NSError& reason) {
        self->deliverNotificationState(ours, reason);
      },
      [ours, enabled](LinkGatt& gatt) { gatt.setNotify(enabled, ours); });
}

void Peripheral::writeValue_forCharacteristic_type(
    const std::optional<NSData>& value, const std::shared_ptr<CBCharacteristic>& characteristic,
    CBCharacteristicWriteType type) {
  const auto ours = std::dynamic_pointer_cast<Characteristic>(characteristic);
  if (!ours || !value) return;
  postToLink(ours->link(),
             [ours, data = *value, type](LinkGatt& gatt) { gatt.write(data, ours, type); });
}

bool Peripheral::isCurrent(std::uint64_t link) const {
  if (!link_ || link_->address.number != link) return false;
  return std::any_of(link_->holders.begin(), link_->holders.end(),
                     [](const auto& holder) { return !holder.expired(); });
}

void Peripheral::beginLink(const LinkAddress& link, std::weak_ptr<CBCentralManager> holder) {
  if (!link_ || link_->address.number != link.number) {
    services_.reset();
    link_.emplace();
    link_->address = link;
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
  if (!link_ || link_->address.number != number) return;
  if (isHeldByOthersThan(holder)) {
    std::erase_if(link_->holders, [&](const std::weak_ptr<CBCentralManager>& one) {
      const auto alive = one.lock();
      return !alive || alive == holder;
    });
    return;
  }
  for (const auto& refuse : link_->address.untaken->close()) refuse(reason);
  link_.reset();
  services_.reset();
}

void Peripheral::deliverServices(std::uint64_t link, const Services& found,
                                 const std::optional<NSError>& error) {
  if (!isCurrent(link)) return;
  if (!error) merge(services_, found);
  const auto delegate = delegate_.lock();
  if (delegate) delegate->peripheral_didDiscoverServices(shared_from_this(), error);
}

void Peripheral::deliverCharacteristics(const std::shared_ptr<Service>& service,
                                        const Service::Characteristics& found,
                                        const std::optional<NSError>& error) {
  if (!isCurrent(service->link().number)) return;
  if (!error) service->addCharacteristics(found);
  const auto delegate = delegate_.lock();
  if (!delegate) return;
  delegate->peripheral_didDiscoverCharacteristicsForService_error(shared_from_this(), service,
                                                                  error);
}

void Peripheral::deliverValue(const std::shared_ptr<Characteristic>& characteristic,
                              const NSData& value) {
  if (!isCurrent(characteristic->link().number)) return;
  characteristic->setValue(value);
  const auto delegate = delegate_.lock();
  if (!delegate) return;
  delegate->peripheral_didUpdateValueForCharacteristic_error(shared_from_this(), characteristic,
                                                             std::nullopt);
}

void Peripheral::deliverReadError(const std::shared_ptr<Characteristic>& characteristic,
                                  const NSError& error) {
  if (!isCurrent(characteristic->link().number)) return;
  const auto delegate = delegate_.lock();
  if (!delegate) return;
  delegate->peripheral_didUpdateValueForCharacteristic_error(shared_from_this(), characteristic,
                                                             error);
}

void Peripheral::deliverNotificationState(const std::shared_ptr<Characteristic>& characteristic,
                                          const std::optional<NSError>& error) {
  if (!isCurrent(characteristic->link().number)) return;
  const auto delegate = delegate_.lock();
  if (!delegate) return;
  delegate->peripheral_didUpdateNotificationStateForCharacteristic_error(shared_from_this(),
                                                                         characteristic, error);
}

}  // namespace kestrin::bluez
