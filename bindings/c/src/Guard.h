// How a function of the C interface fails: with a status, a text for `kestrin_last_error`, and
// never with an exception.
#pragma once

#include <exception>
#include <string>

#include "kestrin/kestrin.h"

namespace kestrin::c {

/// Keeps the text for this thread and returns `status`.
kestrin_status fail(kestrin_status status, const char* text) noexcept;

/// What `work` returns, or KESTRIN_FAILED with what the exception says.
template <class Work>
kestrin_status guarded(const Work& work) noexcept {
  try {
    return work();
  } catch (const std::exception& error) {
    return fail(KESTRIN_FAILED, error.what());
  } catch (...) {
    return fail(KESTRIN_FAILED, "something unknown went wrong");
  }
}

/// The same for functions that answer a handle or a text: `otherwise` on failure.
template <class Result, class Work>
Result guardedResult(Result otherwise, const Work& work) noexcept {
  Result result = otherwise;
  const auto status = guarded([&] {
    result = work();
    return KESTRIN_OK;
  });
  return status == KESTRIN_OK ? result : otherwise;
}

}  // namespace kestrin::c
