#include "kestrin/simulated/SimulatedPlatform.h"

#include <utility>

namespace kestrin::simulated {
namespace {

std::shared_ptr<Clock> makeClock(bool virtualTime) {
  if (virtualTime) return std::make_shared<VirtualClock>();
  return std::make_shared<MonotonicClock>();
}

}  // namespace

SimulatedPlatform::SimulatedPlatform(const Options& options)
    : runLoop_(std::make_shared<MainRunLoop>(makeClock(options.virtualTime))),
      radio_(std::make_shared<SimulatedRadio>(runLoop_, options)),
      notificationCenter_(std::make_shared<NSNotificationCenter>()),
      log_(options.log ? options.log : defaultLogSink()) {}

SimulatedPlatform::~SimulatedPlatform() = default;

Platform SimulatedPlatform::platform() const {
  return {.radio = radio_,
          .mainRunLoop = runLoop_,
          .thread = sleepOn(runLoop_),
          .notificationCenter = notificationCenter_,
          .dispatch = Dispatch::system(),
          .log = log_};
}

std::shared_ptr<SimulatedRadio> install(const Options& options) {
  auto radio = std::make_shared<SimulatedRadio>(MainRunLoop::main(), options);
  Platform::installRadio(radio);
  return radio;
}

}  // namespace kestrin::simulated
