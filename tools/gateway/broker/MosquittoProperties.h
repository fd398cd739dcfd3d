// What MQTT 5 sends along with a message, to and from the client library's lists.
//
// Threads: one at a time.
// Lifetime: `PropertyList` owns its list.
// Errors: returned in words.
#pragma once

#include "tools/gateway/broker/Broker.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

// NOLINTNEXTLINE(bugprone-reserved-identifier): the client library's name.
struct mqtt5__property;

namespace kestrin::gateway {

struct PropertiesFreed {
  void operator()(mqtt5__property* first) const;
};
using PropertyList = std::unique_ptr<mqtt5__property, PropertiesFreed>;

/// What the message brings along; null when that is nothing. `error` says what cannot be sent.
PropertyList propertiesOf(const Message& message, std::optional<std::string>& error);
/// Fills in what came along.
void readProperties(const mqtt5__property* list, Message& message);
/// How many messages may wait for the broker's acknowledgement, by its answer to the connection.
std::uint16_t receiveMaximumIn(const mqtt5__property* list);

}  // namespace kestrin::gateway
