#include "tools/kestrin/radio/RecordedEnvironment.h"

namespace kestrin::app {

RecordingHeader recordingHeader(const std::string& command, const RadioRequest& request) {
  const bool simulated = request.kind == RadioKind::simulated;
  RecordingHeader header;
  header.program = "kestrin " KESTRIN_VERSION;
  header.command = command;
  header.radio = simulated ? "simulated" : "bluez";
  // In virtual time the same run gives the same file, byte for byte.
  if (!request.virtualTime) header.started = utcNow();
  return header;
}

std::unique_ptr<RadioEnvironment> recordEnvironment(std::unique_ptr<RadioEnvironment> inner,
                                                    const std::shared_ptr<Recorder>& recorder,
                                                    const std::string& command,
                                                    const RadioRequest& request) {
  recorder->begin(recordingHeader(command, request), inner->platform().mainRunLoop.lock());
  return std::make_unique<RecordedEnvironment>(std::move(inner), recorder);
}

}  // namespace kestrin::app
