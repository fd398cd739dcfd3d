#include "Guard.h"

namespace kestrin::c {
namespace {

std::string& lastError() noexcept {
  thread_local std::string text;
  return text;
}

}  // namespace

kestrin_status fail(kestrin_status status, const char* text) noexcept {
  try {
    lastError() = text;
  } catch (...) {
    lastError().clear();  // There is no memory for the text.
  }
  return status;
}

}  // namespace kestrin::c

const char* kestrin_last_error(void) { return kestrin::c::lastError().c_str(); }

const char* kestrin_version(void) { return KESTRIN_VERSION; }
