#include <KestrinBLESDK/platform/MainRunLoop.h>

#include <memory>

#include "tools/gateway/broker/BrokerAccess.h"
#include "tools/gateway/broker/MosquittoBroker.h"
#include "tools/gateway/commands/Commands.h"
#include "tools/gateway/commands/ConsumeSession.h"
#include "tools/gateway/commands/Signals.h"

namespace kestrin::gateway {
namespace {

/// No gateway comes with such a one, whatever its name.
std::string consumerClientId(const ConsumeRequest& request) {
  return "kestrin-consumer-" + request.gateway + "." + request.name;
}

std::optional<std::string> complaintAbout(const ConsumeRequest& request) {
  if (const auto wrong = nameComplaint(request.gateway)) return "--gateway: " + *wrong;
  if (const auto wrong = nameComplaint(request.name)) return "--name: " + *wrong;
  return whyNotTried(request.broker, consumerClientId(request));
}

int consumeWith(const ConsumeRequest& request, ConsumerState& state, Output& output) {
  const auto loop = std::make_shared<MainRunLoop>();
  std::function<void()> end;
  Signals signals(*loop, {.end = [&end] { end(); }, .reload = {}});
  if (!signals.isWatching()) {
    output.note("the system has no descriptor left");
    return kFailure;
  }
  MosquittoBroker broker(loop, {.config = request.broker, .clientId = consumerClientId(request)});
  const auto stopLoop = [&loop] { loop->stop(); };
  ConsumeSession session(loop, broker, state, output, {request.gateway, request.name}, stopLoop);
  end = [&session, stopLoop] { session.stop(stopLoop); };
  output.note("consumer " + request.name + " of the gateway " + request.gateway + ", " +
              brokerText(request.broker));
  session.start();
  loop->run();
  output.note(session.summary());
  return session.failed() ? kFailure : finishOutput(output);
}

}  // namespace

int consume(const ConsumeRequest& request, Output& output) {
  if (const auto wrong = complaintAbout(request)) {
    output.note(*wrong);
    return kWrongUsage;
  }
  std::string error;
  const auto state =
      ConsumerState::open(systemFiles(), request.state, request.gateway, request.name, error);
  if (!state) {
    output.note(error);
    return kFailure;
  }
  return consumeWith(request, *state, output);
}

}  // namespace kestrin::gateway
