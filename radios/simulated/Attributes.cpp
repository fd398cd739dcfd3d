#include "Attributes.h"

#include <algorithm>

namespace kestrin::simulated {

bool isWanted(const std::optional<std::vector<CBUUID>>& wanted, const CBUUID& uuid) {
  return !wanted || std::find(wanted->begin(), wanted->end(), uuid) != wanted->end();
}

SimulatedService::SimulatedService(const GattService& declared, const std::weak_ptr<Link>& link)
    : uuid_(declared.uuid), link_(link) {
  for (const auto& characteristic : declared.characteristics) {
    all_.push_back(std::make_shared<SimulatedCharacteristic>(characteristic, link));
  }
}

std::optional<std::vector<std::shared_ptr<CBCharacteristic>>> SimulatedService::characteristics()
    const {
  if (!answered_) return std::nullopt;
  std::vector<std::shared_ptr<CBCharacteristic>> found;
  for (const auto& characteristic : all_) {
    if (characteristic->shown) found.push_back(characteristic);
  }
  return found;
}

std::string SimulatedService::debugDescription() const {
  return "<CBService UUID=" + uuid_.UUIDString() + ">";
}

void SimulatedService::show(const std::optional<std::vector<CBUUID>>& wanted) {
  answered_ = true;
  for (const auto& characteristic : all_) {
    if (isWanted(wanted, characteristic->UUID())) characteristic->shown = true;
  }
}

}  // namespace kestrin::simulated
