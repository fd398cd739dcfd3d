// The broker on the real network: each connection has a thread of its own, since names are looked
// up and connections made by calls that wait.
//
// Threads: everything on the thread of the run loop, the handlers too; see Broker.
// Lifetime: dropping it ends the connection without a farewell. A thread that is held up in the
// system at that moment, looking a name up for example, is left to end by itself; it says nothing
// any more, not to the broker either. The run loop outlives it. Handlers may drop it.
// Errors: by `onDown` and `onAcknowledged`. What no connection is even tried for, a password over a
// connection that is not encrypted for example, is said once.
#pragma once

#include "tools/gateway/broker/Broker.h"
#include "tools/gateway/broker/ReconnectPause.h"
#include "tools/gateway/config/Config.h"

#include <KestrinBLESDK/platform/RunLoop.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kestrin::gateway {

struct BrokerSettings {
  BrokerConfig config{};
  std::string clientId{};  ///< See `clientIdOf`.
  PauseRules pauses{};
  RandomSource random = systemRandom();
  Time attemptLimit = std::chrono::seconds(30);  ///< Until a connection is up.
};

class MosquittoBroker final : public Broker {
 public:
  MosquittoBroker(std::shared_ptr<RunLoop> loop, BrokerSettings settings);
  ~MosquittoBroker() override;
  MosquittoBroker(const MosquittoBroker&) = delete;
  MosquittoBroker& operator=(const MosquittoBroker&) = delete;

  void start(std::vector<std::string> filters, std::optional<Message> will,
             BrokerHandlers handlers) override;
  std::optional<PublishId> publish(Message message) override;
  void stop(double limitSeconds, std::function<void()> done) override;
  void reloadCertificates() override;

 private:
  class Inside;
  const std::shared_ptr<Inside> inside_;
};

}  // namespace kestrin::gateway
