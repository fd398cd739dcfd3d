// A connection to a broker, with all that it has reported, and the run loop that tests turn.
//
// Threads: one.
// Lifetime: the peer is dropped before its run loop.
// Errors: none; what a test waits for and does not come is its failure.
#pragma once

#include "tools/gateway/broker/BrokerAccess.h"
#include "tools/gateway/broker/MosquittoBroker.h"

#include <KestrinBLESDK/platform/MainRunLoop.h>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kestrin::gateway {

using Loop = std::shared_ptr<MainRunLoop>;

/// Turns the loop until `done`; false when that takes far too long.
inline bool waitUntil(const Loop& loop, const std::function<bool()>& done) {
  return loop->runUntil(loop->now() + std::chrono::seconds(60), done);
}

/// Short pauses, and always the middle of what chance allows.
inline BrokerSettings settingsFor(std::uint16_t port, const std::string& name = "test") {
  BrokerSettings settings;
  settings.config.host = "127.0.0.1";
  settings.config.port = port;
  settings.clientId = clientIdOf(name);
  settings.pauses.first = std::chrono::milliseconds(20);
  settings.pauses.longest = std::chrono::milliseconds(200);
  settings.random = [] { return 0.5; };
  return settings;
}

struct BrokerPeer {
  BrokerPeer(Loop runLoop, const BrokerSettings& settings)
      : loop(std::move(runLoop)), broker(std::make_unique<MosquittoBroker>(loop, settings)) {}

  void start(std::vector<std::string> filters = {}, std::optional<Message> will = std::nullopt) {
    BrokerHandlers handlers;
    handlers.onUp = [this](const BrokerUp& up) { ups.push_back(up); };
    handlers.onDown = [this](const std::string& why) { downs.push_back(why); };
    handlers.onAcknowledged = [this](PublishId id, const std::optional<std::string>& refused) {
      acknowledged[id] = refused;
      if (onAcknowledged) onAcknowledged();
    };
    handlers.onMessage = [this](const Message& message) { messages.push_back(message); };
    broker->start(std::move(filters), std::move(will), std::move(handlers));
  }
  bool comesUp(std::size_t times = 1) {
    return waitUntil(loop, [&] { return ups.size() >= times; });
  }
  bool goesDown(std::size_t times = 1) {
    return waitUntil(loop, [&] { return downs.size() >= times; });
  }
  bool receives(std::size_t count) {
    return waitUntil(loop, [&] { return messages.size() >= count; });
  }
  bool isAcknowledged(std::optional<PublishId> id) {
    return id && waitUntil(loop, [&] { return acknowledged.contains(*id); });
  }
  [[nodiscard]] std::string lastDown() const { return downs.empty() ? "" : downs.back(); }
  void drop() { broker.reset(); }

  Loop loop;
  std::vector<BrokerUp> ups;
  std::vector<std::string> downs;
  std::vector<Message> messages;
  std::map<PublishId, std::optional<std::string>> acknowledged;
  std::function<void()> onAcknowledged;
  std::unique_ptr<MosquittoBroker> broker;
};

}  // namespace kestrin::gateway
