#include "radios/bluez/BusService.h"

#include <gtest/gtest.h>

#include <future>
#include <utility>

namespace kestrin::bluez::test {
namespace {

constexpr char kObjectManager[] = "org.freedesktop.DBus.ObjectManager";
constexpr char kProperties[] = "org.freedesktop.DBus.Properties";

struct MethodShape {
  const char* interface;
  const char* name;
  const char* in;
  const char* out;
};
constexpr MethodShape kMethods[] = {
    {"org.bluez.Adapter1", "GetDiscoveryFilters", "", "as"},
    {"org.bluez.Adapter1", "SetDiscoveryFilter", "a{sv}", ""},
    {"org.bluez.Adapter1", "StartDiscovery", "", ""},
    {"org.bluez.Adapter1", "StopDiscovery", "", ""},
    {"org.bluez.Device1", "Connect", "", ""},
    {"org.bluez.Device1", "Disconnect", "", ""},
    {"org.bluez.GattCharacteristic1", "ReadValue", "a{sv}", "ay"},
    {"org.bluez.GattCharacteristic1", "WriteValue", "aya{sv}", ""},
    {"org.bluez.GattCharacteristic1", "AcquireNotify", "a{sv}", "hq"},
    {"org.bluez.GattCharacteristic1", "StartNotify", "", ""},
    {"org.bluez.GattCharacteristic1", "StopNotify", "", ""},
};

/// Appends what a variant holds, without the variant around it.
void appendContents(sdbus::Message& message, const sdbus::Variant& value) {
  const std::string type = typeIn(value);
  if (type == "s") {
    message << value.get<std::string>();
  } else if (type == "b") {
    message << value.get<bool>();
  } else if (type == "n") {
    message << value.get<std::int16_t>();
  } else if (type == "as") {
    message << value.get<std::vector<std::string>>();
  } else if (type == "ay") {
    message << value.get<std::vector<std::uint8_t>>();
  } else if (type == "x") {
    message << value.get<std::int64_t>();
  } else {
    ADD_FAILURE() << "no way to append a value of type " << type;
  }
}

}  // namespace

BusService::BusService(const std::string& address, Handler handler)
    : handler_(std::move(handler)),
      thread_(BusThread::create()),
      connection_(sdbus::createSessionBusConnectionWithAddress(address)),
      root_(publishRoot(*connection_)) {
  thread_->setSource(this);
  runner_ = std::thread([thread = thread_] { thread->run(); });
}

BusService::~BusService() {
  thread_->post([this] {
    objects_.clear();
    root_.reset();
    connection_.reset();
    thread_->end();
  });
  runner_.join();
}

void BusService::run(const std::function<void()>& work) {
  std::promise<void> done;
  thread_->post([&] {
    work();
    done.set_value();
  });
  done.get_future().wait();
}

void BusService::ownName(const std::string& name) { takeName(*connection_, name); }

void BusService::releaseName(const std::string& name) { giveUpName(*connection_, name); }

std::optional<PollSource::Wait> BusService::wait() noexcept {
  if (!connection_) return std::nullopt;
  try {
    const auto poll = connection_->getEventLoopPollData();
    return Wait{.descriptor = poll.fd, .events = poll.events, .limit = timeToNextEvent(poll)};
  } catch (const sdbus::Error&) {
    return std::nullopt;  // The bus has gone; the test knows.
  }
}

// One message in a round, so that changed objects are published again before the next one.
void BusService::process() noexcept {
  for (const auto& path : std::exchange(stale_, {})) {
    if (objects_.contains(path)) publish(path);
  }
  if (!connection_) return;
  try {
    processOne(*connection_);
  } catch (const sdbus::Error&) {
  }
}

void BusService::putQuietly(const std::string& path, const Interfaces& interfaces) {
  objects_[path].interfaces = interfaces;
  publish(path);
}

void BusService::put(const std::string& path, const Interfaces& interfaces) {
  putQuietly(path, interfaces);
  signal("/", kObjectManager, "InterfacesAdded",
         [&](sdbus::Signal& message) { message << sdbus::ObjectPath(path) << interfaces; });
}

void BusService::remove(const std::string& path) {
  const auto found = objects_.find(path);
  if (found == objects_.end()) return;
  std::vector<std::string> names;
  for (const auto& [name, properties] : found->second.interfaces) names.push_back(name);
  objects_.erase(found);
  signal("/", kObjectManager, "InterfacesRemoved",
         [&](sdbus::Signal& message) { message << sdbus::ObjectPath(path) << names; });
}

std::vector<std::string> BusService::pathsBelow(const std::string& path) const {
  std::vector<std::string> paths;
  for (const auto& [candidate, object] : objects_) {
    if (candidate.compare(0, path.size() + 1, path + "/") == 0) paths.push_back(candidate);
  }
  return paths;
}

const sdbus::Variant* BusService::property(const std::string& path, const std::string& interface,
                                           const std::string& name) const {
  const auto object = objects_.find(path);
  if (object == objects_.end()) return nullptr;
  const auto properties = object->second.interfaces.find(interface);
  if (properties == object->second.interfaces.end()) return nullptr;
  const auto found = properties->second.find(name);
  return found == properties->second.end() ? nullptr : &found->second;
}

void BusService::change(const std::string& path, const std::string& interface,
                        const Properties& changed, const std::vector<std::string>& invalidated) {
  auto& properties = objects_[path].interfaces[interface];
  for (const auto& [name, value] : changed) {
    const auto known = properties.find(name);
    if (known == properties.end() || typeIn(known->second) != typeIn(value)) {
      stale_.insert(path);
    }
    properties[name] = value;
  }
  for (const auto& name : invalidated) {
    if (properties.erase(name) != 0) stale_.insert(path);
  }
  signal(path, kProperties, "PropertiesChanged",
         [&](sdbus::Signal& message) { message << interface << changed << invalidated; });
}

void BusService::signal(const std::string& path, const std::string& interface,
                        const std::string& member,
                        const std::function<void(sdbus::Signal&)>& contents) {
  const auto object = objects_.find(path);
  auto& sender =
      object == objects_.end() || !object->second.published ? *root_ : *object->second.published;
  auto message = makeSignal(sender, interface, member);
  contents(message);
  message.send();
}

void BusService::publish(const std::string& path) {
  Object& object = objects_[path];
  object.published.reset();
  std::vector<ServedInterface> interfaces;
  for (const auto& [interface, properties] : object.interfaces) {
    interfaces.push_back(served(path, interface, properties));
  }
  object.published = publishObject(*connection_, path, std::move(interfaces));
}

ServedInterface BusService::served(const std::string& path, const std::string& interface,
                                   const Properties& properties) {
  ServedInterface served{.name = interface, .methods = {}, .properties = {}};
  for (const auto& method : kMethods) {
    if (interface != method.interface) continue;
    served.methods.push_back(
        {method.name, method.in, method.out,
         [this, path, name = std::string(method.name)](sdbus::MethodCall call) {
           handler_(path, name, std::move(call));
         }});
  }
  for (const auto& entry : properties) {
    const std::string& name = entry.first;
    served.properties.push_back(
        {name, typeIn(entry.second), [this, path, interface, name](sdbus::PropertyGetReply& reply) {
           if (const auto* now = property(path, interface, name)) appendContents(reply, *now);
         }});
  }
  return served;
}

}  // namespace kestrin::bluez::test
