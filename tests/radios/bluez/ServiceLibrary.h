// What the tests' services need of the bus library, beside what clients need: the other half of
// radios/bluez/src/BusLibrary.h, and the only other place that knows the library's major version.
//
// Threads: those of the connection. Errors: sdbus::Error is thrown.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "BusLibrary.h"

namespace kestrin::bluez::test {

using MethodHandler = std::function<void(sdbus::MethodCall)>;
using PropertyGetter = std::function<void(sdbus::PropertyGetReply&)>;

struct ServedMethod {
  std::string name;
  std::string in;   ///< The types of its arguments, as the bus writes them.
  std::string out;  ///< Those of what it answers.
  MethodHandler handler;
};

struct ServedProperty {
  std::string name;
  std::string type;
  PropertyGetter getter;
};

struct ServedInterface {
  std::string name;
  std::vector<ServedMethod> methods;
  std::vector<ServedProperty> properties;
};

inline void takeName(sdbus::IConnection& connection, const std::string& name) {
  connection.requestName(BusServiceName(name));
}

inline void giveUpName(sdbus::IConnection& connection, const std::string& name) {
  connection.releaseName(BusServiceName(name));
}

inline sdbus::Signal makeSignal(sdbus::IObject& object, const std::string& interface,
                                const std::string& member) {
  return object.createSignal(BusInterfaceName(interface), BusMemberName(member));
}

#if KESTRIN_SDBUS_MAJOR == 1
inline void addInterface(sdbus::IObject& object, ServedInterface interface) {
  for (auto& method : interface.methods) {
    object.registerMethod(interface.name, method.name, method.in, method.out,
                          std::move(method.handler));
  }
  for (auto& property : interface.properties) {
    object.registerProperty(interface.name, property.name, property.type,
                            std::move(property.getter));
  }
}
#else
inline void addInterface(sdbus::IObject& object, ServedInterface interface) {
  std::vector<sdbus::VTableItem> items;
  for (auto& method : interface.methods) {
    auto item = sdbus::registerMethod(method.name);
    item.inputSignature = sdbus::Signature(method.in);
    item.outputSignature = sdbus::Signature(method.out);
    item.callbackHandler = std::move(method.handler);
    items.emplace_back(std::move(item));
  }
  for (auto& property : interface.properties) {
    auto item = sdbus::registerProperty(property.name);
    item.signature = sdbus::Signature(property.type);
    item.getter = std::move(property.getter);
    items.emplace_back(std::move(item));
  }
  object.addVTable(BusInterfaceName(interface.name), std::move(items));
}
#endif

/// An object with these interfaces.
inline std::unique_ptr<sdbus::IObject> publishObject(sdbus::IConnection& connection,
                                                     const std::string& path,
                                                     std::vector<ServedInterface> interfaces) {
  auto object = sdbus::createObject(connection, BusPath(path));
  for (auto& interface : interfaces) addInterface(*object, std::move(interface));
#if KESTRIN_SDBUS_MAJOR == 1
  object->finishRegistration();
#endif
  return object;
}

/// The object at the root, which lists all the others.
inline std::unique_ptr<sdbus::IObject> publishRoot(sdbus::IConnection& connection) {
  auto object = sdbus::createObject(connection, BusPath("/"));
  object->addObjectManager();
#if KESTRIN_SDBUS_MAJOR == 1
  object->finishRegistration();
#endif
  return object;
}

}  // namespace kestrin::bluez::test
