// A simulated radio in virtual time, for a command to run on.
#pragma once

#include "kestrin/simulated/SimulatedPlatform.h"
#include "tools/kestrin/radio/RadioEnvironment.h"

namespace kestrin::app::test {

class TestEnvironment final : public RadioEnvironment {
 public:
  explicit TestEnvironment(CBManagerState state) : simulated_(options(state)) {}
  [[nodiscard]] Platform platform() const override { return simulated_.platform(); }
  [[nodiscard]] MainRunLoop& loop() const override { return simulated_.runLoop(); }
  [[nodiscard]] simulated::SimulatedRadio& radio() const { return simulated_.radio(); }

 private:
  static simulated::Options options(CBManagerState state) {
    simulated::Options options;
    options.virtualTime = true;
    options.state = state;
    options.log = logSink(false);
    return options;
  }
  simulated::SimulatedPlatform simulated_;
};

}  // namespace kestrin::app::test
