// Why the radio is not powered on, in words that say what a user does about it.
//
// Threads: a pure function. Lifetime: nothing is kept. Errors: none.
#pragma once

#include <string>

#include "KestrinBLESDK/platform/CBCentralManager.h"

namespace kestrin::corebluetooth {

/// One line; empty when powered on.
std::string stateReason(CBManagerState state);

}  // namespace kestrin::corebluetooth
