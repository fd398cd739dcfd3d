// What the gateway publishes besides records: retained topics, of which only the last text counts,
// and answers to commands.
//
// A retained topic is published again at each connection, for a broker may have forgotten it.
//
// Threads: the main run loop's.
// Lifetime: belongs to a gateway; window and troubles outlive it.
// Errors: what the broker refuses is a trouble, and is not tried again before it changes or the
// next connection comes.
#pragma once

#include "tools/gateway/core/Troubles.h"
#include "tools/gateway/core/Window.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>

namespace kestrin::gateway {

class Outbox {
 public:
  using Removed = std::function<void(const std::string& topic)>;
  /// `removed`: the broker has removed a retained message.
  Outbox(Window& window, Troubles& troubles, Removed removed = nullptr)
      : window_(window), troubles_(troubles), removed_(std::move(removed)) {}

  /// What a topic is to say from now on; an empty text removes the retained message.
  void retain(const std::string& topic, std::string payload);
  /// One message, kept until it is acknowledged. The oldest is given up when too many wait.
  void send(Message message);

  void connected();
  void disconnected();
  /// Publishes what there is room for. True when nothing is left to hand over.
  bool pump();
  /// False when the message is another's.
  bool acknowledged(PublishId id, const std::optional<std::string>& refused);
  /// Whether everything is acknowledged.
  [[nodiscard]] bool isDone() const;

 private:
  enum class Stand : std::uint8_t { waits, handedOver, done };
  struct Topic {
    std::string payload;
    Stand stand = Stand::waits;
    PublishId id = 0;
  };
  struct Letter {
    Message message;
    Stand stand = Stand::waits;
    PublishId id = 0;
  };
  bool handOver(const Message& message, Stand& stand, PublishId& id);
  bool takeTopic(PublishId id, const std::optional<std::string>& refused);
  bool takeLetter(PublishId id, const std::optional<std::string>& refused);

  Window& window_;
  Troubles& troubles_;
  const Removed removed_;
  std::map<std::string, Topic> topics_;
  std::deque<Letter> letters_;
  bool waits_ = false;  // Whether anything may wait to be handed over.
};

}  // namespace kestrin::gateway
