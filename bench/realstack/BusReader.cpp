#include "bench/realstack/BusReader.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <thread>
#include <vector>

#include "bench/realstack/Tally.h"

namespace kestrin::bench {
namespace {

using Properties = std::map<std::string, sdbus::Variant>;
using Interfaces = std::map<std::string, Properties>;
using Objects = std::map<sdbus::ObjectPath, Interfaces>;

constexpr char kAdapterPath[] = "/org/bluez/hci0";
constexpr char kAdapter[] = "org.bluez.Adapter1";
constexpr char kDevice[] = "org.bluez.Device1";

Objects objectsOf(sdbus::IConnection& bus) {
  Objects objects;
  const auto root = bluez::makeProxy(bus, kDaemon, "/");
  root->callMethod("GetManagedObjects")
      .onInterface("org.freedesktop.DBus.ObjectManager")
      .storeResultsTo(objects);
  return objects;
}

// The text of a property; empty when it is absent.
std::string textOf(const Interfaces& object, const std::string& interface,
                   const std::string& property) {
  const auto found = object.find(interface);
  if (found == object.end() || !found->second.contains(property)) return {};
  return found->second.at(property).get<std::string>();
}

// The first object of which `matches` is true, looked for until it is there.
std::string await(sdbus::IConnection& bus, const std::function<bool(const Interfaces&)>& matches) {
  while (true) {
    for (const auto& [path, object] : objectsOf(bus)) {
      if (matches(object)) return path;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
}

void awaitServices(sdbus::IProxy& device) {
  while (!device.getProperty("ServicesResolved").onInterface(kDevice).get<bool>()) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
}

}  // namespace

std::string connectToReader(sdbus::IConnection& bus) {
  const auto adapter = bluez::makeProxy(bus, kDaemon, kAdapterPath);
  adapter->callMethod("SetDiscoveryFilter")
      .onInterface(kAdapter)
      .withArguments(Properties{{"Transport", sdbus::Variant(std::string("le"))}});
  adapter->callMethod("StartDiscovery").onInterface(kAdapter);
  const std::string path = await(bus, [](const Interfaces& object) {
    return textOf(object, kDevice, "Name").starts_with(kReaderName);
  });
  adapter->callMethod("StopDiscovery").onInterface(kAdapter);
  const auto device = bluez::makeProxy(bus, kDaemon, path);
  tally().connecting();
  device->callMethod("Connect").onInterface(kDevice).withTimeout(std::chrono::seconds(60));
  awaitServices(*device);
  tally().servicesKnown();
  return await(bus, [](const Interfaces& object) {
    return textOf(object, kCharacteristic, "UUID") == kReceiveUUID;
  });
}

}  // namespace kestrin::bench
