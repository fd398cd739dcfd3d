#include "PublishRuns.h"

#include <KestrinBLESDK/platform/MainRunLoop.h>
#include <mosquitto.h>

#include <ctime>
#include <memory>

#include "Frames.h"
#include "tools/gateway/broker/BrokerAccess.h"
#include "tools/gateway/broker/MosquittoBroker.h"

namespace kestrin::bench {
namespace {

using Stopwatch = std::chrono::steady_clock;

std::chrono::nanoseconds processorTime() {
  timespec now{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec);
}

class CostSoFar {
 public:
  [[nodiscard]] PublishCost cost() const {
    return {Stopwatch::now() - begun_, processorTime() - processorBefore_};
  }

 private:
  const Stopwatch::time_point begun_ = Stopwatch::now();
  const std::chrono::nanoseconds processorBefore_ = processorTime();
};

struct BareState {
  bool connected = false;
  std::size_t inFlight = 0;
  std::size_t acknowledged = 0;
};

void fillWindow(mosquitto* client, const PublishTask& task, BareState& state) {
  while (state.inFlight < task.window && state.acknowledged + state.inFlight < task.count) {
    require(mosquitto_publish_v5(client, nullptr, task.topic.c_str(),
                                 static_cast<int>(task.payload.size()), task.payload.data(), 1,
                                 false, nullptr) == MOSQ_ERR_SUCCESS,
            "the bare loop cannot publish");
    ++state.inFlight;
  }
}

void turn(mosquitto* client) {
  require(mosquitto_loop(client, 1000, 1) == MOSQ_ERR_SUCCESS, "the bare loop lost its broker");
}

}  // namespace

PublishCost publishBare(const PublishTask& task) {
  BareState state;
  mosquitto_lib_init();
  const std::unique_ptr<mosquitto, void (*)(mosquitto*)> client(
      mosquitto_new("kestrin-bench-bare", true, &state), mosquitto_destroy);
  mosquitto_int_option(client.get(), MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
  mosquitto_int_option(client.get(), MOSQ_OPT_TCP_NODELAY, 1);
  mosquitto_int_option(client.get(), MOSQ_OPT_SEND_MAXIMUM, static_cast<int>(task.window));
  mosquitto_connect_callback_set(client.get(), [](mosquitto*, void* object, int reason) {
    static_cast<BareState*>(object)->connected = reason == 0;
  });
  mosquitto_publish_callback_set(client.get(), [](mosquitto*, void* object, int) {
    auto& counts = *static_cast<BareState*>(object);
    --counts.inFlight;
    ++counts.acknowledged;
  });
  require(mosquitto_connect(client.get(), "127.0.0.1", task.port, 30) == MOSQ_ERR_SUCCESS,
          "the bare loop cannot connect");
  while (!state.connected) turn(client.get());
  const CostSoFar soFar;
  while (state.acknowledged < task.count) {
    fillWindow(client.get(), task, state);
    turn(client.get());
  }
  return soFar.cost();
}

PublishCost publishByBroker(const PublishTask& task) {
  const auto loop = std::make_shared<MainRunLoop>();
  gateway::BrokerSettings settings;
  settings.config.host = "127.0.0.1";
  settings.config.port = task.port;
  settings.config.window = static_cast<std::uint16_t>(task.window);
  settings.clientId = gateway::clientIdOf("bench");
  gateway::MosquittoBroker broker(loop, settings);
  const gateway::Message message{task.topic, task.payload};
  std::size_t handed = 0;
  std::size_t acknowledged = 0;
  const auto fill = [&] {
    while (handed < task.count && broker.publish(message)) ++handed;
  };
  gateway::BrokerHandlers handlers;
  handlers.onUp = [&](const gateway::BrokerUp&) { loop->stop(); };
  handlers.onDown = [](const std::string& why) { require(false, why.c_str()); };
  handlers.onAcknowledged = [&](gateway::PublishId, const std::optional<std::string>&) {
    ++acknowledged;
    fill();
    if (acknowledged == task.count) loop->stop();
  };
  broker.start({}, std::nullopt, handlers);
  loop->run();
  const CostSoFar soFar;
  fill();
  loop->run();
  return soFar.cost();
}

}  // namespace kestrin::bench
