// A day of a gateway's life in virtual time: twelve readers of both families, two consumers, and
// every fault that can be made here, one after another, each several times. Each hour everything
// comes to rest: the promise is judged, and that nothing has grown.
//
// Repeatable: KESTRIN_GATEWAY_SEED and KESTRIN_GATEWAY_SOAK_HOURS (1 if not given) settle
// everything.
#include "gateway/core/CountingLoop.h"
#include "gateway/core/Promise.h"
#include "gateway/core/Rest.h"
#include "gateway/core/Scene.h"

#include <algorithm>
#include <functional>
#include <iostream>
#include <iterator>
#include <random>
#include <utility>

namespace kestrin::gateway::test {
namespace {

constexpr std::uint32_t kReaders = 12;
constexpr auto kBetweenFaults = seconds(30);
/// Timers and tasks of the gateway and of its readers, once everything rests.
constexpr std::size_t kMostPending = 30;
/// What is published and what waits for an acknowledgement.
constexpr std::size_t kMostHeld = 300;
/// Each consumer's commit, and each reader that has retained topics.
constexpr std::size_t kMostKept = 2 + kReaders + 1;

/// What is wrong on purpose, so that the soak has something to find.
struct Mistake {
  bool forgetsAtTheAcknowledgement = false;
  bool leavesTheSyncOut = false;
  bool leaksTimers = false;
};

class Soak {
 public:
  explicit Soak(std::uint32_t seed, Mistake mistake = {})
      : random_(seed),
        mistake_(mistake),
        scene_(seed),
        loop_(std::make_shared<CountingLoop>(scene_.loop())) {
    scene_.disk.setLying(mistake.leavesTheSyncOut);
    scene_.gatewayLoop = loop_;
    scene_.config.log.syncInterval = milliseconds(50);
    scene_.config.log.budget = kSmallestBudget;
    scene_.onAppended = [this](const Record& record, const auto& number) {
      const Log& log = scene_.gateway->log();
      promise_.taken(log.identity(), record, number, scene_.now());
      largest_ = std::max(largest_, log.size());
      if (log.size() > kSmallestBudget) breach("the log is larger than its budget");
    };
    addReaders();
    addConsumers();
    stranger_ = std::make_unique<Listener>(scene_.broker, "stranger", std::vector<std::string>{});
  }

  /// Every breach of the promise, and everything that has grown.
  std::vector<std::string> play(std::uint32_t hours) {
    scene_.start();
    for (const auto& each : consumers_) each->start();
    for (std::uint32_t hour = 0; hour < hours && breaches_.empty(); ++hour) {
      const Time end = timeAfter(scene_.now(), std::chrono::hours(1));
      while (scene_.now() < end) step();
      rest();
      judge();
    }
    return std::move(breaches_);
  }
  struct Count {
    std::size_t frames = 0, faults = 0, refused = 0, mayBeLost = 0, gaps = 0, pending = 0;
  };
  [[nodiscard]] const Count& count() const { return count_; }
  [[nodiscard]] std::uint64_t largest() const { return largest_; }
  [[nodiscard]] std::size_t kinds() const { return faults_.size(); }

 private:
  using Act = void (Soak::*)();
  struct Reader {
    std::shared_ptr<simulated::VirtualPeripheral> device;
    CBUUID rx;
    std::uint32_t sent = 0;
  };

  std::uint32_t below(std::uint32_t count) { return static_cast<std::uint32_t>(random_() % count); }
  Time upTo(Time longest) {
    return milliseconds(1 + below(static_cast<std::uint32_t>(longest / milliseconds(1))));
  }
  void breach(const std::string& text) {
    if (breaches_.size() < 20) breaches_.push_back(text);
  }
  Reader& anyReader() { return readers_[below(kReaders)]; }
  ConsumerProcess& anyConsumer() {
    return *consumers_[below(static_cast<std::uint32_t>(consumers_.size()))];
  }
  void addReaders() {
    for (std::uint32_t each = 0; each < kReaders; ++each) {
      const bool isQ62 = each % 3 == 0;
      const auto family =
          isQ62 ? simulated::ReaderFamily::kvrQ62T : simulated::ReaderFamily::standard;
      const std::string name = (isQ62 ? "KVR-Q62T-" : "KVR-00") + std::to_string(10 + each);
      const auto device = scene_.addReader(name, family);
      if (each % 2 == 0) scene_.config.readers.back() = {device->identifier(), true};
      readers_.push_back({device, simulated::readerCharacteristics(family).rx, 0});
    }
    // Another reader of the name of one that is named in the configuration.
    twin_ = scene_.simulated.radio().addReader("KVR-0011", simulated::ReaderFamily::standard);
    twin_->simulateVanishing();
  }
  void addConsumers() {
    const std::vector<std::string> names = {"c0", "c1"};
    scene_.config.consumers.clear();
    if (!mistake_.forgetsAtTheAcknowledgement) scene_.config.consumers = names;
    for (const std::string& name : names) {
      consumers_.push_back(std::make_unique<ConsumerProcess>(
          scene_.simulated.platform().mainRunLoop, scene_.broker,
          ConsumerProcess::How{
              .gateway = scene_.config.name, .name = name, .keepsSession = name == "c0"}));
    }
  }

