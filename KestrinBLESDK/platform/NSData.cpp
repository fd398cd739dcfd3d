#include "KestrinBLESDK/platform/NSData.h"

#include <algorithm>
#include <cstring>

namespace kestrin {
namespace {

// What a growable buffer has room for at least, once it grows: 25 arrivals of 20 bytes.
constexpr std::size_t kLeastRoom = 512;

}  // namespace

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

void NSMutableData::makeRoomFor(std::size_t length) {
  // Moved to the front only when that frees half of the room, so that bytes are not moved for every
  // few that are added.
  const bool enough = length <= storage_.size() && first_ >= storage_.size() / 2;
  if (first_ > 0) std::memmove(storage_.data(), bytes(), length_);
  first_ = 0;
  if (!enough) storage_.resize(std::max({length, 2 * storage_.size(), kLeastRoom}));
}

void NSMutableData::setLength(std::size_t length) {
  if (length > storage_.size() - first_) makeRoomFor(length);
  std::uint8_t* const first = storage_.data() + first_;
  if (length > length_) std::fill_n(first + length_, length - length_, std::uint8_t{0});
  if (length == 0) first_ = 0;
  length_ = length;
}

void NSMutableData::replaceInside(NSRange range, const std::uint8_t* bytes, std::size_t length) {
  const std::size_t start = std::min(range.location, length_);
  const std::size_t behind = start + std::min(range.length, length_ - start);
  const std::size_t rest = length_ - behind;
  const std::size_t whole = start + length + rest;
  if (whole > storage_.size() - first_) makeRoomFor(whole);
  std::uint8_t* const first = storage_.data() + first_;
  if (rest > 0) std::memmove(first + start + length, first + behind, rest);
  std::copy_n(bytes, length, first + start);
  length_ = whole;
}

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
