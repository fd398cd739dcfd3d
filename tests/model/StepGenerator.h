// Random histories, and how one that fails is made shorter and plainer.
//
// Threads: pure functions. Errors: none.
#pragma once

#include <rapidcheck.h>

#include "model/Step.h"

namespace kestrin::test {

/// Histories of up to the size's number of steps or a little more: calls and events in any order,
/// and among them whole stretches of what a well-behaved platform does.
rc::Gen<Steps> histories();

}  // namespace kestrin::test
