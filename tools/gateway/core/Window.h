// How many messages wait for their acknowledgement, over everything that the gateway publishes.
//
// Threads: the main run loop's.
// Lifetime: belongs to a gateway; the broker outlives it.
// Errors: none.
#pragma once

#include "tools/gateway/broker/Broker.h"

#include <cstddef>
#include <optional>
#include <utility>

namespace kestrin::gateway {

class Window {
 public:
  explicit Window(Broker& broker) : broker_(broker) {}

  void open(std::size_t most) {
    most_ = most;
    waiting_ = 0;
  }
  void close() { most_ = 0; }
  [[nodiscard]] bool isOpen() const noexcept { return most_ > 0; }
  [[nodiscard]] bool hasRoom() const noexcept { return waiting_ < most_; }
  [[nodiscard]] std::size_t size() const noexcept { return most_; }
  [[nodiscard]] std::size_t waiting() const noexcept { return waiting_; }

  /// Absent when there is no room or no connection.
  std::optional<PublishId> publish(Message message) {
    if (!hasRoom()) return std::nullopt;
    const auto id = broker_.publish(std::move(message));
    if (id) ++waiting_;
    return id;
  }
  void acknowledged() {
    if (waiting_ > 0) --waiting_;
  }

 private:
  Broker& broker_;
  std::size_t most_ = 0;
  std::size_t waiting_ = 0;
};

}  // namespace kestrin::gateway
