#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

#include "tools/gateway/commands/Commands.h"

namespace kestrin::gateway {

int finishOutput(Output& output) {
  output.flush();
  if (!output.error()) return kSuccess;
  output.note("standard output: " + output.error()->message());
  return kFailure;
}

namespace {

/// Only the service itself can look at what it is given.
void noteCredentials(const Config& config, Output& output) {
  const BrokerConfig& broker = config.broker;
  const PageConfig& page = config.page;
  std::vector<std::optional<std::string>> paths{
      broker.passwordFile, broker.tls.caFile,     broker.tls.certificateFile,
      broker.tls.keyFile,  page.tokenFile,        page.certificateFile,
      page.keyFile,        config.simulatedScript};
  for (const WebhookConfig& each : config.webhooks) {
    paths.insert(paths.end(), {each.tokenFile, each.headersFile, each.caFile});
  }
  for (const auto& path : paths) {
    if (path && path->starts_with(kCredential)) {
      output.note(*path + " is looked at when the service starts");
    }
  }
}

}  // namespace

int checkConfig(const std::string& file, Output& output) {
  std::vector<ConfigComplaint> complaints;
  // NOLINTNEXTLINE(concurrency-mt-unsafe): nobody here changes the environment.
  const bool isService = std::getenv("CREDENTIALS_DIRECTORY") != nullptr;
  const auto config =
      readConfig(file, complaints, isService ? Credentials::needed : Credentials::notLookedAt);
  for (const ConfigComplaint& each : complaints) output.line(each.printed());
  if (!config || !complaints.empty()) {
    output.flush();
    return kWrongUsage;
  }
  output.line(file + ": is right; gateway " + config->name + ", " +
              std::to_string(config->readers.size()) + " readers, " +
              std::to_string(config->consumers.size()) + " declared consumers");
  if (config->consumers.empty()) {
    const std::string but = config->webhooks.empty() ? "" : "but for its webhooks ";
    output.note("no consumer is declared: " + but + "the gateway is as durable as your broker");
  }
  noteCredentials(*config, output);
  return finishOutput(output);
}

}  // namespace kestrin::gateway