  void step() {
    for (Reader& each : readers_) send(each, 1 + below(2), 4);
    scene_.runFor(upTo(2 * kBetweenFaults));
    heal(scene_.now());
    nextFault();
  }
  void nextFault() {
    if (next_ == faults_.size()) {
      std::shuffle(faults_.begin(), faults_.end(), random_);
      next_ = 0;
    }
    ++count_.faults;
    (this->*faults_[next_++])();
  }
  /// Ends what has been wrong for its time.
  void heal(Time now) {
    std::vector<std::function<void()>> due;
    for (auto each = healings_.begin(); each != healings_.end();) {
      if (each->first > now) {
        ++each;
        continue;
      }
      due.push_back(std::move(each->second));
      each = healings_.erase(each);
    }
    for (const auto& each : due) each();
  }
  void healIn(Time longest, std::function<void()> healing) {
    healings_.emplace_back(timeAfter(scene_.now(), upTo(longest)), std::move(healing));
  }

  void send(Reader& reader, std::uint32_t count, std::size_t size) {
    for (std::uint32_t each = 0; each < count; ++each) {
      const auto bytes = frameBytes(0x22, ++reader.sent, size);
      reader.device->simulateNotification(reader.rx, NSData(std::span<const std::uint8_t>(bytes)));
      if (each % 50 == 49) scene_.runFor(milliseconds(20));
    }
  }

