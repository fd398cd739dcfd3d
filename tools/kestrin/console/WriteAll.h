// Writing to a descriptor, whatever its mood.
//
// Threads: any. Errors: answered.
#pragma once

#include <optional>
#include <string_view>
#include <system_error>

namespace kestrin::app {

/// Writes all of `text`, waiting where there is no room; why not, where that cannot be done.
std::optional<std::error_code> writeAll(int descriptor, std::string_view text);

}  // namespace kestrin::app
