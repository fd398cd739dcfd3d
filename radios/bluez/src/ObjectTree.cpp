#include "ObjectTree.h"

#include <algorithm>

namespace kestrin::bluez {
namespace {

constexpr char kAdapter[] = "org.bluez.Adapter1";
constexpr char kDevice[] = "org.bluez.Device1";
constexpr char kService[] = "org.bluez.GattService1";
constexpr char kCharacteristic[] = "org.bluez.GattCharacteristic1";

ObjectKind kindOf(const std::string& interface) {
  if (interface == kAdapter) return ObjectKind::adapter;
  if (interface == kDevice) return ObjectKind::device;
  if (interface == kService) return ObjectKind::service;
  if (interface == kCharacteristic) return ObjectKind::characteristic;
  return ObjectKind::none;
}

template <typename Object>
const Object* find(const std::map<std::string, Object>& objects, const std::string& path) {
  const auto found = objects.find(path);
  return found == objects.end() ? nullptr : &found->second;
}

/// The object to bring up to date; null for one that was never announced.
template <typename Object>
Object* target(std::map<std::string, Object>& objects, const std::string& path, bool create) {
  if (create) return &objects[path];
  const auto found = objects.find(path);
  return found == objects.end() ? nullptr : &found->second;
}

template <typename Object>
std::vector<std::string> childrenOf(const std::map<std::string, Object>& objects,
                                    const std::string& parent) {
  std::vector<std::string> paths;
  const std::string prefix = parent + "/";
  for (auto child = objects.lower_bound(prefix);
       child != objects.end() && child->first.compare(0, prefix.size(), prefix) == 0; ++child) {
    if (parentPath(child->first) == parent && child->second.uuid) paths.push_back(child->first);
  }
  std::sort(paths.begin(), paths.end(), handleOrder);
  return paths;
}

template <typename Object>
void eraseBelow(std::map<std::string, Object>& objects, const std::string& prefix) {
  auto child = objects.lower_bound(prefix);
  while (child != objects.end() && child->first.compare(0, prefix.size(), prefix) == 0) {
    child = objects.erase(child);
  }
}

}  // namespace

void ObjectTree::clear() { *this = {}; }

void ObjectTree::replace(const ObjectMap& objects) {
  clear();
  for (const auto& [path, interfaces] : objects) add(path, interfaces);
}

void ObjectTree::replaceServices(const std::string& device, const ObjectMap& objects) {
  const std::string prefix = device + "/";
  eraseBelow(services_, prefix);
  eraseBelow(characteristics_, prefix);
  for (const auto& [path, interfaces] : objects) {
    if (path.compare(0, prefix.size(), prefix) == 0) add(path, interfaces);
  }
}

std::vector<ObjectNews> ObjectTree::add(const std::string& path, const InterfaceMap& interfaces) {
  std::vector<ObjectNews> news;
  for (const auto& [interface, properties] : interfaces) {
    const auto piece = apply(path, interface, properties, {}, true);
    if (piece.kind != ObjectKind::none) news.push_back(piece);
  }
  return news;
}

ObjectNews ObjectTree::change(const std::string& path, const std::string& interface,
                              const PropertyMap& changed,
                              const std::vector<std::string>& invalidated) {
  return apply(path, interface, changed, invalidated, false);
}

ObjectNews ObjectTree::apply(const std::string& path, const std::string& interface,
                             const PropertyMap& changed,
                             const std::vector<std::string>& invalidated, bool create) {
  ObjectNews news{.kind = kindOf(interface), .device = {}};
  bool known = false;
  switch (news.kind) {
    case ObjectKind::adapter:
      if (auto* adapter = target(adapters_, path, create)) {
        update(*adapter, changed);
        known = true;
      }
      break;
    case ObjectKind::device:
      if (auto* device = target(devices_, path, create)) {
        if (device->address.empty()) device->address = addressOfPath(path);
        news.device = update(*device, changed, invalidated);
        known = true;
      }
      break;
    case ObjectKind::service:
      if (auto* service = target(services_, path, create)) {
        update(*service, changed);
        known = true;
      }
      break;
    case ObjectKind::characteristic:
      if (auto* characteristic = target(characteristics_, path, create)) {
        update(*characteristic, changed);
        known = true;
      }
      break;
    case ObjectKind::none:
      break;
  }
  return known ? news : ObjectNews{};
}

std::vector<ObjectKind> ObjectTree::remove(const std::string& path,
                                           const std::vector<std::string>& interfaces) {
  std::vector<ObjectKind> removed;
  for (const auto& interface : interfaces) {
    const ObjectKind kind = kindOf(interface);
    const bool gone = (kind == ObjectKind::adapter && adapters_.erase(path) != 0) ||
                      (kind == ObjectKind::device && devices_.erase(path) != 0) ||
                      (kind == ObjectKind::service && services_.erase(path) != 0) ||
                      (kind == ObjectKind::characteristic && characteristics_.erase(path) != 0);
    if (gone) removed.push_back(kind);
  }
  return removed;
}

const AdapterObject* ObjectTree::adapter(const std::string& path) const {
  return find(adapters_, path);
}

const DeviceObject* ObjectTree::device(const std::string& path) const {
  return find(devices_, path);
}

const ServiceObject* ObjectTree::service(const std::string& path) const {
  return find(services_, path);
}

const CharacteristicObject* ObjectTree::characteristic(const std::string& path) const {
  return find(characteristics_, path);
}

bool ObjectTree::isPowered(const std::string& device) const {
  const auto* const its = adapter(std::string(parentPath(device)));
  return its != nullptr && its->powered;
}

bool ObjectTree::isListenedTo(const std::string& device) const {
  const std::string prefix = device + "/";
  for (auto child = characteristics_.lower_bound(prefix);
       child != characteristics_.end() && child->first.compare(0, prefix.size(), prefix) == 0;
       ++child) {
    if (child->second.notifying || child->second.acquired) return true;
  }
  return false;
}

std::vector<std::string> ObjectTree::servicesOf(const std::string& device) const {
  return childrenOf(services_, device);
}

std::vector<std::string> ObjectTree::characteristicsOf(const std::string& service) const {
  return childrenOf(characteristics_, service);
}

}  // namespace kestrin::bluez
