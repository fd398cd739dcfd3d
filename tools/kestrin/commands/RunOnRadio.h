// Runs a command on a radio: the recording around it, the signals that steer it, and the terminal
// put right whatever happens.
//
// Threads: the process's first thread, before any other is started.
// Errors: told on the console; the answer is the exit status.
#pragma once

#include <functional>
#include <string>

#include "tools/kestrin/radio/RadioEnvironment.h"

namespace kestrin::app {

class Console;
class TerminalScreen;

int runOnRadio(const std::string& name, const RadioRequest& request, TerminalScreen& screen,
               Console& console, const std::function<int(RadioEnvironment&)>& command);

}  // namespace kestrin::app
