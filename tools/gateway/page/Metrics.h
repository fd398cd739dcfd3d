// A gateway's status as Prometheus reads it.
//
// Threads: pure functions. Errors: none; what a label cannot have is escaped.
#pragma once

#include "tools/gateway/message/Status.h"

#include <cstddef>
#include <string>

namespace kestrin::gateway {

/// `viewers`: how many pages are open.
std::string metricsOf(const Status& status, std::size_t viewers);

}  // namespace kestrin::gateway
