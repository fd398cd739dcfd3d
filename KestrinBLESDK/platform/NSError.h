/// \struct kestrin::NSError
/// What went wrong, in words for a person: a domain, a code within it and a readable text.
///
/// Threads: a plain value.
///
/// Errors: none.
#pragma once

#include <cstdint>
#include <string>

#include "KestrinBLESDK/platform/Export.h"

namespace kestrin {
/// \addtogroup platform
/// @{

struct KESTRIN_EXPORT NSError {
  /// Who speaks, for example `CBATTErrorDomain`.
  std::string domain;
  /// The number within the domain; for `CBATTErrorDomain` the ATT error code (Bluetooth Core,
  /// Vol 3, Part F, 3.4.1.1).
  std::int64_t code = 0;
  /// What it means, never empty in an error that this library makes.
  std::string text;

  /// `localizedDescription` The readable text.
  [[nodiscard]] const std::string& localizedDescription() const noexcept { return text; }
  /// `description` Domain, code and text, as `%@` prints an error:
  /// `Error Domain=CBATTErrorDomain Code=14 "Unlikely Error"`.
  [[nodiscard]] std::string description() const;

  /// Whether domain, code and text are the same.
  friend bool operator==(const NSError&, const NSError&) = default;
};

/// Errors of the link layer and of the radio itself.
inline constexpr char CBErrorDomain[] = "CBErrorDomain";
/// Errors that the peer's attribute server answered with.
inline constexpr char CBATTErrorDomain[] = "CBATTErrorDomain";
/// Errors in what the application handed to this library.
inline constexpr char KestrinErrorDomain[] = "KestrinErrorDomain";

/// @}

}  // namespace kestrin
