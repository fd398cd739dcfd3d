#include "tools/gateway/core/Webhooks.h"

#include <algorithm>
#include <utility>

namespace kestrin::gateway {

std::vector<std::string> namesOf(const std::vector<WebhookConfig>& webhooks) {
  std::vector<std::string> names;
  names.reserve(webhooks.size());
  for (const WebhookConfig& each : webhooks) names.push_back(each.name);
  return names;
}

Webhooks::Webhooks(std::weak_ptr<RunLoop> loop, Log& log, Troubles& troubles, Commits& commits,
                   std::shared_ptr<HttpClient> client, How how)
    : loop_(std::move(loop)),
      log_(log),
      troubles_(troubles),
      commits_(commits),
      client_(std::move(client)),
      how_(std::move(how)) {}

void Webhooks::configure(const std::vector<WebhookConfig>& webhooks) {
  auto before = std::exchange(webhooks_, {});
  if (!client_) return;
  for (const WebhookConfig& config : webhooks) {
    const auto same = std::ranges::find_if(
        before, [&](const auto& each) { return each->config().name == config.name; });
    const bool stays = same != before.end() && (*same)->config() == config;
    if (same != before.end() && !stays) (*same)->leave();
    // One of that name ends before another begins.
    auto kept = stays ? std::move(*same) : nullptr;
    if (same != before.end()) before.erase(same);
    webhooks_.push_back(kept ? std::move(kept) : made(config));
  }
  for (const auto& each : before) each->leave();
}

std::unique_ptr<Webhook> Webhooks::made(const WebhookConfig& config) {
  Webhook::How how{how_.gateway, config, how_.random, {}};
  how.onCommit = [this, name = config.name](RecordNumber number) {
    if (commits_.answered(name, number)) how_.onCommit();
  };
  return std::make_unique<Webhook>(loop_, log_, troubles_, *client_, std::move(how),
                                   commits_.of(config.name));
}

void Webhooks::pump() {
  for (const auto& each : webhooks_) each->pump();
}

void Webhooks::stop() {
  for (const auto& each : webhooks_) each->stop();
}

}  // namespace kestrin::gateway
