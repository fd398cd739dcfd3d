#include "KestrinBLESDK/platform/NSData.h"

#include <algorithm>
#include <cstring>

namespace kestrin {

NSData::NSData(std::initializer_list<std::uint8_t> bytes)
    : NSData(std::span(bytes.begin(), bytes.size())) {}

NSData::NSData(std::span<const std::uint8_t> bytes) : length_(bytes.size()) {
  if (bytes.empty()) return;
  // Uninitialised, because every byte is overwritten on the next line.
  auto storage = std::make_shared_for_overwrite<std::uint8_t[]>(bytes.size());
  std::memcpy(storage.get(), bytes.data(), bytes.size());
  bytes_ = std::move(storage);
}

NSData NSData::dataWithBytes_length(const void* bytes, std::size_t length) {
  if (bytes == nullptr) return {};
  return NSData(std::span(static_cast<const std::uint8_t*>(bytes), length));
}

NSData NSData::subdataWithRange(NSRange range) const {
  const std::size_t first = std::min(range.location, length_);
  return NSData(span().subspan(first, std::min(range.length, length_ - first)));
}

NSMutableData NSData::mutableCopy() const { return NSMutableData(span()); }

std::string NSData::description() const { return descriptionOfBytes(span()); }

bool operator==(const NSData& a, const NSData& b) noexcept {
  return std::ranges::equal(a.span(), b.span());
}

std::string descriptionOfBytes(std::span<const std::uint8_t> bytes) {
  static constexpr char kDigits[] = "0123456789abcdef";
  static constexpr std::size_t kGroup = 4;
  std::string text = "<";
  text.reserve(2 + bytes.size() * 2 + bytes.size() / kGroup);
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (i != 0 && i % kGroup == 0) text += ' ';
    text += kDigits[bytes[i] >> 4];
    text += kDigits[bytes[i] & 0x0F];
  }
  text += '>';
  return text;
}

}  // namespace kestrin
