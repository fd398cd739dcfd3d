// The bus's and the daemon's side of a diagnosis. It waits for answers, which the radio never does,
// so it has a connection of its own.
#include <algorithm>
#include <cstdio>
#include <future>
#include <system_error>
#include <thread>
#include <utility>

#include "Bus.h"
#include "BusSocket.h"
#include "DiagnosisFacts.h"

namespace kestrin::bluez {
namespace {

constexpr char kLookedAtAdapter[] = "org.bluez.Adapter1";
constexpr char kTimeout[] = "org.freedesktop.DBus.Error.Timeout";

using Connection = std::shared_ptr<sdbus::IConnection>;

struct Opened {
  Connection connection;
  std::optional<CallError> error;
};

template <typename Value>
std::optional<Value> saidIn(const PropertyMap& properties, const std::string& name) {
  const auto found = properties.find(name);
  if (found == properties.end() || !found->second.containsValueOfType<Value>()) {
    return std::nullopt;
  }
  return found->second.get<Value>();
}

Opened openNow(const std::optional<std::string>& address) noexcept {
  try {
    if (auto error = whyNoBusListens(address)) return {nullptr, std::move(error)};
    return {address ? sdbus::createSessionBusConnectionWithAddress(*address)
                    : sdbus::createSystemBusConnection(),
            std::nullopt};
  } catch (const sdbus::Error& error) {
    return {nullptr, CallError{error.getName(), error.getMessage()}};
  }
}

/// The bus library waits a minute and more for a bus that takes a connection and says nothing, so
/// it does that on a thread that nobody waits for.
Opened openWithin(Time limit, const std::optional<std::string>& address) {
  const auto opened = std::make_shared<std::promise<Opened>>();
  auto future = opened->get_future();
  std::thread([opened, address] { opened->set_value(openNow(address)); }).detach();
  if (future.wait_for(limit) == std::future_status::ready) return future.get();
  return {nullptr, CallError{kTimeout, "it takes connections but does not answer"}};
}

/// Waits for the answer of one call.
class Asking {
 public:
  Asking(sdbus::IConnection& connection, Time limit) : connection_(connection), limit_(limit) {}

  template <typename Value, typename... Arguments>
  std::optional<Value> ask(const std::string& destination, const std::string& path,
                           const std::string& interface, const std::string& method,
                           const Arguments&... arguments) {
    error.reset();
    try {
      const auto proxy = makeProxy(connection_, destination, path);
      auto call = makeCall(*proxy, interface, method);
      (void)(call << ... << arguments);
      auto reply = callAndWait(*proxy, call, limit_);
      Value value;
      reply >> value;
      return value;
    } catch (const sdbus::Error& failure) {
      error = CallError{failure.getName(), failure.getMessage()};
      return std::nullopt;
    }
  }

  std::optional<CallError> error;  ///< Why the last call has no answer.

 private:
  sdbus::IConnection& connection_;
  const Time limit_;
};

/// The daemon names itself where a USB device would name its maker: v1D6Bp0246, then d and its
/// version, `d0542` for 5.66.
std::string versionIn(const std::string& modalias) {
  unsigned major = 0;
  unsigned minor = 0;
  if (std::sscanf(modalias.c_str(), "usb:v1D6Bp0246d%2x%2x", &major, &minor) != 2) return {};
  return std::to_string(major) + '.' + (minor < 10 ? "0" : "") + std::to_string(minor);
}

AdapterFacts adapterFacts(const PropertyMap& properties) {
  AdapterFacts facts;
  update(facts.object, properties);
  facts.address = saidIn<std::string>(properties, "Address").value_or("");
  facts.alias = saidIn<std::string>(properties, "Alias").value_or("");
  // Daemons of before 5.59 do not say.
  if (const auto roles = saidIn<std::vector<std::string>>(properties, "Roles")) {
    facts.isCentral = std::find(roles->begin(), roles->end(), "central") != roles->end();
  }
  return facts;
}

using ObjectsOfDaemon = std::map<sdbus::ObjectPath, std::map<std::string, PropertyMap>>;

void takeObjects(const ObjectsOfDaemon& objects, DaemonFacts& facts) {
  for (const auto& [path, interfaces] : objects) {
    const auto adapter = interfaces.find(kLookedAtAdapter);
    if (adapter == interfaces.end()) continue;
    facts.adapters[path] = adapterFacts(adapter->second);
    const auto modalias = saidIn<std::string>(adapter->second, "Modalias");
    if (modalias && facts.version.empty()) facts.version = versionIn(*modalias);
  }
}

}  // namespace

DaemonFacts lookAtDaemon(const Options& options, Time limit) {
  DaemonFacts facts;
  Opened bus = openWithin(limit, options.busAddress);
  facts.busTrouble = std::move(bus.error);
  if (!bus.connection) return facts;
  Asking asking(*bus.connection, limit);
  const auto owner = asking.ask<std::string>(kBusName, "/org/freedesktop/DBus", kBusName,
                                             "GetNameOwner", std::string(kDaemonName));
  facts.isThere = owner.has_value();
  if (!owner) {
    const bool nobody =
        asking.error && asking.error->name == "org.freedesktop.DBus.Error.NameHasNoOwner";
    if (!nobody) facts.busTrouble = asking.error;
    return facts;
  }
  // A call to the daemon's name, not to its owner's, would start a daemon that has gone meanwhile.
  const auto objects = asking.ask<ObjectsOfDaemon>(
      *owner, "/", "org.freedesktop.DBus.ObjectManager", "GetManagedObjects");
  facts.trouble = asking.error;
  if (!objects) return facts;
  takeObjects(*objects, facts);
  // What may be listed may yet not be used.
  for (const auto& [path, adapter] : facts.adapters) {
    const auto filters =
        asking.ask<std::vector<std::string>>(*owner, path, kLookedAtAdapter, "GetDiscoveryFilters");
    if (!filters && asking.error && isRefusal(*asking.error)) facts.trouble = asking.error;
  }
  return facts;
}

}  // namespace kestrin::bluez
