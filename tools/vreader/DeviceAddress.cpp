#include "tools/vreader/DeviceAddress.h"

#include <algorithm>
#include <charconv>
#include <cstdio>

namespace kestrin::vreader {

std::optional<DeviceAddress> DeviceAddress::fromText(std::string_view text, Type type) {
  constexpr std::size_t kTextLength = 17;
  if (text.size() != kTextLength) return std::nullopt;
  DeviceAddress address;
  address.type = type;
  for (std::size_t i = 0; i < address.bytes.size(); ++i) {
    const std::string_view pair = text.substr(3 * i, 2);
    const char* const end = pair.data() + pair.size();
    std::uint8_t& byte = address.bytes[address.bytes.size() - 1 - i];
    const auto result = std::from_chars(pair.data(), end, byte, 16);
    if (result.ec != std::errc() || result.ptr != end) return std::nullopt;
    if (i > 0 && text[3 * i - 1] != ':') return std::nullopt;
  }
  return address;
}

DeviceAddress DeviceAddress::staticRandom(std::uint16_t number) {
  return {{static_cast<std::uint8_t>(number & 0xFF), static_cast<std::uint8_t>(number >> 8), 0x00,
           0x00, 0xDE, 0xC0},
          Type::randomDevice};
}

DeviceAddress DeviceAddress::read(ByteReader& packet) {
  DeviceAddress address;
  // Types above 0x01 are resolved identities, which this controller never reports.
  address.type = (packet.u8() & 1) == 0 ? Type::publicDevice : Type::randomDevice;
  const ByteView bytes = packet.take(address.bytes.size());
  std::copy(bytes.begin(), bytes.end(), address.bytes.begin());
  return address;
}

std::string DeviceAddress::text() const {
  std::array<char, 18> text{};
  std::snprintf(text.data(), text.size(), "%02X:%02X:%02X:%02X:%02X:%02X", bytes[5], bytes[4],
                bytes[3], bytes[2], bytes[1], bytes[0]);
  return text.data();
}

void DeviceAddress::write(ByteWriter& packet) const {
  packet.u8(static_cast<unsigned>(type)).append(bytes);
}

}  // namespace kestrin::vreader
