// The environment of a test's own process.
//
// Threads: the only one that there is.
#pragma once

#include <cstdlib>
#include <string>

namespace kestrin::gateway {

inline void setVariable(const char* name, const std::string& value) {
  ::setenv(name, value.c_str(), 1);  // NOLINT(concurrency-mt-unsafe): the only thread.
}

inline void removeVariable(const char* name) {
  ::unsetenv(name);  // NOLINT(concurrency-mt-unsafe): the only thread.
}

}  // namespace kestrin::gateway
