/// \file
/// Byte buffers: `NSData` is immutable and cheap to copy (copies share the bytes), `NSMutableData`
/// grows and is owned by one holder. Frames, slices and notified values cross every interface as
/// `NSData`.
///
/// Threads: an `NSData` may be read and copied from any thread at once. An `NSMutableData` belongs
/// to one thread at a time.
///
/// Lifetime: `bytes()` stays valid as long as any copy of that `NSData` lives; for `NSMutableData`
/// until the next change.
///
/// Errors: none. Running out of memory ends the program, as everywhere in this library.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "KestrinBLESDK/platform/Export.h"

namespace kestrin {
/// \addtogroup platform
/// @{

class NSMutableData;

/// A range of bytes: `location` is the first byte's index, `length` the number of bytes.
struct NSRange {
  std::size_t location = 0;  ///< The first byte's index.
  std::size_t length = 0;    ///< How many bytes.
};

/// Bytes that never change, cheap to copy: copies share them.
class KESTRIN_EXPORT NSData {
 public:
  /// An empty buffer.
  NSData() noexcept = default;
  /// A buffer holding the listed bytes.
  NSData(std::initializer_list<std::uint8_t> bytes);
  /// A buffer holding a copy of `bytes`.
  explicit NSData(std::span<const std::uint8_t> bytes);

  /// `dataWithBytes:length:` A buffer holding a copy of `length` bytes at `bytes`.
  static NSData dataWithBytes_length(const void* bytes, std::size_t length);
  /// `dataWithData:` The same bytes; nothing is copied, since they cannot change.
  static NSData dataWithData(const NSData& data) noexcept { return data; }

  /// `length` The number of bytes.
  [[nodiscard]] std::size_t length() const noexcept { return length_; }
  /// `bytes` The first byte; null when empty.
  [[nodiscard]] const std::uint8_t* bytes() const noexcept { return bytes_.get(); }
  /// `subdataWithRange:` A copy of the part of `range` that lies within this buffer.
  [[nodiscard]] NSData subdataWithRange(NSRange range) const;
  /// `copy` This buffer itself: immutable bytes are shared.
  [[nodiscard]] NSData copy() const noexcept { return *this; }
  /// `mutableCopy` A growable buffer holding a copy of the bytes.
  [[nodiscard]] NSMutableData mutableCopy() const;
  /// `description` The bytes as the log shows them: lower-case hex in groups of four bytes, whole
  /// and never shortened, for example `<bb000300 01b17e65 97>`; `<>` when empty.
  [[nodiscard]] std::string description() const;

  /// A view of the bytes, valid as long as any copy of this buffer lives.
  [[nodiscard]] std::span<const std::uint8_t> span() const noexcept {
    return {bytes_.get(), length_};
  }
  /// The first byte, for range loops.
  [[nodiscard]] const std::uint8_t* begin() const noexcept { return bytes_.get(); }
  /// One past the last byte.
  [[nodiscard]] const std::uint8_t* end() const noexcept { return bytes_.get() + length_; }
  /// Whether both hold the same bytes.
  friend KESTRIN_EXPORT bool operator==(const NSData& a, const NSData& b) noexcept;

 private:
  std::shared_ptr<const std::uint8_t[]> bytes_;
  std::size_t length_ = 0;
};

/// Bytes that grow and shrink, owned by one holder.
class KESTRIN_EXPORT NSMutableData {
 public:
  /// An empty buffer.
  NSMutableData() noexcept = default;
  /// A buffer holding a copy of `bytes`.
  explicit NSMutableData(std::span<const std::uint8_t> bytes)
      : storage_(bytes.begin(), bytes.end()), length_(bytes.size()) {}
  /// A buffer holding a copy of the other's bytes.
  NSMutableData(const NSMutableData&) = default;
  /// The same, in the place of this buffer's own bytes.
  NSMutableData& operator=(const NSMutableData&) = default;
  /// Takes the bytes of `other` over, which is empty afterwards.
  NSMutableData(NSMutableData&& other) noexcept
      : storage_(std::exchange(other.storage_, {})),
        first_(std::exchange(other.first_, 0)),
        length_(std::exchange(other.length_, 0)) {}
  /// The same, in the place of this buffer's own bytes.
  NSMutableData& operator=(NSMutableData&& other) noexcept {
    auto bytes = std::exchange(other.storage_, {});
    first_ = std::exchange(other.first_, 0);
    length_ = std::exchange(other.length_, 0);
    storage_ = std::move(bytes);
    return *this;
  }
  ~NSMutableData() = default;

  /// `length` The number of bytes.
  [[nodiscard]] std::size_t length() const noexcept { return length_; }
  /// `bytes` The first byte; valid until the buffer is changed next.
  [[nodiscard]] const std::uint8_t* bytes() const noexcept { return storage_.data() + first_; }
  /// `appendData:` Adds the bytes at the end.
  void appendData(const NSData& data) {
    const std::size_t added = data.length();
    if (added > storage_.size() - first_ - length_) makeRoomFor(length_ + added);
    copyBytes(data.bytes(), added, storage_.data() + first_ + length_);
    length_ += added;
  }
  /// `setLength:` Cuts the buffer to `length` bytes, or grows it with zero bytes.
  void setLength(std::size_t length);
  /// `replaceBytesInRange:withBytes:length:` The part of `range` that lies within this buffer gives
  /// way to the `length` bytes at `bytes`, which are not this buffer's own; with a length of 0,
  /// where `bytes` may be null, it is taken out.
  void replaceBytesInRange_withBytes_length(NSRange range, const std::uint8_t* bytes,
                                            std::size_t length) {
    if (range.location == 0 && length == 0) {
      dropFirst(std::min(range.length, length_));
    } else {
      replaceInside(range, bytes, length);
    }
  }
  /// `copy` An immutable buffer holding a copy of the bytes.
  [[nodiscard]] NSData copy() const { return NSData(span()); }
  /// A view of the bytes, valid until the buffer is changed next.
  [[nodiscard]] std::span<const std::uint8_t> span() const noexcept { return {bytes(), length_}; }

 private:
  void makeRoomFor(std::size_t length);
  void replaceInside(NSRange range, const std::uint8_t* bytes, std::size_t length);
  void dropFirst(std::size_t count) noexcept {
    length_ -= count;
    first_ = length_ == 0 ? 0 : first_ + count;
  }
  // 16 to 32 bytes, 20 of which the smallest packets carry, are copied as their first and their
  // last 16: a call would cost more than the copy.
  static void copyBytes(const std::uint8_t* from, std::size_t length, std::uint8_t* to) noexcept {
    constexpr std::size_t kPart = 16;
    if (length >= kPart && length <= 2 * kPart) {
      std::memcpy(to, from, kPart);
      std::memcpy(to + length - kPart, from + length - kPart, kPart);
    } else {
      std::copy_n(from, length, to);
    }
  }

  // The bytes lie in the middle: in front of them is the room of those that were taken out there,
  // behind them room for more. So adding a few is no more than a copy, and taking the first out
  // moves none.
  std::vector<std::uint8_t> storage_;
  std::size_t first_ = 0;
  std::size_t length_ = 0;
};

/// The bytes as the log shows them, see `NSData::description`.
KESTRIN_EXPORT std::string descriptionOfBytes(std::span<const std::uint8_t> bytes);

/// @}

}  // namespace kestrin
