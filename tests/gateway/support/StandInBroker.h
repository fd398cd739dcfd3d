// What a broker may say and mosquitto does not: each packet that comes is answered by the test.
//
// Threads: one of its own, on which it calls `answer`.
// Lifetime: destroying it closes everything.
// Errors: a connection whose bytes are not packets is closed.
#pragma once

#include "gateway/support/LoopbackSockets.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <thread>

namespace kestrin::gateway {

class StandInBroker {
 public:
  /// The bytes that answer a whole packet; absent: the connection is closed.
  using Answer = std::function<std::optional<std::string>(const std::string& packet)>;

  explicit StandInBroker(Answer answer);
  ~StandInBroker();
  StandInBroker(const StandInBroker&) = delete;
  StandInBroker& operator=(const StandInBroker&) = delete;

  [[nodiscard]] std::uint16_t port() const { return portOf(listening_); }

 private:
  void serve();
  void serveOne(const Socket& client);
  [[nodiscard]] bool waitFor(const Socket& socket) const;

  const Answer answer_;
  Socket listening_;
  std::atomic<bool> ends_{false};
  std::thread thread_;
};

/// The version in a CONNECT packet: 4 or 5.
int protocolIn(const std::string& connect);
/// The two bytes of the message id in a SUBSCRIBE packet.
std::string subscriptionIdIn(const std::string& subscribe);

}  // namespace kestrin::gateway
