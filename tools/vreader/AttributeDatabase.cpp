#include "tools/vreader/AttributeDatabase.h"

#include <utility>

#include "tools/vreader/Att.h"

namespace kestrin::vreader {

Bytes uuidBytes(const CBUUID& uuid) {
  if (const auto shortUUID = uuid.shortUUID()) return ByteWriter().u16(*shortUUID).take();
  return Bytes(uuid.bytes().rbegin(), uuid.bytes().rend());
}

std::optional<CBUUID> uuidFromBytes(ByteView bytes) {
  if (bytes.size() == 2) return CBUUID(ByteReader(bytes).u16());
  CBUUID::Bytes mostSignificantFirst{};
  if (bytes.size() != mostSignificantFirst.size()) return std::nullopt;
  std::copy(bytes.begin(), bytes.end(), mostSignificantFirst.rbegin());
  return CBUUID(mostSignificantFirst);
}

Attribute& AttributeDatabase::add(Attribute::Kind kind, const CBUUID& type, Bytes value) {
  const auto handle = static_cast<std::uint16_t>(attributes_.size() + 1);
  return attributes_.emplace_back(Attribute{handle, kind, type, std::move(value), type, handle, 0});
}

void AttributeDatabase::addService(const CBUUID& uuid) {
  add(Attribute::Kind::serviceDeclaration, CBUUID(att::kPrimaryService), uuidBytes(uuid));
}

std::uint16_t AttributeDatabase::addCharacteristic(const CBUUID& uuid, unsigned properties,
                                                   Bytes value) {
  const auto valueHandle = static_cast<std::uint16_t>(attributes_.size() + 2);
  add(Attribute::Kind::characteristicDeclaration, CBUUID(att::kCharacteristic),
      ByteWriter().u8(properties).u16(valueHandle).append(uuidBytes(uuid)).take());
  add(Attribute::Kind::value, uuid, std::move(value)).properties = properties;
  if ((properties & (att::kPropertyNotify | att::kPropertyIndicate)) != 0) {
    Attribute& configuration =
        add(Attribute::Kind::configuration, CBUUID(att::kClientCharacteristicConfiguration), {});
    configuration.characteristic = uuid;
    configuration.valueHandle = valueHandle;
    configuration.properties = properties;
  }
  return valueHandle;
}

std::span<const Attribute> AttributeDatabase::between(std::uint16_t first,
                                                      std::uint16_t last) const {
  if (first == 0 || first > last || first > attributes_.size()) return {};
  const std::size_t end = std::min<std::size_t>(last, attributes_.size());
  return std::span(attributes_).subspan(first - 1U, end - first + 1U);
}

const Attribute* AttributeDatabase::find(std::uint16_t handle) const {
  const auto found = between(handle, handle);
  return found.empty() ? nullptr : &found.front();
}

std::uint16_t AttributeDatabase::groupEnd(const Attribute& attribute) const {
  if (attribute.kind != Attribute::Kind::serviceDeclaration) return attribute.handle;
  for (std::size_t next = attribute.handle; next < attributes_.size(); ++next) {
    if (attributes_[next].kind == Attribute::Kind::serviceDeclaration) {
      return static_cast<std::uint16_t>(attributes_[next].handle - 1);
    }
  }
  return 0xFFFF;
}

}  // namespace kestrin::vreader