  void brokerGone() {
    scene_.broker.crash();
    healIn(minutes(20), [this] { scene_.broker.comeBack(); });
  }
  void brokerStartsEmpty() {
    scene_.broker.crash();
    scene_.broker.comeBack();
  }
  void brokerRefuses(const std::string& part) {
    scene_.broker.refuse(
        [part](const std::string& topic) { return topic.find(part) != std::string::npos; });
    healIn(minutes(5), [this] { scene_.broker.refuse(nullptr); });
  }
  void brokerRefusesFrames() { brokerRefuses("/frame"); }
  void brokerRefusesRetained() { brokerRefuses("/health"); }
  void brokerSlow(Time least, Time longest) {
    scene_.broker.setDelays(least, longest);
    healIn(minutes(5), [this] { scene_.broker.setDelays(milliseconds(1), milliseconds(20)); });
  }
  void brokerSlow() { brokerSlow(milliseconds(200), seconds(3)); }
  void brokerAcknowledgesNothing() { brokerSlow(seconds(60), seconds(90)); }
  void brokerDeliversTwice() {
    scene_.broker.setDuplicates(0.3);
    healIn(minutes(10), [this] { scene_.broker.setDuplicates(0); });
  }
  void gatewayCutOff() {
    scene_.broker.loseConnection(scene_.config.name, upTo(milliseconds(100)));
  }
  void gatewayHalfOpen() { scene_.broker.loseConnection(scene_.config.name, upTo(seconds(60))); }
  void consumerCutOff() { scene_.broker.loseConnection(anyConsumer().name(), upTo(seconds(60))); }
  void diskFull() {
    scene_.disk.setFull(true);
    healIn(minutes(3), [this] { scene_.disk.setFull(false); });
  }
  void diskFails() {
    scene_.disk.setBroken(true);
    healIn(minutes(3), [this] {
      scene_.disk.setBroken(false);
      startGateway();
    });
  }
  void linkLost() { anyReader().device->simulateLinkLoss(); }
  void readerGone() {
    const auto device = anyReader().device;
    device->simulateVanishing();
    healIn(minutes(20), [device] { device->simulateAppearing(); });
  }
  void twoOfOneName() {
    twin_->simulateAppearing();
    readers_[1].device->simulateLinkLoss();
    healIn(minutes(5), [this] { twin_->simulateVanishing(); });
  }
  void startGateway() {
    if (scene_.gateway || scene_.disk.isFull() || scene_.disk.isBroken()) return;
    // Some disks take their time.
    scene_.syncDelay = below(3) == 0 ? seconds(2) : milliseconds(5);
    begin_ = scene_.now();
    scene_.start();
  }
  void gatewayAway() {
    healIn(minutes(2), [this] { startGateway(); });
  }
  void gatewayKilled() {
    if (!scene_.gateway) return;
    scene_.kill();
    promise_.killed();
    gatewayAway();
  }
  void powerCut() {
    if (!scene_.gateway) return;
    for (Reader& each : readers_) send(each, 3, 4);
    scene_.runFor(upTo(milliseconds(40)));
    const LogIdentity log = scene_.gateway->log().identity();
    const RecordNumber synced = scene_.gateway->log().synced();
    scene_.cutPower();
    promise_.killed();
    const Time cost = scene_.config.log.syncInterval + 2 * scene_.syncDelay + milliseconds(1);
    promise_.powerCut(log, synced, begin_, scene_.now(), cost);
    gatewayAway();
  }
  void gatewayStopped() {
    if (!scene_.gateway) return;
    if (!scene_.stop()) breach("the gateway does not stop");
    gatewayKilled();
  }
  void clockJumps() {
    const std::int64_t hour = 3'600'000;
    scene_.wallBegin += (below(2) == 0 ? 1 : -1) * hour * static_cast<std::int64_t>(1 + below(48));
  }
  void consumerKilled() {
    ConsumerProcess& consumer = anyConsumer();
    consumer.kill(below(2) == 0);
    healIn(minutes(10), [&consumer] {
      if (!consumer.runs()) consumer.start();
    });
  }
  void consumerStalls() {
    ConsumerProcess& consumer = anyConsumer();
    consumer.setBusy(true);
    healIn(minutes(10), [&consumer] { consumer.setBusy(false); });
  }
  void reloaded() {
    if (!scene_.gateway) return;
    Config fewer = scene_.config;
    fewer.readers.erase(fewer.readers.begin() + static_cast<std::ptrdiff_t>(below(kReaders)));
    scene_.gateway->reload(fewer);
    healIn(minutes(5), [this] {
      if (scene_.gateway) scene_.gateway->reload(scene_.config);
    });
  }
  /// Commands that are wrong or come twice, and a commit of a log that there is not.
  void mischief() {
    if (!scene_.broker.isConnected("stranger")) return;
    const std::string begin = "kestrin/v1/" + scene_.config.name + "/";
    stranger_->publish(begin + "commit/c0",
                       R"({"v":1,"log":"0123456789abcdef0123456789abcdef","n":9})");
    const std::string topic = begin + "reader/" + anyReader().device->identifier() + "/command";
    stranger_->publish(topic, "{");
    stranger_->publish(topic, R"({"bytes":"bb 00"})", true);
    Message command;
    command.topic = topic;
    command.payload = R"({"bytes":"bb 00 03 00 01 00 04 7e"})";
    command.responseTopic = "answers";
    for (std::uint32_t each = 0; each < 20; ++each) {
      command.correlationData = std::to_string(below(1000));
      stranger_->publish(command);
    }
  }
  void manyFrames() { send(anyReader(), 300, below(2) == 0 ? 1000 : 4); }

  void rest() {
    heal(timeAfter(scene_.now(), std::chrono::hours(24)));
    for (Reader& each : readers_) each.device->simulateAppearing();
    startGateway();
    for (const auto& each : consumers_) {
      if (!each->runs()) each->start();
    }
    scene_.runFor(minutes(2));
    if (!scene_.gateway) return breach("the gateway does not start");
    const auto isDone = [this] { return isAtRest(scene_.gateway->log(), consumers_); };
    if (!scene_.runUntil(isDone, minutes(30))) {
      breach("not everything has come: " + standOf(*scene_.gateway, consumers_));
    }
  }
  void judge() {
    if (!breaches_.empty()) return;
    for (const auto& each : consumers_) {
      for (const std::string& line : promise_.breaches(*each)) breach(line);
      count_.gaps += each->gaps.size();
      each->rememberState();
      each->kept.clear();
      each->order.clear();
      each->gaps.clear();
    }
    count_.frames += promise_.frames();
    count_.refused += promise_.refused();
    count_.mayBeLost += promise_.mayBeLost();
    promise_ = Promise();
    scene_.said.clear();
    stranger_->heard.clear();
    lookForGrowth();
  }
  void lookForGrowth() {
    if (mistake_.leaksTimers) {
      for (int each = 0; each < 20; ++each) loop_->arm(std::chrono::hours(1000), [] {});
    }
    count_.pending = std::max(count_.pending, loop_->pending());
    const std::size_t held = scene_.gateway->publisher().held();
    const std::size_t kept = scene_.gateway->log().kept().size();
    if (count_.pending > kMostPending) {
      breach("what waits in the loop has grown to " + std::to_string(count_.pending));
    }
    if (held > kMostHeld) breach("held in memory: " + std::to_string(held) + " records");
    if (kept > kMostKept) breach("kept with the log: " + std::to_string(kept) + " values");
  }

