// Bytes as hexadecimal text: the one way in which this application reads and prints them.
//
// Threads: pure functions. Errors: text that is not hexadecimal is told with its place.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kestrin::app {

/// Where text stops being hexadecimal, and what would be right.
struct HexError {
  /// The character's place in the text, counted from 1.
  std::size_t column = 0;
  std::string text;
};

/// Adds the bytes that `text` writes to `bytes`: two digits per byte in either case; blanks (spaces
/// and tabs) may stand before, between and after bytes, not within one. Text without a digit is no
/// bytes. On an error `bytes` holds those in front of it too.
std::optional<HexError> appendHex(std::string_view text, std::vector<std::uint8_t>& bytes);

/// `BB 00 03`.
std::string upperHex(std::span<const std::uint8_t> bytes);
/// `bb0003`.
std::string lowerHex(std::span<const std::uint8_t> bytes);

}  // namespace kestrin::app
