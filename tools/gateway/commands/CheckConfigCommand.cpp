#include <vector>

#include "tools/gateway/commands/Commands.h"

namespace kestrin::gateway {

int finishOutput(Output& output) {
  output.flush();
  if (!output.error()) return kSuccess;
  output.note("standard output: " + output.error()->message());
  return kFailure;
}

int checkConfig(const std::string& file, Output& output) {
  std::vector<ConfigComplaint> complaints;
  const auto config = readConfig(file, complaints);
  for (const ConfigComplaint& each : complaints) output.line(each.printed());
  if (!config || !complaints.empty()) {
    output.flush();
    return kWrongUsage;
  }
  output.line(file + ": is right; gateway " + config->name + ", " +
              std::to_string(config->readers.size()) + " readers, " +
              std::to_string(config->consumers.size()) + " declared consumers");
  if (config->consumers.empty()) {
    output.note("no consumer is declared: the gateway is as durable as your broker");
  }
  return finishOutput(output);
}

}  // namespace kestrin::gateway