  std::mt19937_64 random_;
  const Mistake mistake_;
  Scene scene_;
  const std::shared_ptr<CountingLoop> loop_;
  Promise promise_;
  std::vector<Reader> readers_;
  std::shared_ptr<simulated::VirtualPeripheral> twin_;
  Consumers consumers_;
  std::unique_ptr<Listener> stranger_;
  std::vector<std::pair<Time, std::function<void()>>> healings_;
  std::vector<Act> faults_ = {&Soak::brokerGone,
                              &Soak::brokerStartsEmpty,
                              &Soak::brokerRefusesFrames,
                              &Soak::brokerRefusesRetained,
                              &Soak::brokerSlow,
                              &Soak::brokerAcknowledgesNothing,
                              &Soak::brokerDeliversTwice,
                              &Soak::gatewayCutOff,
                              &Soak::gatewayHalfOpen,
                              &Soak::consumerCutOff,
                              &Soak::diskFull,
                              &Soak::diskFails,
                              &Soak::linkLost,
                              &Soak::readerGone,
                              &Soak::twoOfOneName,
                              &Soak::gatewayKilled,
                              &Soak::powerCut,
                              &Soak::gatewayStopped,
                              &Soak::clockJumps,
                              &Soak::consumerKilled,
                              &Soak::consumerStalls,
                              &Soak::reloaded,
                              &Soak::mischief,
                              &Soak::manyFrames};
  std::size_t next_ = faults_.size();
  std::vector<std::string> breaches_;
  Count count_;
  std::uint64_t largest_ = 0;
  Time begin_{};
};

TEST(Soak, LosesNothingAndGrowsNowhereThroughFaultsOfEveryKind) {
  const std::uint32_t seed = environmentNumber("KESTRIN_GATEWAY_SEED", 1);
  const std::uint32_t hours = environmentNumber("KESTRIN_GATEWAY_SOAK_HOURS", 1);
  std::cout << "KESTRIN_GATEWAY_SEED=" << seed << "\n";
  Soak soak(seed);
  for (const std::string& breach : soak.play(hours)) ADD_FAILURE() << breach;
  const Soak::Count& count = soak.count();
  std::cout << hours << " hours: " << count.frames << " frames, " << count.faults << " faults of "
            << soak.kinds() << " kinds, which may have cost " << count.mayBeLost
            << " by power cuts, " << count.refused << " refused by the disk, " << count.gaps
            << " gaps, the log at most " << soak.largest() << " bytes, at most " << count.pending
            << " timers and tasks at rest\n";
  EXPECT_GT(count.frames, hours * 500U);
  EXPECT_GE(count.faults, hours * soak.kinds());
}

bool finds(Mistake mistake, const std::string& words) {
  for (std::uint32_t seed = 1; seed <= 10; ++seed) {
    for (const std::string& breach : Soak(seed, mistake).play(4)) {
      if (breach.find(words) != std::string::npos) return true;
    }
  }
  return false;
}

TEST(SoakCheck, FindsAGatewayThatForgetsAtTheAcknowledgement) {
  EXPECT_TRUE(finds({.forgetsAtTheAcknowledgement = true}, "has not got"));
}

TEST(SoakCheck, FindsASyncThatIsLeftOut) {
  EXPECT_TRUE(finds({.leavesTheSyncOut = true}, "has not got"));
}

TEST(SoakCheck, FindsTimersThatStay) { EXPECT_TRUE(finds({.leaksTimers = true}, "has grown")); }

}  // namespace
}  // namespace kestrin::gateway::test
