#include "WholeGateway.h"

#include <KestrinBLESDK/RcpFrame.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <ctime>
#include <functional>
#include <utility>

#include "Frames.h"
#include "tools/gateway/broker/BrokerAccess.h"
#include "tools/gateway/broker/MosquittoBroker.h"
#include "tools/gateway/log/SyncThread.h"

namespace kestrin::bench {
namespace {

constexpr const char* kReader = "KVR-0417";
constexpr std::size_t kFramesInATurn = 10;
constexpr gateway::RecordNumber kSample = 100;
constexpr Time kLimit = std::chrono::minutes(5);
constexpr Time kQuiet = std::chrono::seconds(3);

std::int64_t millisecondsOf(clockid_t clock) {
  timespec now{};
  ::clock_gettime(clock, &now);
  const auto span = std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec);
  return std::chrono::duration_cast<std::chrono::milliseconds>(span).count();
}

simulated::Options quickOptions() {
  simulated::Options options;
  options.latency = {Time::zero(), Time::zero()};
  options.connectionDelay = {Time::zero(), Time::zero()};
  return options;
}

Platform platformOn(const std::shared_ptr<MainRunLoop>& loop, std::shared_ptr<Radio> radio) {
  Platform platform;
  platform.radio = std::move(radio);
  platform.mainRunLoop = loop;
  platform.thread = sleepOn(loop);
  platform.notificationCenter = std::make_shared<NSNotificationCenter>();
  platform.dispatch = Dispatch::system();
  platform.log = std::make_shared<DeafSink>();
  return platform;
}

/// Tells when the connection is up, and ends the program when it is lost again.
class WatchedBroker final : public gateway::Broker {
 public:
  WatchedBroker(std::unique_ptr<gateway::Broker> inner, std::shared_ptr<bool> up)
      : inner_(std::move(inner)), up_(std::move(up)) {}

  void start(std::vector<std::string> filters, std::optional<gateway::Message> will,
             gateway::BrokerHandlers handlers) override {
    const auto onUp = std::exchange(handlers.onUp, nullptr);
    handlers.onUp = [up = up_, onUp](const gateway::BrokerUp& broker) {
      *up = true;
      onUp(broker);
    };
    const auto onDown = std::exchange(handlers.onDown, nullptr);
    handlers.onDown = [up = up_, onDown](const std::string& why) {
      require(!*up, why.c_str());
      onDown(why);
    };
    inner_->start(std::move(filters), std::move(will), std::move(handlers));
  }
  std::optional<gateway::PublishId> publish(gateway::Message message) override {
    return inner_->publish(std::move(message));
  }
  void stop(double limitSeconds, std::function<void()> done) override {
    inner_->stop(limitSeconds, std::move(done));
  }
  void reloadCertificates() override { inner_->reloadCertificates(); }

 private:
  const std::unique_ptr<gateway::Broker> inner_;
  const std::shared_ptr<bool> up_;
};

/// `start` of one gateway may come before the work of another one is done.
class ThreadSyncing final : public gateway::Syncing {
 public:
  explicit ThreadSyncing(std::weak_ptr<RunLoop> loop) : loop_(std::move(loop)) {}
  void start(std::shared_ptr<gateway::SyncWork> work, std::function<void()> done) override {
    thread_.start(std::move(work), [loop = loop_, done = std::move(done)]() mutable {
      if (const auto alive = loop.lock()) alive->post(std::move(done));
    });
  }

 private:
  const std::weak_ptr<RunLoop> loop_;
  gateway::SyncThread thread_;
};

gateway::Config configOf(const WholeSettings& settings) {
  gateway::Config config;
  config.name = settings.name;
  config.log.folder = settings.folder;
  config.log.budget = settings.budget;
  config.broker.host = "127.0.0.1";
  config.broker.port = settings.port;
  config.readers.push_back({.reader = kReader});
  config.consumers = settings.consumers;
  return config;
}

std::unique_ptr<gateway::Log> openLog(const WholeSettings& settings) {
  gateway::LogOptions options;
  options.folder = settings.folder;
  options.budget = settings.budget;
  std::string error;
  auto log = gateway::Log::open(gateway::systemFiles(), std::move(options), error);
  require(log != nullptr, error.c_str());
  return log;
}

/// Hands frames to the readers, a few in each turn of the loop.
class Feed : public std::enable_shared_from_this<Feed> {
 public:
  Feed(MainRunLoop& loop, const std::vector<std::unique_ptr<WholeGateway>>& gateways,
       std::size_t each)
      : loop_(loop), gateways_(gateways), left_(gateways.size() * each) {}

