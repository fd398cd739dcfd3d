// The command line: what may be written on it, and which command it names.
//
// Threads: the process's first thread, before any other is started.
// Errors: wrong usage is one line on the console that names the argument.
#pragma once

namespace kestrin::app {

class Console;

/// Runs the command that the arguments name and returns the exit status.
int runCommandLine(int argumentCount, const char* const* arguments, Console& console);

}  // namespace kestrin::app
