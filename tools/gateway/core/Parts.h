// What a gateway is made of, so that it runs on real time, disk and broker, or on stand-ins.
//
// Threads: everything is used on the main run loop of the platform.
// Lifetime: handed to the gateway, which keeps it.
// Errors: none.
#pragma once

#include "KestrinBLESDK/platform/Platform.h"
#include "tools/gateway/broker/Broker.h"
#include "tools/gateway/broker/ReconnectPause.h"
#include "tools/gateway/core/Hearing.h"
#include "tools/gateway/core/Line.h"
#include "tools/gateway/core/Syncing.h"
#include "tools/gateway/http/HttpClient.h"
#include "tools/gateway/log/Log.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kestrin::gateway {

/// The times that a record is kept with.
struct Clocks {
  std::function<std::int64_t()> wallMs;  ///< Since 1970-01-01T00:00:00Z.
  std::function<std::int64_t()> monoMs;  ///< Since the machine was started.
};

/// What the gateway says of itself in its topics.
struct Identity {
  std::string boot;     ///< Random, another one for each run.
  std::string version;  ///< For example "1.0.0".
  std::string radio;    ///< "bluez" or "simulated".
  std::string adapter;  ///< For example "hci0"; may be empty.
};

struct Parts {
  Platform platform;
  std::unique_ptr<Log> log;
  std::unique_ptr<Broker> broker;
  std::shared_ptr<Syncing> syncing;
  /// For webhooks; null: there are none, whatever the configuration says.
  std::shared_ptr<HttpClient> http{};
  /// For pauses; the system's when empty.
  RandomSource random{};
  Clocks clocks;
  Identity identity;
  /// What the log has found at its opening.
  std::vector<std::string> findings{};
  /// Takes one line for a person: the gateway's own log of what happens.
  std::function<void(const Line&)> say{};
  /// Called behind each record that a reader's callback has handed to the log, with the number that
  /// it got; absent: the disk refused it.
  std::function<void(const Record&, std::optional<RecordNumber>)> onAppended{};
  /// What the radio of the platform is heard by; null where nobody asks.
  std::shared_ptr<const Hearing> hearing{};
};

}  // namespace kestrin::gateway
