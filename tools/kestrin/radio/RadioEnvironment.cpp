#include "tools/kestrin/radio/RadioEnvironment.h"

#include <KestrinBLESDK/recording/RecordedPlatform.h>

#include <utility>

#include "kestrin/simulated/SimulatedPlatform.h"
#include "tools/kestrin/console/Console.h"
#include "tools/kestrin/radio/SimulatedScene.h"

#ifdef KESTRIN_HAS_BLUEZ
#include "kestrin/bluez/Bluez.h"
#include "kestrin/bluez/SleepWatch.h"
#endif

namespace kestrin::app {
namespace {

class SilentLog final : public NSLogSink {
 public:
  [[nodiscard]] bool isListening() const noexcept override { return false; }
  void write(std::string_view /*line*/) noexcept override {}
};

std::shared_ptr<NSLogSink> logOf(const RadioRequest& request) {
  return request.log && request.logTo ? request.logTo : logSink(request.log);
}

class SimulatedEnvironment final : public RadioEnvironment {
 public:
  explicit SimulatedEnvironment(const RadioRequest& request)
      : simulated_(sceneOptions(request.virtualTime, logOf(request))), scene_(simulated_) {
    scene_.startTagReports();
  }
  [[nodiscard]] Platform platform() const override { return simulated_.platform(); }
  [[nodiscard]] MainRunLoop& loop() const override { return simulated_.runLoop(); }

 private:
  simulated::SimulatedPlatform simulated_;
  SimulatedScene scene_;
};

#ifdef KESTRIN_HAS_BLUEZ
class BluezEnvironment final : public RadioEnvironment {
 public:
  explicit BluezEnvironment(const RadioRequest& request) {
    loop_ = std::make_shared<MainRunLoop>();
    platform_.radio = bluez::makeRadio(loop_, {.adapter = request.adapter, .busAddress = {}});
    platform_.mainRunLoop = loop_;
    platform_.thread = sleepOn(loop_);
    platform_.log = logOf(request);
  }
  [[nodiscard]] Platform platform() const override { return platform_; }
  [[nodiscard]] MainRunLoop& loop() const override { return *loop_; }

 private:
  // The loop goes first: what is pending on it may keep a manager, which keeps the radio.
  Platform platform_;
  std::shared_ptr<MainRunLoop> loop_;
};
#endif

}  // namespace

Background::~Background() = default;

RadioEnvironment::~RadioEnvironment() = default;

std::shared_ptr<RadioWatch> RadioEnvironment::radioWatch() const {
  return RadioWatch::of(unrecorded(platform()));
}

void RadioEnvironment::leave() {
  leaving_ = true;
  if (background_ != nullptr) background_->leave();
}

void RadioEnvironment::comeBack() {
  leaving_ = false;
  if (background_ != nullptr) background_->comeBack();
}

std::shared_ptr<NSLogSink> logSink(bool shown) {
  if (shown) return std::make_shared<StandardErrorLogSink>();
  return std::make_shared<SilentLog>();
}

std::unique_ptr<RadioEnvironment> makeRadioEnvironment(const RadioRequest& request,
                                                       [[maybe_unused]] Console& console) {
  if (request.kind == RadioKind::simulated) return std::make_unique<SimulatedEnvironment>(request);
#ifdef KESTRIN_HAS_BLUEZ
  return std::make_unique<BluezEnvironment>(request);
#else
  console.note("--radio bluez: this build has no such radio; the one it has is --radio simulated");
  return nullptr;
#endif
}

std::shared_ptr<void> watchSleep([[maybe_unused]] const RadioRequest& request,
                                 [[maybe_unused]] RadioEnvironment& environment) {
#ifdef KESTRIN_HAS_BLUEZ
  if (request.kind == RadioKind::bluez) {
    bluez::SleepOptions options;
    options.beforeSleep = [&environment] { environment.leave(); };
    options.isDown = [&environment] { return environment.isDown(); };
    options.afterWake = [&environment] { environment.comeBack(); };
    return bluez::watchSleep(environment.platform(), std::move(options));
  }
#endif
  return nullptr;
}

}  // namespace kestrin::app
