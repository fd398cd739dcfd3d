// What a broker or the network says by number, in words for a person.
//
// Threads: pure functions.
// Lifetime: plain values.
// Errors: an unknown number is named as such.
#pragma once

#include <string>

namespace kestrin::gateway {

/// Why a broker refused or ended something: a reason code of MQTT 5.
std::string reasonText(int reason);
/// Why a broker refused a connection: a reason code of MQTT 5, or a return code of 3.1.1.
std::string refusalText(int code, int protocol);
/// An error of the client library's.
std::string libraryText(int error);
/// An error of the system's, as `errno` has it.
std::string systemText(int number);

}  // namespace kestrin::gateway
