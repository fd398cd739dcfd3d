#include "PublishRuns.h"

#include <KestrinBLESDK/platform/MainRunLoop.h>
#include <mosquitto.h>
#include <unistd.h>

#include <ctime>
#include <memory>

#include "Frames.h"
#include "tools/gateway/broker/BrokerAccess.h"
#include "tools/gateway/broker/MosquittoBroker.h"

namespace kestrin::bench {
namespace {

using Stopwatch = std::chrono::steady_clock;

class CostSoFar {
 public:
  [[nodiscard]] PublishCost cost() const {
    return {begun_, Stopwatch::now() - begun_, processorTime(::getpid()) - processorBefore_};
  }

 private:
  const Stopwatch::time_point begun_ = Stopwatch::now();
  const std::chrono::nanoseconds processorBefore_ = processorTime(::getpid());
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

using BareClient = std::unique_ptr<mosquitto, void (*)(mosquitto*)>;

BareClient makeBare(const char* id, void* state) {
  mosquitto_lib_init();
  BareClient client(mosquitto_new(id, true, state), mosquitto_destroy);
  mosquitto_int_option(client.get(), MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
  mosquitto_int_option(client.get(), MOSQ_OPT_TCP_NODELAY, 1);
  return client;
}

void connectBare(mosquitto* client, std::uint16_t port) {
  require(mosquitto_connect(client, "127.0.0.1", port, 30) == MOSQ_ERR_SUCCESS,
          "the bare loop cannot connect");
}

struct ReceiverState {
  const std::string& filter;
  const std::function<void()>& onSubscribed;
  std::size_t received = 0;
};

}  // namespace

std::chrono::nanoseconds processorTime(pid_t process) {
  clockid_t clock{};
  require(clock_getcpuclockid(process, &clock) == 0, "the process is gone");
  timespec now{};
  clock_gettime(clock, &now);
  return std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec);
}

PublishCost publishBare(const PublishTask& task) {
  BareState state;
  const BareClient client = makeBare("kestrin-bench-bare", &state);
  mosquitto_int_option(client.get(), MOSQ_OPT_SEND_MAXIMUM, static_cast<int>(task.window));
  mosquitto_connect_callback_set(client.get(), [](mosquitto*, void* object, int reason) {
    static_cast<BareState*>(object)->connected = reason == 0;
  });
  mosquitto_publish_callback_set(client.get(), [](mosquitto*, void* object, int) {
    auto& counts = *static_cast<BareState*>(object);
    --counts.inFlight;
    ++counts.acknowledged;
  });
  connectBare(client.get(), task.port);
  while (!state.connected) turn(client.get());
  const CostSoFar soFar;
  while (state.acknowledged < task.count) {
    fillWindow(client.get(), task, state);
    turn(client.get());
  }
  return soFar.cost();
}

std::chrono::steady_clock::time_point receiveBare(std::uint16_t port, const std::string& filter,
                                                  std::size_t count,
                                                  const std::function<void()>& onSubscribed) {
  ReceiverState state{filter, onSubscribed};
  const BareClient client = makeBare("kestrin-bench-receiver", &state);
  mosquitto_int_option(client.get(), MOSQ_OPT_RECEIVE_MAXIMUM, 100);
  mosquitto_connect_callback_set(client.get(), [](mosquitto* self, void* object, int reason) {
    require(reason == 0, "the bare receiver is refused");
    mosquitto_subscribe(self, nullptr, static_cast<ReceiverState*>(object)->filter.c_str(), 1);
  });
  mosquitto_subscribe_callback_set(client.get(),
                                   [](mosquitto*, void* object, int, int, const int*) {
                                     static_cast<ReceiverState*>(object)->onSubscribed();
                                   });
  mosquitto_message_callback_set(client.get(),
                                 [](mosquitto*, void* object, const mosquitto_message*) {
                                   ++static_cast<ReceiverState*>(object)->received;
                                 });
  connectBare(client.get(), port);
  while (state.received < count) turn(client.get());
  return Stopwatch::now();
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
