#include <KestrinBLESDK/platform/MainRunLoop.h>

#include <chrono>
#include <ctime>
#include <memory>
#include <random>
#include <utility>
#include <vector>

#include "tools/gateway/broker/BrokerAccess.h"
#include "tools/gateway/broker/MosquittoBroker.h"
#include "tools/gateway/commands/Commands.h"
#include "tools/gateway/commands/GatewayPage.h"
#include "tools/gateway/commands/GatewayRadio.h"
#include "tools/gateway/commands/LineFile.h"
#include "tools/gateway/commands/SafeText.h"
#include "tools/gateway/commands/Signals.h"
#include "tools/gateway/commands/ThreadSyncing.h"
#include "tools/gateway/core/Gateway.h"
#include "tools/gateway/http/CurlClient.h"
#include "tools/gateway/service/ServiceManager.h"

namespace kestrin::gateway {
namespace {

/// What has to be mended.
Line errorLine(const std::string& text) {
  Line line(text);
  line.weight = Weight::error;
  return line;
}

std::optional<Config> configOf(const std::string& file, Output& output) {
  std::vector<ConfigComplaint> complaints;
  auto config = readConfig(file, complaints);
  for (const ConfigComplaint& each : complaints) output.note(errorLine(each.printed()));
  if (!complaints.empty()) return std::nullopt;
  return config;
}

std::int64_t millisecondsOf(clockid_t clock) {
  timespec now{};
  ::clock_gettime(clock, &now);
  const auto span = std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec);
  return std::chrono::duration_cast<std::chrono::milliseconds>(span).count();
}

std::string randomHex() {
  std::random_device random;
  std::vector<std::uint8_t> bytes(8);
  for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random());
  return hexText(bytes);
}

Identity identityOf(const Config& config) {
  Identity identity;
  identity.boot = randomHex();
  identity.version = KESTRIN_VERSION;
  identity.radio = config.radio == RadioChoice::simulated ? "simulated" : "bluez";
  identity.adapter = config.adapter.value_or("");
  return identity;
}

RadioRequest radioOf(const Config& config, const RunRequest& request) {
  RadioRequest radio;
  radio.choice = config.radio;
  radio.adapter = config.adapter;
  // The log holds the folder, so that no other gateway writes there.
  radio.linkNames = config.log.folder + "/links";
  radio.script = config.simulatedScript;
  radio.readers = config.readers;
  radio.sent = request.sent;
  radio.log = request.log;
  return radio;
}

/// A gateway from its start to its end.
class Run {
 public:
  Run(const RunRequest& request, Config config, Output& output)
      : request_(request), config_(std::move(config)), output_(output) {}

  int go() {
    Signals signals(*loop_, {.end = [this] { end(); }, .reload = [this] { reload(); }});
    if (!signals.isWatching()) return failed("the system has no descriptor left");
    std::string error;
    const auto radio = makeRadio(loop_, radioOf(config_, request_), error);
    if (!radio) return wrong(error);
    auto parts = makeParts(*radio, error);
    if (!parts) return failed(error);
    output_.note("gateway " + config_.name + ", version " + KESTRIN_VERSION + ": log " +
                 parts->log->identity() + " in " + config_.log.folder + ", " +
                 brokerText(config_.broker));
    if (const auto why = writeDown(*parts)) return failed(*why);
    gateway_ = std::make_unique<Gateway>(std::move(*parts), config_);
    GatewayPage page(loop_, *gateway_, config_.page,
                     [this](const auto& line) { output_.note(line); });
    page_ = &page;
    manager_.started();
    loop_->run();
    page_ = nullptr;
    page.close();
    gateway_.reset();
    return kSuccess;
  }

 private:
  int failed(const std::string& why) {
    output_.note(errorLine(why));
    return kFailure;
  }
  int wrong(const std::string& why) {
    output_.note(errorLine(why));
    return kWrongUsage;
  }

  std::optional<Parts> makeParts(const GatewayRadio& radio, std::string& error) {
    Parts parts;
    LogOptions options;
    options.folder = config_.log.folder;
    options.budget = config_.log.budget;
    parts.log = Log::open(systemFiles(), std::move(options), error, &parts.findings);
    if (!parts.log) return std::nullopt;
    parts.platform = radio.platform();
    const auto hearing = std::make_shared<Hearing>();
    parts.platform.radio = listened(parts.platform.radio, hearing);
    parts.hearing = hearing;
    parts.broker = std::make_unique<MosquittoBroker>(
        loop_, BrokerSettings{.config = config_.broker, .clientId = clientIdOf(config_.name)});
    parts.syncing = std::make_shared<ThreadSyncing>(loop_);
    parts.http = std::make_shared<CurlClient>(loop_, "kestrin-gateway/" KESTRIN_VERSION);
    parts.clocks = {.wallMs = [] { return millisecondsOf(CLOCK_REALTIME); },
                    .monoMs = [] { return millisecondsOf(CLOCK_BOOTTIME); }};
    parts.identity = identityOf(config_);
    parts.say = [this](const Line& line) { output_.note(line); };
    return parts;
  }

  std::optional<std::string> writeDown(Parts& parts) {
    if (!request_.taken) return std::nullopt;
    if (auto why = taken_.open(*request_.taken)) return why;
    parts.onAppended = [this, log = parts.log->identity()](const Record& record,
                                                           std::optional<RecordNumber> number) {
      if (number) taken_.add(log + " " + std::to_string(*number) + " " + hexText(record.bytes));
    };
    return std::nullopt;
  }

  void end() {
    // Before the gateway stands there is nothing to leave.
    if (!gateway_) return loop_->stop();
    output_.note("asked to end: leaving the readers");
    manager_.stopping();
    gateway_->stop([this] { loop_->stop(); });
  }

  void reload() {
    if (!gateway_) return;
    manager_.reloading();
    takeConfig();
    manager_.reloaded();
  }

  void takeConfig() {
    const auto config = configOf(request_.config, output_);
    if (!config) {
      output_.note("the configuration stays as it was");
      return;
    }
    const auto restart = gateway_->reload(*config);
    if (page_ != nullptr) page_->reload();
    output_.note("the configuration was read again");
    for (const std::string& key : restart) {
      output_.note(key + " has changed, which takes a restart; it stays as it was until then");
    }
  }

  const RunRequest& request_;
  const Config config_;
  Output& output_;
  LineFile taken_;
  const std::shared_ptr<MainRunLoop> loop_ = std::make_shared<MainRunLoop>();
  std::unique_ptr<Gateway> gateway_;
  GatewayPage* page_ = nullptr;
  ServiceManager manager_{loop_, [this] { return gateway_->standing(); }};
};

}  // namespace

int runGateway(const RunRequest& request, Output& output) {
  auto config = configOf(request.config, output);
  if (!config) return kWrongUsage;
  return Run(request, std::move(*config), output).go();
}

}  // namespace kestrin::gateway
