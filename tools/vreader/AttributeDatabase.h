// The attributes of one GATT server, in order of their handles from 1 on: service declarations,
// characteristic declarations, values and client characteristic configurations (Bluetooth Core
// Document, Vol 3, Part G, 3).
//
// Threads: one at a time while it is built; then it may be read from any.
// Lifetime: attributes stay where they are once the database is built.
// Errors: none; a characteristic needs a service before it.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "KestrinBLESDK/platform/CBUUID.h"
#include "tools/vreader/Bytes.h"

namespace kestrin::vreader {

/// A UUID as packets carry it: two bytes where it has a 16-bit form, else sixteen.
Bytes uuidBytes(const CBUUID& uuid);
/// Reads such a UUID; absent for any other length.
std::optional<CBUUID> uuidFromBytes(ByteView bytes);

struct Attribute {
  enum class Kind { serviceDeclaration, characteristicDeclaration, value, configuration };

  std::uint16_t handle = 0;
  Kind kind = Kind::value;
  CBUUID type;
  /// What a read gives. A configuration's value belongs to a link, not to the database.
  Bytes value;
  /// The characteristic that a value or a configuration belongs to: its UUID, the handle of its
  /// value and its properties.
  CBUUID characteristic;
  std::uint16_t valueHandle = 0;
  unsigned properties = 0;
};

class AttributeDatabase {
 public:
  /// Begins a primary service.
  void addService(const CBUUID& uuid);
  /// Adds a characteristic to the service begun last, with a configuration where it can notify or
  /// indicate. Returns the handle of its value.
  std::uint16_t addCharacteristic(const CBUUID& uuid, unsigned properties, Bytes value = {});

  [[nodiscard]] std::span<const Attribute> all() const noexcept { return attributes_; }
  /// The attributes with handles from `first` to `last`, both included.
  [[nodiscard]] std::span<const Attribute> between(std::uint16_t first, std::uint16_t last) const;
  /// The attribute of that handle; null when there is none.
  [[nodiscard]] const Attribute* find(std::uint16_t handle) const;
  /// The last handle of the group that a service declaration begins: its own service's last, or
  /// 0xFFFF for the last service. Any other attribute is a group of itself.
  [[nodiscard]] std::uint16_t groupEnd(const Attribute& attribute) const;

 private:
  Attribute& add(Attribute::Kind kind, const CBUUID& type, Bytes value);

  std::vector<Attribute> attributes_;
};

}  // namespace kestrin::vreader
