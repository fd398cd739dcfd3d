// Bytes as hexadecimal text, and text from the air as a payload may have it.
//
// Threads: pure functions. Errors: text that is not hexadecimal says what is wrong, and where.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kestrin::gateway {

/// `bb0003`.
std::string hexOf(std::span<const std::uint8_t> bytes);
/// The same, behind what `text` has.
void addHexOf(std::span<const std::uint8_t> bytes, std::string& text);
/// Two digits for each byte, in either case; blanks may stand between bytes.
std::optional<std::vector<std::uint8_t>> bytesOfHex(std::string_view text, std::string& error);

/// The text with U+FFFD for every byte that is not part of UTF-8; absent when there is no such
/// byte.
std::optional<std::string> mendedUtf8(std::string_view text);

/// A text of somebody else's for one line to a person: no control characters, and cut where it is
/// long.
std::string shown(std::string_view text);

}  // namespace kestrin::gateway
