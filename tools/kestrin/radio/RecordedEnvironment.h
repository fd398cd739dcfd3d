// A radio's environment whose platform records.
//
// Threads, lifetime: as RadioEnvironment.
// Errors: those of the recorder.
#pragma once

#include <memory>
#include <string>
#include <utility>

#include "tools/kestrin/radio/RadioEnvironment.h"
#include "tools/kestrin/recording/RecordedPlatform.h"

namespace kestrin::app {

class RecordedEnvironment final : public RadioEnvironment {
 public:
  RecordedEnvironment(std::unique_ptr<RadioEnvironment> inner, std::shared_ptr<Recorder> recorder)
      : inner_(std::move(inner)),
        recorder_(std::move(recorder)),
        recorded_(recordedPlatform(inner_->platform(), recorder_)) {}

  [[nodiscard]] Platform platform() const override { return recorded_.platform; }
  [[nodiscard]] MainRunLoop& loop() const override { return inner_->loop(); }
  [[nodiscard]] std::shared_ptr<Radio> unrecordedRadio() const override {
    return inner_->unrecordedRadio();
  }
  [[nodiscard]] std::shared_ptr<Recorder> recorder() const override { return recorder_; }

 private:
  const std::unique_ptr<RadioEnvironment> inner_;
  const std::shared_ptr<Recorder> recorder_;
  RecordedPlatform recorded_;
};

/// What a recording of this command on this radio begins with.
RecordingHeader recordingHeader(const std::string& command, const RadioRequest& request);

/// The environment, recording from now on.
std::unique_ptr<RadioEnvironment> recordEnvironment(std::unique_ptr<RadioEnvironment> inner,
                                                    const std::shared_ptr<Recorder>& recorder,
                                                    const std::string& command,
                                                    const RadioRequest& request);

}  // namespace kestrin::app
