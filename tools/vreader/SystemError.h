// The system's words for an error number.
#pragma once

#include <string>
#include <system_error>

namespace kestrin::vreader {

/// What `errno` or another error number of POSIX means. Unlike `strerror` safe from any thread.
inline std::string systemErrorText(int number) { return std::generic_category().message(number); }

}  // namespace kestrin::vreader
