// Text from elsewhere, such as a name from the air, as it may stand in a line.
//
// Threads: pure functions. Errors: none; any bytes are taken.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace kestrin::gateway {

/// What is not a printable ASCII character as `\xNN`, and a backslash as `\\`, so that nothing can
/// steer a terminal and the bytes can be had back.
std::string safeText(std::string_view text);

/// Text that may have any characters, on one line: what could steer a terminal, end the line or
/// turn its direction, and what is no UTF-8, does not stay as it is.
std::string lineText(std::string_view text);

/// A text of JSON, which says the same afterwards: what a terminal would obey is written as
/// `\uNNNN`.
std::string safeJson(std::string_view json);

/// Two lower-case digits for each byte.
std::string hexText(std::span<const std::uint8_t> bytes);

}  // namespace kestrin::gateway
