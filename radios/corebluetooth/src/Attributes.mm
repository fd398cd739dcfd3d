#include "Attributes.h"

#include <algorithm>
#include <utility>

namespace kestrin::corebluetooth {

Characteristic::Characteristic(std::weak_ptr<Link> link, ::CBCharacteristic* attribute)
    : link_(std::move(link)),
      attribute_(attribute),
      uuid_(uuid([attribute UUID])),
      properties_([attribute properties]) {}

Service::Service(std::weak_ptr<Link> link, ::CBService* attribute)
    : link_(std::move(link)), attribute_(attribute), uuid_(uuid([attribute UUID])) {}

std::optional<std::vector<std::shared_ptr<CBCharacteristic>>> Service::characteristics() const {
  if (!characteristics_) return std::nullopt;
  return std::vector<std::shared_ptr<CBCharacteristic>>(characteristics_->begin(),
                                                        characteristics_->end());
}

std::string Service::debugDescription() const { return "<CBService " + uuid_.UUIDString() + ">"; }

std::shared_ptr<Characteristic> Service::find(::CBCharacteristic* attribute) const {
  if (!characteristics_) return nullptr;
  const auto found =
      std::find_if(characteristics_->begin(), characteristics_->end(),
                   [attribute](const auto& known) { return known->attribute() == attribute; });
  return found == characteristics_->end() ? nullptr : *found;
}

void Service::takeCharacteristics() {
  std::vector<std::shared_ptr<Characteristic>> shown;
  for (::CBCharacteristic* each in [attribute_.get() characteristics]) {
    auto known = find(each);
    shown.push_back(known ? known : std::make_shared<Characteristic>(link_, each));
  }
  characteristics_ = std::move(shown);
}

}  // namespace kestrin::corebluetooth
