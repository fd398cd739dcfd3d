// Why a radio is not powered on, in words that say what to do about it.
//
// Threads: a pure function. Lifetime: nothing is kept. Errors: none.
#pragma once

#include <optional>
#include <string>

#include "Daemon.h"
#include "KestrinBLESDK/platform/CBCentralManager.h"

namespace kestrin::bluez {

struct StateFacts {
  Availability availability = Availability::unknown;
  CBManagerState state = CBManagerState::unknown;
  std::string adapter;  ///< The name of the one in use; empty: none.
  std::optional<std::string> wantedAdapter;
  std::string busTrouble;
};

/// One line; empty when powered on.
std::string stateReason(const StateFacts& facts);

}  // namespace kestrin::bluez
