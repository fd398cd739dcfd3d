// The way to the reader for clients that talk to the daemon by themselves: scan until it is there,
// connect, find the characteristic that its values come on.
//
// Threads: one. Lifetime: the connection is the caller's. Errors: sdbus::Error is thrown.
#pragma once

#include <string>

#include "BusLibrary.h"

namespace kestrin::bench {

inline constexpr char kDaemon[] = "org.bluez";
inline constexpr char kCharacteristic[] = "org.bluez.GattCharacteristic1";

/// Returns the path of the characteristic.
std::string connectToReader(sdbus::IConnection& bus);

}  // namespace kestrin::bench
