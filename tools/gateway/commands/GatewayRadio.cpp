#include "tools/gateway/commands/GatewayRadio.h"

#include <fstream>
#include <random>
#include <sstream>
#include <utility>

#include "tools/gateway/commands/LineFile.h"
#include "tools/gateway/commands/SafeText.h"
#include "tools/gateway/commands/SimulatedReaders.h"

#ifdef KESTRIN_HAS_BLUEZ
#include "kestrin/bluez/Bluez.h"
#endif

namespace kestrin::gateway {
namespace {

class SilentLog final : public NSLogSink {
 public:
  [[nodiscard]] bool isListening() const noexcept override { return false; }
  void write(std::string_view /*line*/) noexcept override {}
};

std::shared_ptr<NSLogSink> logSink(bool shown) {
  if (shown) return std::make_shared<StandardErrorLogSink>();
  return std::make_shared<SilentLog>();
}

Platform platformOn(const std::shared_ptr<MainRunLoop>& loop, bool log) {
  Platform platform;
  platform.mainRunLoop = loop;
  platform.thread = sleepOn(loop);
  platform.notificationCenter = std::make_shared<NSNotificationCenter>();
  platform.dispatch = Dispatch::system();
  platform.log = logSink(log);
  return platform;
}

class SimulatedRoom final : public GatewayRadio {
 public:
  SimulatedRoom(const std::shared_ptr<MainRunLoop>& loop, bool log) : loop_(loop) {
    simulated::Options options;
    options.seed = std::random_device()();
    radio_ = std::make_shared<simulated::SimulatedRadio>(loop, options);
    platform_ = platformOn(loop, log);
    platform_.radio = radio_;
  }

  std::optional<std::string> fill(const RadioRequest& request) {
    std::string error;
    const auto plans = plansOf(request, error);
    if (!plans) return error;
    if (request.sent) {
      if (auto why = sent_.open(*request.sent)) return why;
    }
    const auto write = [this](const std::string& name, const NSData& bytes) {
      sent_.add(safeText(name) + "\t" + hexText(bytes.span()));
    };
    readers_.emplace(loop_, *radio_, *plans, std::random_device()(), write);
    return std::nullopt;
  }
  [[nodiscard]] Platform platform() const override { return platform_; }

 private:
  static std::optional<std::vector<SimulatedReaderPlan>> plansOf(const RadioRequest& request,
                                                                 std::string& error) {
    if (!request.script) return plansFor(request.readers);
    std::ifstream file(*request.script, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    if (file && !text.bad()) return simulatedReadersOf(text.str(), *request.script, error);
    error = *request.script + ": cannot be read";
    return std::nullopt;
  }

  /// Without a script each reader that is named is in range, and sends once per second.
  static std::vector<SimulatedReaderPlan> plansFor(const std::vector<ReaderConfig>& readers) {
    std::vector<SimulatedReaderPlan> plans;
    for (const ReaderConfig& reader : readers) {
      const std::string unnamed = "KVR-" + std::to_string(plans.size() + 1);
      plans.push_back({reader.isAddress ? unnamed : reader.reader, std::chrono::seconds(1)});
    }
    return plans;
  }

  const std::weak_ptr<MainRunLoop> loop_;
  Platform platform_;
  std::shared_ptr<simulated::SimulatedRadio> radio_;
  LineFile sent_;
  std::optional<SimulatedReaders> readers_;
};

#ifdef KESTRIN_HAS_BLUEZ
class BluezRadio final : public GatewayRadio {
 public:
  BluezRadio(const std::shared_ptr<MainRunLoop>& loop, const RadioRequest& request) {
    platform_ = platformOn(loop, request.log);
    platform_.radio = bluez::makeRadio(
        loop, {.adapter = request.adapter, .busAddress = {}, .linkNames = request.linkNames});
  }
  [[nodiscard]] Platform platform() const override { return platform_; }

 private:
  Platform platform_;
};
#endif

std::unique_ptr<GatewayRadio> makeBluez([[maybe_unused]] const std::shared_ptr<MainRunLoop>& loop,
                                        [[maybe_unused]] const RadioRequest& request,
                                        [[maybe_unused]] std::string& error) {
#ifdef KESTRIN_HAS_BLUEZ
  return std::make_unique<BluezRadio>(loop, request);
#else
  error = "radio.kind: this build does not have the radio bluez; the one it has is simulated";
  return nullptr;
#endif
}

}  // namespace

std::unique_ptr<GatewayRadio> makeRadio(const std::shared_ptr<MainRunLoop>& loop,
                                        const RadioRequest& request, std::string& error) {
  if (request.choice == RadioChoice::bluez) {
    if (!request.sent) return makeBluez(loop, request, error);
    error = "--sent: only the simulated radio writes down what its readers send";
    return nullptr;
  }
  auto room = std::make_unique<SimulatedRoom>(loop, request.log);
  if (auto why = room->fill(request)) {
    error = *why;
    return nullptr;
  }
  return room;
}

}  // namespace kestrin::gateway
