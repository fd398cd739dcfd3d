// What goes wrong, from the daemon's words to this library's errors. Pure functions.
//
// Threads: any. Lifetime: nothing is kept. Errors: none.
#pragma once

#include <string>
#include <string_view>

#include "KestrinBLESDK/platform/NSError.h"

namespace kestrin::bluez {

/// A D-Bus error reply.
struct CallError {
  std::string name;
  std::string message;
};

/// An error reply as this library's error. A request that the peer's attribute server refused
/// carries the ATT error code.
NSError errorOf(const CallError& error);
/// Whether the caller lacks the permission.
bool isRefusal(const CallError& error);
/// Whether the error is `org.bluez.Error.` followed by `name`.
bool isDaemonError(const CallError& error, std::string_view name);

/// An error of `CBErrorDomain` without a code of its own.
NSError failure(std::string text);
/// The reason of an end that the application has asked for.
NSError linkGivenUp();
/// The reason of an end that it has not asked for.
NSError linkLost(std::string why);

}  // namespace kestrin::bluez
