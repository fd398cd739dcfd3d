#include "KestrinBLESDK/platform/NSString.h"

#include <algorithm>

namespace kestrin {

std::optional<std::string> initWithData_encoding(const std::optional<NSData>& data,
                                                 NSStringEncoding encoding) {
  if (!data || encoding != NSStringEncoding::NSASCIIStringEncoding) return std::nullopt;
  const auto isCharacter = [](std::uint8_t byte) { return byte < 0x80; };
  if (!std::ranges::all_of(*data, isCharacter)) return std::nullopt;
  return std::string(data->begin(), data->end());
}

}  // namespace kestrin
