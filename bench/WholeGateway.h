// A gateway whole, as the program runs it: real log, real time, real broker. Its one reader is a
// virtual one, on a radio whose messages take no time.
//
// Threads: the one that turns the loop; besides those that a gateway has.
// Lifetime: drop it before its loop. The folder of its log stays.
// Errors: what cannot be started ends the program.
#pragma once

#include <KestrinBLESDK/platform/MainRunLoop.h>
#include <kestrin/simulated/SimulatedRadio.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/gateway/core/Gateway.h"

namespace kestrin::bench {

struct WholeSettings {
  std::uint16_t port = 0;
  std::string name;
  std::string folder;
  std::vector<std::string> consumers{};
  std::uint64_t budget = 1ULL << 30U;
};

/// The frame that its reader sends: 13 bytes.
NSData wholeFrame();

class WholeGateway {
 public:
  WholeGateway(std::shared_ptr<MainRunLoop> loop, std::shared_ptr<gateway::Syncing> syncing,
               const WholeSettings& settings);
  WholeGateway(const WholeGateway&) = delete;
  WholeGateway& operator=(const WholeGateway&) = delete;

  /// Whether the broker is there. One that is lost again ends the program.
  [[nodiscard]] bool isUp() const noexcept { return *up_; }
  /// Whether the link to the reader is there and the gateway listens.
  [[nodiscard]] bool isLinked() const;
  /// The reader sends one frame. It is in the log a turn or two later.
  void sendFrame();
  [[nodiscard]] const gateway::Log& log() const noexcept { return gateway_->log(); }
  /// The highest number that the log has given.
  [[nodiscard]] gateway::RecordNumber last() const { return log().next() - 1; }
  /// Up to this number the broker has acknowledged everything.
  [[nodiscard]] gateway::RecordNumber settled() const { return gateway_->publisher().settled(); }
  /// What the gateway publishes for a frame, one of the first hundred, and where to.
  [[nodiscard]] gateway::Message sampleMessage() const;

 private:
  gateway::Parts parts(std::shared_ptr<gateway::Syncing> syncing, const WholeSettings& settings);

  const std::shared_ptr<MainRunLoop> loop_;
  const std::shared_ptr<simulated::SimulatedRadio> radio_;
  const std::shared_ptr<simulated::VirtualPeripheral> device_;
  const CBUUID place_;
  const NSData frame_ = wholeFrame();
  const std::string name_;
  const std::shared_ptr<bool> up_ = std::make_shared<bool>(false);
  std::optional<gateway::Record> sample_;
  std::unique_ptr<gateway::Gateway> gateway_;
};

/// Syncs on one thread for however many logs.
std::shared_ptr<gateway::Syncing> makeThreadSyncing(std::weak_ptr<RunLoop> loop);

/// Lets every gateway's reader send in turns, as fast as the loop goes, `each` frames of every one;
/// returns when the last one has been sent.
void sendAll(MainRunLoop& loop, const std::vector<std::unique_ptr<WholeGateway>>& gateways,
             std::size_t each);

/// Turns the loop until every gateway holds its reader and what the reader says of itself at the
/// beginning is in the log.
void awaitReaders(MainRunLoop& loop, const std::vector<std::unique_ptr<WholeGateway>>& gateways);

}  // namespace kestrin::bench
