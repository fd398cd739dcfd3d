// What the daemon has said about its objects: adapters, devices, services and characteristics by
// their paths, which also say what belongs to what.
//
// Threads: the radio's own thread.
// Lifetime: a copy of what was said; nothing here asks the daemon.
// Errors: malformed maps leave what was known before.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "Conversions.h"

namespace kestrin::bluez {

using InterfaceMap = std::map<std::string, PropertyMap>;
using ObjectMap = std::map<sdbus::ObjectPath, InterfaceMap>;

/// What became of an object.
enum class ObjectKind { none, adapter, device, service, characteristic };

/// One object's news.
struct ObjectNews {
  ObjectKind kind = ObjectKind::none;
  DeviceChange device;
};

class ObjectTree {
 public:
  /// Forgets everything and takes `objects` instead.
  void replace(const ObjectMap& objects);
  /// Takes the services and characteristics of one device from `objects` and forgets its others.
  void replaceServices(const std::string& device, const ObjectMap& objects);
  void clear();

  /// An object has appeared or got more interfaces. One piece of news for each that counts here.
  std::vector<ObjectNews> add(const std::string& path, const InterfaceMap& interfaces);
  ObjectNews change(const std::string& path, const std::string& interface,
                    const PropertyMap& changed, const std::vector<std::string>& invalidated);
  /// Interfaces have gone; returns what the object was here.
  std::vector<ObjectKind> remove(const std::string& path,
                                 const std::vector<std::string>& interfaces);

  [[nodiscard]] const std::map<std::string, AdapterObject>& adapters() const { return adapters_; }
  [[nodiscard]] const std::map<std::string, DeviceObject>& devices() const { return devices_; }
  /// Null when there is none.
  [[nodiscard]] const AdapterObject* adapter(const std::string& path) const;
  [[nodiscard]] const DeviceObject* device(const std::string& path) const;
  [[nodiscard]] const CharacteristicObject* characteristic(const std::string& path) const;
  [[nodiscard]] const ServiceObject* service(const std::string& path) const;
  /// Whether the adapter of that device is on.
  [[nodiscard]] bool isPowered(const std::string& device) const;
  /// Whether some program receives the notified values of that device.
  [[nodiscard]] bool isListenedTo(const std::string& device) const;
  /// The paths of a device's services that have a UUID, in handle order.
  [[nodiscard]] std::vector<std::string> servicesOf(const std::string& device) const;
  /// The paths of a service's characteristics that have a UUID, in handle order.
  [[nodiscard]] std::vector<std::string> characteristicsOf(const std::string& service) const;

 private:
  ObjectNews apply(const std::string& path, const std::string& interface,
                   const PropertyMap& changed, const std::vector<std::string>& invalidated,
                   bool create);

  std::map<std::string, AdapterObject> adapters_;
  std::map<std::string, DeviceObject> devices_;
  std::map<std::string, ServiceObject> services_;
  std::map<std::string, CharacteristicObject> characteristics_;
};

}  // namespace kestrin::bluez
