#include "Values.h"

#include "Strong.h"

namespace kestrin::corebluetooth {
namespace {

/// Nil for bytes that are no UTF-8.
Strong<::NSString*> decoded(std::string_view text) {
  return Strong<::NSString*>::adopt([[::NSString alloc] initWithBytes:text.data()
                                                               length:text.size()
                                                             encoding:NSUTF8StringEncoding]);
}

/// The bytes that are no ASCII as `\xNN`.
std::string inASCII(std::string_view bytes) {
  static constexpr std::string_view kDigits = "0123456789ABCDEF";
  std::string shown;
  for (const char each : bytes) {
    const auto byte = static_cast<unsigned char>(each);
    if (byte < 0x80) {
      shown += each;
    } else {
      shown += {'\\', 'x', kDigits[byte >> 4], kDigits[byte & 0xF]};
    }
  }
  return shown;
}

}  // namespace

std::string text(::NSString* string) {
  // Half of a pair of UTF-16 has no UTF-8: there is no such text, or an exception.
  @try {
    const char* const utf8 = [string UTF8String];
    if (utf8 == nullptr) return {};
    // A name from the air may hold a zero byte.
    return {utf8, [string lengthOfBytesUsingEncoding:NSUTF8StringEncoding]};
  } @catch (::NSException*) {
    return {};
  }
}

::NSString* string(std::string_view text) {
  auto made = decoded(text);
  if (made.get() == nil) made = decoded(inASCII(text));
#if __has_feature(objc_arc)
  return made.get();
#else
  return [[made.get() retain] autorelease];
#endif
}

std::optional<NSData> data(::NSData* bytes) {
  if (bytes == nil) return std::nullopt;
  return NSData::dataWithBytes_length([bytes bytes], [bytes length]);
}

::NSData* data(const NSData& bytes) {
  return [::NSData dataWithBytes:bytes.bytes() length:bytes.length()];
}

CBUUID uuid(::CBUUID* value) {
  return CBUUID::UUIDWithString(text([value UUIDString])).value_or(CBUUID(0));
}

::KestrinUUIDArray* uuids(const std::optional<std::vector<CBUUID>>& values) {
  if (!values) return nil;
  ::KestrinMutableUUIDArray* const list = [::KestrinMutableUUIDArray array];
  for (const auto& value : *values) {
    [list addObject:[::CBUUID UUIDWithString:string(value.UUIDString())]];
  }
  return list;
}

std::optional<NSError> error(::NSError* value) {
  if (value == nil) return std::nullopt;
  return NSError{text([value domain]), [value code], text([value localizedDescription])};
}

}  // namespace kestrin::corebluetooth
