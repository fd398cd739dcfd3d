// What the daemon says, told on to central managers, discovery sessions and links. The other
// operations of `RadioCore` are in RadioCore.cpp.
//
// Threads: the radio's own thread. Lifetime: as RadioCore.h. Errors: none.
#include "Conversions.h"
#include "RadioCore.h"

namespace kestrin::bluez {

void RadioCore::daemonChanged() {
  if (daemon_.availability() == Availability::ready) {
    for (const auto& [path, device] : daemon_.tree().devices()) {
      if (!device.connected) names_.try_emplace(path, device.name);
    }
    recallLinkNames();
    centrals_.daemonChanged();
    forEachLink([](Link& link) { link.resume(); });
    return;
  }
  for (const auto& [adapter, discovery] : discoveries_) discovery->forget();
  forEachLink([](Link& link) { link.daemonGone(); });
  const auto ending = disconnections_;
  for (const auto& [device, disconnection] : ending) endDisconnection(device);
  centrals_.daemonChanged();
}

void RadioCore::adapterChanged(const std::string& path) {
  const auto* adapter = daemon_.tree().adapter(path);
  const bool powered = adapter != nullptr && adapter->powered;
  if (adapter == nullptr) {
    centrals_.adapterRemoved();
  } else {
    centrals_.updateStates();
  }
  discovery(path).setScans(centrals_.scansOn(path));
  discovery(path).adapterChanged();
  forEachLink([&](Link& link) {
    if (parentPath(link.device()) != path) return;
    if (powered) {
      link.resume();
    } else {
      link.adapterOff();
    }
  });
}

void RadioCore::updateName(const std::string& device, const DeviceChange& change) {
  const auto* object = daemon_.tree().device(device);
  if (object == nullptr || object->connected) return;
  if (const auto held = link(device); held && held->freezesName()) return;
  // After a link the daemon still has the name that it read from the device; the next advertisement
  // brings the advertised one back.
  if (change.seen || change.named || !names_.contains(device)) names_[device] = object->name;
  if (links_.contains(device)) writeLinkNames();
}

void RadioCore::deviceChanged(const std::string& path, const DeviceChange& change) {
  updateName(path, change);
  if (change.connected == false) disconnected(path);
  if (const auto held = link(path)) held->deviceChanged(change);
  if (change.seen || change.named) centrals_.sighted(path, advertisedName(path), change.seen);
  if (change.servicesResolved == true) sightLeftOver(path);
}

void RadioCore::deviceRemoved(const std::string& path) {
  disconnected(path);
  if (const auto held = link(path)) held->deviceRemoved();
}

void RadioCore::serviceAdded(const std::string& device) {
  if (const auto held = link(device)) held->serviceAdded();
  sightLeftOver(device);
}

void RadioCore::serviceRemoved(const std::string& device) {
  if (const auto held = link(device)) held->serviceRemoved();
}

std::shared_ptr<LinkGatt> RadioCore::gattOf(const std::string& characteristic) const {
  const auto held = link(std::string(parentPath(parentPath(characteristic))));
  return held ? held->gatt() : nullptr;
}

void RadioCore::valueChanged(const std::string& characteristic,
                             const std::vector<std::uint8_t>& value) {
  if (const auto gatt = gattOf(characteristic)) gatt->valueChanged(characteristic, value);
}

void RadioCore::characteristicChanged(const std::string& characteristic) {
  if (const auto gatt = gattOf(characteristic)) gatt->characteristicChanged(characteristic);
  sightLeftOver(std::string(parentPath(parentPath(characteristic))));
}

}  // namespace kestrin::bluez
