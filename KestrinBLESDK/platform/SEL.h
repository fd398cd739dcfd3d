/// \struct kestrin::SEL
/// A selector: an operation of an object by its name, as delayed requests and notification handlers
/// need it.
///
/// Threads: a plain value.
///
/// Lifetime: `name` is a literal.
#pragma once

#include <memory>
#include <string_view>

namespace kestrin {
/// \addtogroup platform
/// @{

struct SEL {
  /// The operation's name; two selectors with the same name are the same selector.
  std::string_view name;
  /// Runs the operation on `target`, which must be of the class that the selector was made for.
  /// `object` is the operation's argument; null when absent.
  void (*perform)(void* target, const std::shared_ptr<void>& object) noexcept = nullptr;

  /// Whether they have the same name.
  friend bool operator==(const SEL& a, const SEL& b) noexcept { return a.name == b.name; }
};

/// @}

}  // namespace kestrin
