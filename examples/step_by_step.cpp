#include <KestrinBLESDK/BlockingReader.h>

#include <iostream>

#include "kestrin/simulated/SimulatedPlatform.h"

using namespace std::chrono_literals;

int main() {
  kestrin::simulated::SimulatedPlatform simulated({.virtualTime = true});
  simulated.radio().addReader("KVR-0417", kestrin::simulated::ReaderFamily::standard);
  kestrin::NSError error;
  const auto reader = kestrin::BlockingReader::connect(simulated.platform(), "KVR", 30s, &error);
  if (reader) std::cout << "plugged in: " << reader->name() << '\n';
  const auto command = kestrin::buildRcpFrame(0x00, 0x22, {});
  const auto answer = reader ? reader->exchange(*command, 5s, &error) : std::nullopt;
  std::cout << "answer: " << (answer ? answer->description() : error.text) << '\n';
  return reader && answer && reader->close(5s) ? 0 : 1;
}
