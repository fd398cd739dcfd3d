#include <KestrinBLESDK/recording/RecordedManager.h>
#include <KestrinBLESDK/recording/RecordedPlatform.h>
#include <KestrinBLESDK/recording/RecordingFile.h>

#include <chrono>
#include <iostream>

#include "kestrin/simulated/SimulatedPlatform.h"

int main() {
  kestrin::simulated::SimulatedPlatform simulated({.virtualTime = true});
  simulated.radio().addReader("KVR-0417", kestrin::simulated::ReaderFamily::standard);

  const auto file = kestrin::RecordingFile::open("scan.jsonl", {.program = "recorded 1.0"});
  const auto recorded = kestrin::recordedPlatform(simulated.platform(), file);
  kestrin::RecordedManager manager(recorded.platform);

  manager.scanBLE();
  simulated.runLoop().runFor(std::chrono::seconds(1));
  const bool isWhole = file && !file->failure();
  std::cout << (isWhole ? "scan.jsonl is whole\n" : "there is no recording\n");
  return isWhole ? 0 : 1;
}
