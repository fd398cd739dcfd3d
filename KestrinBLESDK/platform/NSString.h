/// \file
/// Text from bytes, and the text tests of the link logic, on `std::string`.
///
/// Threads: pure functions.
///
/// Errors: bytes that are not text of the encoding give an absent text.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "KestrinBLESDK/platform/NSData.h"

namespace kestrin {
/// \addtogroup platform
/// @{

/// How bytes stand for characters, numbered as in `initWithData:encoding:`.
enum class NSStringEncoding : unsigned long {
  /// 7-bit ASCII: a byte of 0x80 or more is not a character.
  NSASCIIStringEncoding = 1,
};

/// `initWithData:encoding:` The bytes as text; absent when there are none to read from or one of
/// them is not a character of the encoding.
KESTRIN_EXPORT std::optional<std::string> initWithData_encoding(const std::optional<NSData>& data,
                                                                NSStringEncoding encoding);

/// `containsString:` Exact, case-sensitive.
inline bool containsString(std::string_view text, std::string_view part) noexcept {
  return text.find(part) != std::string_view::npos;
}

/// `hasPrefix:` Exact, case-sensitive; an absent text has no prefix.
inline bool hasPrefix(const std::optional<std::string>& text, std::string_view prefix) noexcept {
  return text && text->starts_with(prefix);
}

/// `isEqualToString:` Exact, case-sensitive.
inline bool isEqualToString(std::string_view a, std::string_view b) noexcept { return a == b; }

/// @}

}  // namespace kestrin
