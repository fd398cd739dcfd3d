#include <KestrinBLESDK/Reader.h>

#include <iostream>

#include "kestrin/simulated/SimulatedPlatform.h"

using kestrin::Reader;

int main() {
  kestrin::simulated::SimulatedPlatform simulated({.virtualTime = true});
  simulated.radio().addReader("KVR-0417", kestrin::simulated::ReaderFamily::standard);
  kestrin::ReaderHandlers handlers;
  handlers.onPhase = [](Reader& reader, kestrin::ReaderPhase phase) {
    std::cout << reader.name() << ": " << nameOf(phase) << '\n';
    const auto command = kestrin::buildRcpFrame(0x00, 0x22, {});
    if (phase == kestrin::ReaderPhase::pluggedIn) reader.send(*command);
  };
  handlers.onFrame = [](Reader&, const kestrin::RcpFrame& frame) {
    std::cout << "frame " << kestrin::NSData(frame.bytes).description() << '\n';
  };
  handlers.onTrouble = [](Reader&, const kestrin::NSError& trouble) {
    std::cout << trouble.text << '\n';
  };
  const auto reader = Reader::create(simulated.platform(), {.reader = "KVR-0417"}, handlers);
  simulated.runLoop().runFor(std::chrono::seconds(5));
}
