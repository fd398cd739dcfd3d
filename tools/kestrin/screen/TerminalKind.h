// What the terminal database knows of the terminal that TERM names.
//
// Threads: one at a time, with everything else that uses the curses library.
// Errors: what is not known is told by the values.
#pragma once

#include <string>

namespace kestrin::app {

/// Whether a screen can be painted on a terminal of this kind.
bool canBePainted(int output);

/// A control sequence of the terminal that is in use, by its name in the database; empty where the
/// terminal has none.
std::string controlSequence(const std::string& name);

}  // namespace kestrin::app
