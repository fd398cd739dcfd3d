// From the daemon's properties and texts to this library's values, and back. Pure functions.
//
// The daemon's maps are not trusted: a property of another type than documented counts as not
// said, a text that is not a UUID names nothing.
//
// Threads: a D-Bus variant belongs to one thread at a time; everything else any.
// Lifetime: nothing is kept. Errors: nothing is thrown; absence says that there is no such value.
// The properties are those of BlueZ's D-Bus interfaces org.bluez.Adapter1, Device1, GattService1
// and GattCharacteristic1.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "BusLibrary.h"
#include "KestrinBLESDK/platform/CBCharacteristic.h"
#include "KestrinBLESDK/platform/CBUUID.h"

namespace kestrin::bluez {

using PropertyMap = std::map<std::string, sdbus::Variant>;

struct AdapterObject {
  bool powered = false;
};

struct DeviceObject {
  std::string address;
  std::optional<std::string> name;
  std::optional<int> rssi;
  bool connected = false;
  bool servicesResolved = false;
  std::vector<CBUUID> serviceUUIDs;
};

struct ServiceObject {
  std::optional<CBUUID> uuid;
};

struct CharacteristicObject {
  std::optional<CBUUID> uuid;
  CBCharacteristicProperties properties = 0;
  /// The daemon signals its values, because some program has asked for that.
  bool notifying = false;
  /// Some program gets its values through a descriptor.
  bool acquired = false;
};

/// What a message said about a device.
struct DeviceChange {
  /// The daemon has just seen the device: the message carries a signal strength.
  bool seen = false;
  bool named = false;
  std::optional<bool> connected;
  std::optional<bool> servicesResolved;
};

/// Brings an object up to date with what a message said about it.
void update(AdapterObject& adapter, const PropertyMap& changed);
DeviceChange update(DeviceObject& device, const PropertyMap& changed,
                    const std::vector<std::string>& invalidated);
void update(ServiceObject& service, const PropertyMap& changed);
void update(CharacteristicObject& characteristic, const PropertyMap& changed);

/// The bytes of a `Value` property.
std::optional<std::vector<std::uint8_t>> valueOf(const PropertyMap& changed);

/// The mask of a characteristic's `Flags` (bits: Bluetooth Core, Vol 3, Part G, 3.3.1.1).
CBCharacteristicProperties propertiesOfFlags(const std::vector<std::string>& flags);

/// The path of the object that holds this one: `/a/b` for `/a/b/c`.
std::string_view parentPath(std::string_view path);
/// The part after the last slash.
std::string_view lastElement(std::string_view path);
/// The attribute handle that ends the path of a service or characteristic (`.../char002a`).
std::optional<std::uint16_t> handleOfPath(std::string_view path);
/// Orders paths of services or characteristics by handle; those without one come last.
bool handleOrder(std::string_view a, std::string_view b);
/// The address in a device's path, `AA:BB:CC:DD:EE:FF`; the last element when it has no such form.
std::string addressOfPath(std::string_view path);

/// The adapter to use: the one called `wanted`, else the first that is powered, else the first.
/// `current` stays while it exists, unless it is off and nobody asked for it by name. Empty: none.
std::string chooseAdapter(const std::map<std::string, AdapterObject>& adapters,
                          const std::optional<std::string>& wanted, const std::string& current,
                          bool currentWasPowered);

}  // namespace kestrin::bluez
