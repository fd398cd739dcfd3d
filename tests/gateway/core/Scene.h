// A gateway whole, on a simulated radio, a model disk and a model broker, in virtual time.
//
// Threads: one. Lifetime: the test's. Errors: a log that cannot be opened fails the test.
#pragma once

#include <gtest/gtest.h>

#include "gateway/core/Disk.h"
#include "gateway/support/ModelBroker.h"
#include "gateway/support/ModelHttp.h"
#include "kestrin/simulated/SimulatedPlatform.h"
#include "tools/gateway/core/Gateway.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace kestrin::gateway::test {

using std::chrono::milliseconds;
using std::chrono::minutes;
using std::chrono::seconds;

class SilentLog final : public NSLogSink {
 public:
  [[nodiscard]] bool isListening() const noexcept override { return false; }
  void write(std::string_view /*line*/) noexcept override {}
};

/// Syncs after a while, in virtual time.
class DelayedSyncing final : public Syncing {
 public:
  DelayedSyncing(std::weak_ptr<RunLoop> loop, Time delay)
      : timer_(std::move(loop)), delay_(delay) {}
  void start(std::shared_ptr<SyncWork> work, std::function<void()> done) override {
    work_ = std::move(work);
    timer_.arm(delay_, [this, done = std::move(done)] {
      run(*work_);
      work_.reset();
      done();
    });
  }

 private:
  Timer timer_;
  const Time delay_;
  std::shared_ptr<SyncWork> work_;
};

inline std::vector<std::uint8_t> frameBytes(std::uint8_t code, std::uint32_t count,
                                            std::size_t payloadSize = 4) {
  std::vector<std::uint8_t> payload = {
      static_cast<std::uint8_t>(count >> 24U), static_cast<std::uint8_t>(count >> 16U),
      static_cast<std::uint8_t>(count >> 8U), static_cast<std::uint8_t>(count)};
  payload.resize(payloadSize, 0x11);
  const auto frame = buildRcpFrame(0x02, code, payload);
  return {frame->span().begin(), frame->span().end()};
}

class Scene {
 public:
  explicit Scene(std::uint64_t seed = 1)
      : simulated(options(seed)),
        disk(seed),
        broker(simulated.platform().mainRunLoop, {.seed = seed}),
        web(simulated.platform().mainRunLoop, seed) {
    config.name = "g1";
    config.log.folder = "log";
    config.broker.host = "broker";
    config.consumers = {"c1"};
  }
  ~Scene() {
    // What a test gave may be gone already.
    broker.watch(nullptr);
    broker.refuse(nullptr);
    kill();
  }
  Scene(const Scene&) = delete;
  Scene& operator=(const Scene&) = delete;

  std::shared_ptr<simulated::VirtualPeripheral> addReader(
      const std::string& name, simulated::ReaderFamily family = simulated::ReaderFamily::standard) {
    config.readers.push_back({.reader = name});
    return simulated.radio().addReader(name, family);
  }

  void start() {
    std::string error;
    std::vector<std::string> findings;
    auto log = disk.open(config.log.folder, config.log.budget, error, findings);
    if (!log) {
      // A log cannot be recovered on a full disk; the gateway says so and is started again.
      EXPECT_TRUE(disk.isFull()) << error;
      return;
    }
    const auto loop = simulated.platform().mainRunLoop;
    Platform platform = simulated.platform();
    if (radio) platform.radio = radio;
    if (gatewayLoop) platform.mainRunLoop = gatewayLoop;
    gateway = std::make_unique<Gateway>(
        Parts{.platform = std::move(platform),
              .log = std::move(log),
              .broker = broker.client(config.name, false),
              .syncing = std::make_shared<DelayedSyncing>(loop, syncDelay),
              .http = std::shared_ptr<HttpClient>(&web, [](HttpClient*) {}),
              .random =
                  [engine = std::make_shared<std::mt19937>(static_cast<unsigned>(boots))] {
                    return std::uniform_real_distribution<double>(0, 1)(*engine);
                  },
              .clocks = {.wallMs = [this] { return wallBegin + monoMs(); },
                         .monoMs = [this] { return monoMs(); }},
              .identity = {.boot = "boot" + std::to_string(++boots),
                           .version = "1.0.0",
                           .radio = "simulated",
                           .adapter = ""},
              .findings = std::move(findings),
              .say = [this](const std::string& line) { said.push_back(line); },
              .onAppended =
                  [this](const Record& record, const auto& number) {
                    if (onAppended) onAppended(record, number);
                  },
              .hearing = hearing},
        config);
  }
  /// What a kill of the process is.
  void kill() {
    if (gateway) disk.kill();
    gateway.reset();
  }
  void cutPower() {
    disk.cut();
    gateway.reset();
  }
  bool stop() {
    bool stopped = false;
    gateway->stop([&] { stopped = true; });
    return loop().runUntil(timeAfter(now(), seconds(60)), [&] { return stopped; });
  }

