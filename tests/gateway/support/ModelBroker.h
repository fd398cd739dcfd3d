// A broker in the process and in virtual time, whose faults are asked for: it loses connections,
// delays, delivers twice, drops what it has acknowledged, and comes back with nothing.
//
// It knows what the gateway and its consumers use of a real one: sessions that are kept or not,
// retained messages, wills, QoS 1 in order, wildcards, a receive maximum, refusals by topic.
//
// Threads: the run loop's. Lifetime: clients may outlive the broker and are without one then.
// Errors: none; the same seed and the same calls give the same events.
#pragma once

#include "KestrinBLESDK/platform/RunLoop.h"
#include "tools/gateway/broker/Broker.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace kestrin::gateway::test {

class ModelBrokerCore;

struct ModelBrokerOptions {
  std::uint64_t seed = 1;
  Time leastDelay = std::chrono::milliseconds(1);
  Time longestDelay = std::chrono::milliseconds(20);
  double duplicates = 0;  ///< The share of deliveries that come twice.
  std::size_t receiveMaximum = 100;
  std::size_t mostQueued = 1000;  ///< For a session; more is acknowledged and dropped.
};

class ModelBroker {
 public:
  ModelBroker(std::weak_ptr<RunLoop> loop, ModelBrokerOptions options);
  ~ModelBroker();
  ModelBroker(const ModelBroker&) = delete;
  ModelBroker& operator=(const ModelBroker&) = delete;

  /// A client; `keepsSession`: what comes while it is away is kept for it.
  std::unique_ptr<Broker> client(const std::string& id, bool keepsSession);

  /// Both ends of the client's connection lose it, the client's after `noticed`.
  void loseConnection(const std::string& id, Time noticed = Time::zero());
  /// Everything it had is gone, and it is not there until `comeBack`.
  void crash();
  void comeBack();
  [[nodiscard]] bool isThere() const;
  void setDelays(Time least, Time longest);
  void setDuplicates(double share);
  /// Refuses what is published to a topic for which this returns true.
  void refuse(std::function<bool(const std::string& topic)> refused);

  [[nodiscard]] bool isConnected(const std::string& id) const;
  [[nodiscard]] std::optional<std::string> retained(const std::string& topic) const;
  /// The most messages that waited for their acknowledgement at one time.
  [[nodiscard]] std::size_t mostWaiting() const;
  /// Everything that was published, as it arrives.
  void watch(std::function<void(const std::string& id, const Message&)> watcher);

 private:
  const std::shared_ptr<ModelBrokerCore> core_;
};

/// Whether a topic is meant by a filter.
bool fits(const std::string& filter, const std::string& topic);

}  // namespace kestrin::gateway::test
