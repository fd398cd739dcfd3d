// With what a gateway comes to its broker: the client's id, the password, and whether that may
// travel.
//
// Threads: pure functions; `passwordIn` reads a file.
// Lifetime: plain values.
// Errors: one line for a person, which says what is wrong and what would be right.
#pragma once

#include "tools/gateway/config/Config.h"

#include <optional>
#include <string>

namespace kestrin::gateway {

/// "kestrin-gateway-dock-3"; empty when the name is.
std::string clientIdOf(const std::string& gateway);

/// "broker mqtt.example:8883".
std::string brokerText(const BrokerConfig& config);

/// Whether what is sent to this host stays on this machine: localhost, 127.x.x.x, ::1.
bool isLoopback(const std::string& host);

/// Why no connection with this configuration is even tried.
std::optional<std::string> whyNotTried(const BrokerConfig& config, const std::string& clientId);

/// What is in the file, without the end of its line.
std::optional<std::string> passwordIn(const std::string& file, std::string& error);

}  // namespace kestrin::gateway
