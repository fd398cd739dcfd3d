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

}  // namespace kestrin::app
