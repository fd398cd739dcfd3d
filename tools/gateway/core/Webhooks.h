// The webhooks of the configuration.
//
// Each has its own way through the log, so that one that is slow holds up no other.
//
// Threads: the main run loop's.
// Lifetime: belongs to a gateway; log, troubles, commits and client outlive it.
// Errors: each webhook's troubles.
#pragma once

#include "tools/gateway/core/Commits.h"
#include "tools/gateway/core/Webhook.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace kestrin::gateway {

/// As the log knows them.
std::vector<std::string> namesOf(const std::vector<WebhookConfig>& webhooks);

class Webhooks {
 public:
  struct How {
    std::string gateway;
    RandomSource random;
    std::function<void()> onCommit;  ///< Some webhook's commit has moved.
  };
  /// `client` may be null while no webhook is configured.
  Webhooks(std::weak_ptr<RunLoop> loop, Log& log, Troubles& troubles, Commits& commits,
           std::shared_ptr<HttpClient> client, How how);

  /// From now on there are these, which `commits` knows already. Those that stay as they are are
  /// not disturbed.
  void configure(const std::vector<WebhookConfig>& webhooks);
  void pump();
  void stop();

 private:
  std::unique_ptr<Webhook> made(const WebhookConfig& config);

  const std::weak_ptr<RunLoop> loop_;
  Log& log_;
  Troubles& troubles_;
  Commits& commits_;
  const std::shared_ptr<HttpClient> client_;
  const How how_;
  std::vector<std::unique_ptr<Webhook>> webhooks_;
};

}  // namespace kestrin::gateway
