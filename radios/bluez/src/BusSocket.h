// Whether a message bus listens at all, found out before the bus library is asked to open it.
//
// The bus library (sdbus-c++ 1.2 and 2.1) keeps the memory, about 2 kB, of every connection to an
// address of the caller's that it fails to open, and a radio without a bus tries again for as long
// as it lives.
//
// Threads: any. Errors: as the bus library names them.
#pragma once

#include <optional>
#include <string>

#include "Errors.h"

namespace kestrin::bluez {

/// Why nothing listens at `address` (the system bus if absent). Absent when something does, and for
/// addresses of other kinds than `unix:path=`, which only the bus library can judge.
std::optional<CallError> whyNoBusListens(const std::optional<std::string>& address) noexcept;

}  // namespace kestrin::bluez
