// A gateway's status for a terminal.
//
// Threads: pure functions. Errors: none; nothing in it can steer a terminal.
#pragma once

#include <string>
#include <vector>

#include "tools/gateway/message/Status.h"

namespace kestrin::gateway {

std::vector<std::string> linesOf(const Status& status);

}  // namespace kestrin::gateway
