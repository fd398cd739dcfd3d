// A connection to an MQTT broker, held: made, made again after a loss, with growing pauses.
//
// Nothing is queued here. A message is handed over only while the broker is up and fewer than
// `BrokerUp::window` messages wait for their acknowledgement; with the end of a connection whatever
// waits is over, and whoever published it publishes it again.
//
// Threads: everything on the thread of the run loop given at creation, the handlers too; never from
// inside an operation. Lifetime: dropping it ends the connection without the farewell that `stop`
// says, so that the will is published; no handler is called afterwards. Errors: by `onDown`, in one
// line for a person.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace kestrin::gateway {

struct Message {
  std::string topic;
  std::string payload;
  int qos = 1;
  bool retain = false;
  std::string contentType{};  ///< MQTT 5 only, as all below.
  std::string responseTopic{};
  std::optional<std::string> correlationData{};
  std::optional<std::uint32_t> expirySeconds{};  ///< What is left of it, of a message that came.
  friend bool operator==(const Message&, const Message&) = default;
};

/// Names one handed over message of one connection.
using PublishId = std::uint64_t;

struct BrokerUp {
  int protocol = 5;          ///< 5, or 4 for MQTT 3.1.1.
  std::size_t window = 100;  ///< How many messages may wait for their acknowledgement, at most.
};

struct BrokerHandlers {
  /// There is a connection and every filter is subscribed to.
  std::function<void(const BrokerUp&)> onUp{};
  /// There is none any more, or an attempt has failed: why. It is tried again by itself.
  std::function<void(const std::string& why)> onDown{};
  /// The broker has acknowledged a message (`refused` absent), or refused it: why.
  std::function<void(PublishId, const std::optional<std::string>& refused)> onAcknowledged{};
  std::function<void(const Message&)> onMessage{};
};

class Broker {
 public:
  Broker() = default;
  virtual ~Broker() = default;
  Broker(const Broker&) = delete;
  Broker& operator=(const Broker&) = delete;

  /// Begins; `filters` are subscribed to with QoS 1 at each connection, `will` is given with each.
  virtual void start(std::vector<std::string> filters, std::optional<Message> will,
                     BrokerHandlers handlers) = 0;
  /// Absent when there is no connection or the window is full. QoS 1; a message with QoS 0 is
  /// acknowledged when it was handed to the system, and counts for the window until then.
  virtual std::optional<PublishId> publish(Message message) = 0;
  /// Says farewell once everything handed over is acknowledged or `limit` has passed; then calls
  /// `done`.
  virtual void stop(double limitSeconds, std::function<void()> done) = 0;
  /// Certificates and keys have changed on disk: the next connection reads them, and there is one
  /// soon.
  virtual void reloadCertificates() = 0;
};

}  // namespace kestrin::gateway
