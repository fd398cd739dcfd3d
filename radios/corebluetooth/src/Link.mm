#include "Link.h"

#include <algorithm>

#include "PeripheralEvents.h"

namespace kestrin::corebluetooth {

Link::Link(::CBPeripheral* device, DeviceEvents* owner)
    : device_(device),
      events_(Strong<::KestrinPeripheralEvents*>::adopt([[::KestrinPeripheralEvents alloc] init])) {
  events_.get()->owner = owner;
  [device setDelegate:events_.get()];
}

std::optional<std::vector<std::shared_ptr<CBService>>> Link::services() const {
  if (!services_) return std::nullopt;
  return std::vector<std::shared_ptr<CBService>>(services_->begin(), services_->end());
}

void Link::takeServices() {
  std::vector<std::shared_ptr<Service>> shown;
  for (::CBService* each in [device_.get() services]) {
    auto known = find(each);
    shown.push_back(known ? known : std::make_shared<Service>(weak_from_this(), each));
  }
  services_ = std::move(shown);
}

std::shared_ptr<Service> Link::find(::CBService* attribute) const {
  if (!services_) return nullptr;
  const auto found =
      std::find_if(services_->begin(), services_->end(),
                   [attribute](const auto& known) { return known->attribute() == attribute; });
  return found == services_->end() ? nullptr : *found;
}

std::shared_ptr<Characteristic> Link::find(::CBCharacteristic* attribute) const {
  const auto service = find([attribute service]);
  return service ? service->find(attribute) : nullptr;
}

bool Link::takesRequests() const { return [device_.get() state] == CBPeripheralStateConnected; }

void Link::settle(Owed::Kind kind, const void* about) {
  const auto found = std::find_if(owed_.begin(), owed_.end(), [&](const Owed& each) {
    return each.kind == kind && each.about.get() == about;
  });
  if (found != owed_.end()) owed_.erase(found);
}

void Link::end() {
  if (events_.get()->owner == nullptr) return;
  events_.get()->owner = nullptr;
  [device_.get() setDelegate:nil];
}

}  // namespace kestrin::corebluetooth
