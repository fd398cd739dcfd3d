// Numbers as the command line and orders write them.
//
// Threads: a pure function. Errors: what is not a number, or one too large, is absent.
#pragma once

#include <charconv>
#include <optional>
#include <string_view>
#include <system_error>

namespace kestrin::vreader {

/// A number, decimal or, after "0x", hexadecimal.
template <class Number>
std::optional<Number> numberFrom(std::string_view word) {
  const bool isHex = word.starts_with("0x");
  if (isHex) word.remove_prefix(2);
  Number number{};
  const auto result =
      std::from_chars(word.data(), word.data() + word.size(), number, isHex ? 16 : 10);
  if (result.ec != std::errc() || result.ptr != word.data() + word.size()) return std::nullopt;
  return number;
}

}  // namespace kestrin::vreader
