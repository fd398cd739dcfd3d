// The command line of `kestrin-gateway`.
//
// Threads: one. Lifetime: everything ends with the call. Errors: wrong usage is said in one line.
#pragma once

#include "tools/gateway/commands/Output.h"

namespace kestrin::gateway {

/// Does what the command line asks for; returns the exit status.
int runCommandLine(int argumentCount, const char* const* arguments, Output& output);

}  // namespace kestrin::gateway
