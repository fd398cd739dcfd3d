#include <KestrinBLESDK/recording/RecordedManager.h>
#include <KestrinBLESDK/recording/RecordedPlatform.h>
#include <KestrinBLESDK/recording/RecordingStream.h>

#include <chrono>
#include <fstream>
#include <iostream>
#include <memory>

#include "kestrin/simulated/SimulatedPlatform.h"

int main() {
  kestrin::simulated::SimulatedPlatform simulated({.virtualTime = true});
  simulated.radio().addReader("KVR-0417", kestrin::simulated::ReaderFamily::standard);

  std::ofstream file("scan.jsonl");
  const auto recording = std::make_shared<kestrin::RecordingStream>(
      file, kestrin::RecordingHeader{.program = "recorded 1.0"});
  const auto recorded = kestrin::recordedPlatform(simulated.platform(), recording);
  kestrin::RecordedManager manager(recorded.platform);

  manager.scanBLE();
  simulated.runLoop().runFor(std::chrono::seconds(1));
  std::cout << (recording->isWhole() ? "scan.jsonl is whole\n" : "there is no recording\n");
  return recording->isWhole() ? 0 : 1;
}