  [[nodiscard]] MainRunLoop& loop() const { return simulated.runLoop(); }
  [[nodiscard]] Time now() const { return loop().now(); }
  void runFor(Time span) const { loop().runFor(span); }
  bool runUntil(const std::function<bool()>& done, Time limit = minutes(2)) const {
    return loop().runUntil(timeAfter(now(), limit), done);
  }
  bool plugIn(const std::shared_ptr<simulated::VirtualPeripheral>& reader) const {
    const bool is = runUntil([&] { return reader->connected(); });
    runFor(seconds(5));
    return is;
  }
  [[nodiscard]] std::int64_t monoMs() const {
    return std::chrono::duration_cast<milliseconds>(now()).count();
  }
  [[nodiscard]] bool hasTrouble(const std::string& words) const {
    for (const std::string& each : gateway->troubles()) {
      if (each.find(words) != std::string::npos) return true;
    }
    return false;
  }
  [[nodiscard]] bool hasSaid(const std::string& words) const {
    for (const std::string& each : said) {
      if (each.find(words) != std::string::npos) return true;
    }
    return false;
  }

  simulated::SimulatedPlatform simulated;
  Disk disk;
  ModelBroker broker;
  ModelHttp web;
  Config config;
  Time syncDelay = milliseconds(5);
  /// Stands between the gateway and the loop, if given.
  std::shared_ptr<RunLoop> gatewayLoop;
  std::int64_t wallBegin = 1'800'000'000'000;
  int boots = 0;
  std::vector<std::string> said;
  std::function<void(const Record&, std::optional<RecordNumber>)> onAppended;
  std::shared_ptr<Radio> radio{};  // In place of the simulated platform's.
  std::shared_ptr<const Hearing> hearing{};
  std::unique_ptr<Gateway> gateway;

 private:
  static simulated::Options options(std::uint64_t seed) {
    simulated::Options options;
    options.seed = seed;
    options.virtualTime = true;
    options.log = std::make_shared<SilentLog>();
    return options;
  }
};

/// A client of the broker that keeps what it hears.
class Listener {
 public:
  Listener(ModelBroker& broker, const std::string& id, std::vector<std::string> filters)
      : client_(broker.client(id, true)) {
    client_->start(std::move(filters), std::nullopt,
                   {.onMessage = [this](const Message& message) { heard.push_back(message); }});
  }
  void publish(const std::string& topic, const std::string& payload, bool retain = false) {
    Message message;
    message.topic = topic;
    message.payload = payload;
    message.retain = retain;
    publish(message);
  }
  void publish(const Message& message) { EXPECT_TRUE(client_->publish(message)); }
  /// The numbers of the records among what was heard.
  [[nodiscard]] std::vector<RecordNumber> numbers() const {
    std::vector<RecordNumber> numbers;
    for (const Message& each : heard) {
      std::string error;
      if (const auto delivery = deliveryOf(each.payload, error)) {
        numbers.push_back(delivery->record.number);
      }
    }
    return numbers;
  }

  std::vector<Message> heard;

 private:
  std::unique_ptr<Broker> client_;
};

}  // namespace kestrin::gateway::test
