// A radio's environment whose platform records.
//
// Threads, lifetime: as RadioEnvironment.
// Errors: those of the recording.
#pragma once

#include <KestrinBLESDK/recording/RecordedPlatform.h>

#include <memory>
#include <string>
#include <utility>

#include "tools/kestrin/radio/RadioEnvironment.h"
#include "tools/kestrin/recording/CommandRecording.h"

namespace kestrin::app {

class RecordedEnvironment final : public RadioEnvironment {
 public:
  RecordedEnvironment(std::unique_ptr<RadioEnvironment> inner,
                      const std::shared_ptr<CommandRecording>& recording)
      : inner_(std::move(inner)), recorded_(recordedPlatform(inner_->platform(), recording)) {
    recording->setLoop(inner_->platform().mainRunLoop.lock());
  }

  [[nodiscard]] Platform platform() const override { return recorded_.platform; }
  [[nodiscard]] MainRunLoop& loop() const override { return inner_->loop(); }

 private:
  const std::unique_ptr<RadioEnvironment> inner_;
  RecordedPlatform recorded_;
};

/// What a recording of this command on this radio begins with.
RecordingHeader recordingHeader(const std::string& command, const RadioRequest& request);

}  // namespace kestrin::app
