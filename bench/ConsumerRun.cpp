#include "ConsumerRun.h"

#include <KestrinBLESDK/platform/MainRunLoop.h>

#include <memory>
#include <optional>
#include <utility>

#include "Frames.h"
#include "tools/gateway/broker/BrokerAccess.h"
#include "tools/gateway/broker/MosquittoBroker.h"
#include "tools/gateway/consumer/Consumer.h"

namespace kestrin::bench {
namespace {

constexpr Time kTick = std::chrono::seconds(1);
constexpr double kFarewellSeconds = 5;

gateway::BrokerSettings settingsOf(const ConsumerTask& task) {
  gateway::BrokerSettings settings;
  settings.config.host = "127.0.0.1";
  settings.config.port = task.port;
  settings.clientId = "kestrin-bench-" + task.consumer;
  return settings;
}

class Run {
 public:
  Run(const ConsumerTask& task, const std::function<void()>& onReady)
      : task_(task),
        onReady_(onReady),
        broker_(loop_, settingsOf(task)),
        consumer_(task.gateway, task.consumer, consumerHandlers()) {}

  ConsumerEnd go() {
    broker_.start(consumer_.filters(), std::nullopt, brokerHandlers());
    tickLater();
    loop_->run();
    end_.repeats = consumer_.repeats();
    end_.lost = consumer_.lost();
    return end_;
  }

 private:
  gateway::Consumer::Handlers consumerHandlers() {
    gateway::Consumer::Handlers handlers;
    handlers.onRecord = [this](const gateway::LogIdentity&, const gateway::Record& record) {
      if (record.number == task_.first) onReady_();
      if (record.number == task_.last) end_.moment = std::chrono::steady_clock::now();
      taken_ = record.number;
      return true;
    };
    handlers.onTrouble = [](const std::string& text) { require(false, text.c_str()); };
    handlers.publish = [this](const gateway::Message& message) {
      require(broker_.publish(message).has_value(), "the consumer cannot publish");
    };
    return handlers;
  }

  gateway::BrokerHandlers brokerHandlers() {
    gateway::BrokerHandlers handlers;
    handlers.onUp = [this](const gateway::BrokerUp&) { consumer_.connected(); };
    handlers.onDown = [](const std::string& why) { require(false, why.c_str()); };
    handlers.onMessage = [this](const gateway::Message& message) {
      consumer_.take(message);
      if (taken_ >= task_.last) leave();
    };
    return handlers;
  }

  void tickLater() {
    loop_->arm(kTick, [this] {
      if (isLeaving_) return;
      consumer_.tick();
      tickLater();
    });
  }

  void leave() {
    if (std::exchange(isLeaving_, true)) return;
    // The call comes from inside of the consumer's message, and the broker must not be stopped
    // there.
    loop_->post([this] {
      consumer_.tick();
      broker_.stop(kFarewellSeconds, [this] { loop_->stop(); });
    });
  }

  const ConsumerTask& task_;
  const std::function<void()>& onReady_;
  const std::shared_ptr<MainRunLoop> loop_ = std::make_shared<MainRunLoop>();
  gateway::MosquittoBroker broker_;
  gateway::Consumer consumer_;
  gateway::RecordNumber taken_ = 0;
  ConsumerEnd end_;
  bool isLeaving_ = false;
};

}  // namespace

ConsumerEnd runConsumer(const ConsumerTask& task, const std::function<void()>& onReady) {
  return Run(task, onReady).go();
}

}  // namespace kestrin::bench