  void go() {
    for (std::size_t i = 0; i < kFramesInATurn && left_ > 0; ++i) {
      gateways_[--left_ % gateways_.size()]->sendFrame();
    }
    if (left_ > 0) loop_.post([self = shared_from_this()] { self->go(); });
  }
  [[nodiscard]] bool isDone() const noexcept { return left_ == 0; }

 private:
  MainRunLoop& loop_;
  const std::vector<std::unique_ptr<WholeGateway>>& gateways_;
  std::size_t left_;
};

}  // namespace

NSData wholeFrame() {
  constexpr std::array<std::uint8_t, 5> kPayload{0x00, 0x01, 0x02, 0x03, 0x04};
  return *buildRcpFrame(0x02, 0x22, kPayload);
}

WholeGateway::WholeGateway(std::shared_ptr<MainRunLoop> loop,
                           std::shared_ptr<gateway::Syncing> syncing, const WholeSettings& settings)
    : loop_(std::move(loop)),
      radio_(std::make_shared<simulated::SimulatedRadio>(loop_, quickOptions())),
      device_(radio_->addReader(kReader, simulated::ReaderFamily::standard)),
      place_(simulated::readerCharacteristics(simulated::ReaderFamily::standard).rx),
      name_(settings.name) {
  gateway_ =
      std::make_unique<gateway::Gateway>(parts(std::move(syncing), settings), configOf(settings));
}

gateway::Parts WholeGateway::parts(std::shared_ptr<gateway::Syncing> syncing,
                                   const WholeSettings& settings) {
  gateway::Parts parts;
  parts.platform = platformOn(loop_, radio_);
  parts.log = openLog(settings);
  gateway::BrokerSettings broker;
  broker.config = configOf(settings).broker;
  broker.clientId = gateway::clientIdOf(settings.name);
  parts.broker = std::make_unique<WatchedBroker>(
      std::make_unique<gateway::MosquittoBroker>(loop_, std::move(broker)), up_);
  parts.syncing = std::move(syncing);
  parts.clocks = {.wallMs = [] { return millisecondsOf(CLOCK_REALTIME); },
                  .monoMs = [] { return millisecondsOf(CLOCK_BOOTTIME); }};
  parts.identity = {.boot = "bench", .version = "bench", .radio = "simulated", .adapter = ""};
  parts.onAppended = [this](const gateway::Record& record,
                            const std::optional<gateway::RecordNumber>& number) {
    require(number.has_value(), "the log takes no record");
    if (*number > kSample) return;
    sample_ = record;
    sample_->number = *number;
  };
  return parts;
}

bool WholeGateway::isLinked() const {
  const auto places = device_->subscriptions();
  return std::find(places.begin(), places.end(), place_) != places.end();
}

void WholeGateway::sendFrame() {
  require(device_->simulateNotification(place_, frame_), "the gateway does not listen");
}

gateway::Message WholeGateway::sampleMessage() const {
  require(sample_.has_value(), "the log has no record");
  gateway::Message message;
  message.topic = gateway::Topics(name_).readerFrame(sample_->reader);
  message.payload = gateway::payloadOf(*sample_, log().identity(), gateway::FrameFormat::json);
  return message;
}

std::shared_ptr<gateway::Syncing> makeThreadSyncing(std::weak_ptr<RunLoop> loop) {
  return std::make_shared<ThreadSyncing>(std::move(loop));
}

void sendAll(MainRunLoop& loop, const std::vector<std::unique_ptr<WholeGateway>>& gateways,
             std::size_t each) {
  const auto feed = std::make_shared<Feed>(loop, gateways, each);
  feed->go();
  loop.runUntil(Time::max(), [&] { return feed->isDone(); });
}

void awaitReaders(MainRunLoop& loop, const std::vector<std::unique_ptr<WholeGateway>>& gateways) {
  const auto areLinked = [&] {
    return std::ranges::all_of(gateways, [](const auto& each) { return each->isLinked(); });
  };
  require(loop.runUntil(timeAfter(loop.now(), kLimit), areLinked), "not every reader is held");
  const auto recorded = [&] {
    gateway::RecordNumber sum = 0;
    for (const auto& each : gateways) sum += each->last();
    return sum;
  };
  std::optional<gateway::RecordNumber> before;
  while (before != recorded()) {
    before = recorded();
    loop.runFor(kQuiet);
  }
}

}  // namespace kestrin::bench
