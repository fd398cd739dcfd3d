#include "Conversions.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <tuple>
#include <utility>

namespace kestrin::bluez {
namespace {

template <typename Value>
std::optional<Value> property(const PropertyMap& properties, const char* name) {
  const auto found = properties.find(name);
  if (found == properties.end()) return std::nullopt;
  try {
    if (!found->second.containsValueOfType<Value>()) return std::nullopt;
    return found->second.get<Value>();
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

std::optional<CBUUID> uuidProperty(const PropertyMap& properties) {
  const auto text = property<std::string>(properties, "UUID");
  return text ? CBUUID::UUIDWithString(*text) : std::nullopt;
}

bool startsWith(std::string_view text, std::string_view start) {
  return text.substr(0, start.size()) == start;
}

/// Names carry a number without leading zeros, so the shorter one is the earlier.
bool adapterOrder(const std::string* a, const std::string* b) {
  return std::pair(a->size(), std::string_view(*a)) < std::pair(b->size(), std::string_view(*b));
}

}  // namespace

void update(AdapterObject& adapter, const PropertyMap& changed) {
  if (const auto powered = property<bool>(changed, "Powered")) adapter.powered = *powered;
}

DeviceChange update(DeviceObject& device, const PropertyMap& changed,
                    const std::vector<std::string>& invalidated) {
  DeviceChange change;
  for (const auto& name : invalidated) {
    if (name == "RSSI") device.rssi.reset();
    if (name == "Name" && device.name) {
      device.name.reset();
      change.named = true;
    }
  }
  if (auto address = property<std::string>(changed, "Address")) device.address = *address;
  if (auto name = property<std::string>(changed, "Name"); name && name != device.name) {
    device.name = std::move(name);
    change.named = true;
  }
  if (const auto rssi = property<std::int16_t>(changed, "RSSI")) {
    device.rssi = *rssi;
    change.seen = true;
  }
  if (const auto uuids = property<std::vector<std::string>>(changed, "UUIDs")) {
    device.serviceUUIDs.clear();
    for (const auto& text : *uuids) {
      if (const auto uuid = CBUUID::UUIDWithString(text)) device.serviceUUIDs.push_back(*uuid);
    }
  }
  change.connected = property<bool>(changed, "Connected");
  change.servicesResolved = property<bool>(changed, "ServicesResolved");
  device.connected = change.connected.value_or(device.connected);
  device.servicesResolved = change.servicesResolved.value_or(device.servicesResolved);
  return change;
}

void update(ServiceObject& service, const PropertyMap& changed) {
  if (const auto uuid = uuidProperty(changed)) service.uuid = uuid;
}

void update(CharacteristicObject& characteristic, const PropertyMap& changed) {
  if (const auto uuid = uuidProperty(changed)) characteristic.uuid = uuid;
  if (const auto flags = property<std::vector<std::string>>(changed, "Flags")) {
    characteristic.properties = propertiesOfFlags(*flags);
  }
  const auto notifying = property<bool>(changed, "Notifying");
  characteristic.notifying = notifying.value_or(characteristic.notifying);
  const auto acquired = property<bool>(changed, "NotifyAcquired");
  characteristic.acquired = acquired.value_or(characteristic.acquired);
}

std::optional<std::vector<std::uint8_t>> valueOf(const PropertyMap& changed) {
  return property<std::vector<std::uint8_t>>(changed, "Value");
}

CBCharacteristicProperties propertiesOfFlags(const std::vector<std::string>& flags) {
  static constexpr CBCharacteristicProperties kBroadcast = 0x01;
  static constexpr CBCharacteristicProperties kSignedWrite = 0x40;
  static constexpr std::array<std::pair<std::string_view, CBCharacteristicProperties>, 7> kBits{{
      {"broadcast", kBroadcast},
      {"read", CBCharacteristicPropertyRead},
      {"write-without-response", CBCharacteristicPropertyWriteWithoutResponse},
      {"write", CBCharacteristicPropertyWrite},
      {"notify", CBCharacteristicPropertyNotify},
      {"indicate", CBCharacteristicPropertyIndicate},
      {"authenticated-signed-writes", kSignedWrite},
  }};
  CBCharacteristicProperties mask = 0;
  for (const auto& flag : flags) {
    for (const auto& [name, bit] : kBits) {
      if (flag == name) mask |= bit;
    }
  }
  return mask;
}

std::string_view parentPath(std::string_view path) {
  const auto slash = path.rfind('/');
  return slash == std::string_view::npos ? std::string_view{} : path.substr(0, slash);
}

std::string_view lastElement(std::string_view path) {
  const auto slash = path.rfind('/');
  return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

std::optional<std::uint16_t> handleOfPath(std::string_view path) {
  const auto element = lastElement(path);
  const auto prefix = startsWith(element, "service") ? 7U : startsWith(element, "char") ? 4U : 0U;
  const auto digits = element.substr(prefix);
  std::uint16_t handle = 0;
  const char* const end = digits.data() + digits.size();
  const auto [stop, error] = std::from_chars(digits.data(), end, handle, 16);
  if (prefix == 0 || digits.empty() || error != std::errc{} || stop != end) return std::nullopt;
  return handle;
}

bool handleOrder(std::string_view a, std::string_view b) {
  const auto handleA = handleOfPath(a);
  const auto handleB = handleOfPath(b);
  return std::tuple(!handleA, handleA.value_or(0), a) <
         std::tuple(!handleB, handleB.value_or(0), b);
}

std::string addressOfPath(std::string_view path) {
  static constexpr std::string_view kPrefix = "dev_";
  static constexpr std::size_t kAddressLength = 17;
  std::string element(lastElement(path));
  if (!startsWith(element, kPrefix) || element.size() != kPrefix.size() + kAddressLength) {
    return element;
  }
  std::string address = element.substr(kPrefix.size());
  std::replace(address.begin(), address.end(), '_', ':');
  return address;
}

std::string chooseAdapter(const std::map<std::string, AdapterObject>& adapters,
                          const std::optional<std::string>& wanted, const std::string& current,
                          bool currentWasPowered) {
  if (wanted) {
    for (const auto& [path, adapter] : adapters) {
      if (lastElement(path) == *wanted) return path;
    }
    return {};
  }
  const auto known = adapters.find(current);
  if (known != adapters.end() && (known->second.powered || currentWasPowered)) return current;
  std::vector<const std::string*> paths;
  paths.reserve(adapters.size());
  for (const auto& [path, adapter] : adapters) paths.push_back(&path);
  if (paths.empty()) return {};
  std::sort(paths.begin(), paths.end(), adapterOrder);
  const auto powered = std::find_if(paths.begin(), paths.end(), [&](const std::string* path) {
    return adapters.at(*path).powered;
  });
  return powered == paths.end() ? *paths.front() : **powered;
}

}  // namespace kestrin::bluez
