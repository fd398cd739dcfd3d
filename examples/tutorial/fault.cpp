// The tutorial's fifth step: a reader that does not answer.
#include <KestrinBLESDK/KestrinBleMgr.h>

#include <array>
#include <chrono>
#include <iostream>

#include "kestrin/simulated/SimulatedPlatform.h"

using kestrin::simulated::ReaderFamily;

struct Application final : kestrin::KestrinBLEProtocols, kestrin::RcpReceiver {
  std::shared_ptr<kestrin::KestrinBleMgr> manager;
  kestrin::MainRunLoop* loop = nullptr;
  bool answered = false;

  void scanningBleDeive(const std::shared_ptr<kestrin::CBPeripheral>& reader) noexcept override {
    std::cout << "found " << reader->name().value_or("") << '\n';
    if (reader->name() == "KVR-0417") manager->connectBLE(reader);
  }
  void plugChangedStatus(bool plugged) noexcept override {
    std::cout << (plugged ? "plugged in\n" : "unplugged\n");
    if (!plugged) return;
    ask();
  }
  void ask() {
    const std::array<std::uint8_t, 2> payload{0x12, 0x34};
    const bool handedOver = manager->send(kestrin::buildRcpFrame(0x00, 0x22, payload));
    std::cout << (handedOver ? "asked\n" : "could not ask\n");
    loop->arm(std::chrono::seconds(2), [this] {
      if (answered) return;
      std::cout << "no answer\n";
      ask();
    });
  }
  void dispatchRcpFrmReader(const std::optional<kestrin::NSData>& frame) noexcept override {
    if (!frame) return;
    const auto answer = kestrin::parseRcpFrame(frame->span());
    if (!answer || answer->code != 0x22) return;
    answered = true;
    std::cout << "frame " << frame->description() << '\n';
  }
};

int main() {
  kestrin::simulated::Options options;
  options.virtualTime = true;
  kestrin::simulated::SimulatedPlatform simulated(options);
  const auto reader = simulated.radio().addReader("KVR-0417", ReaderFamily::standard);
  reader->simulateSilence();
  simulated.radio().addReader("KVR-Q62T-0009", ReaderFamily::kvrQ62T);
  simulated.radio().addPeripheral("Lamp");

  const auto application = std::make_shared<Application>();
  application->loop = &simulated.runLoop();
  application->manager = kestrin::KestrinBleMgr::init(simulated.platform());
  application->manager->setDelegate(application);
  application->manager->setRcpReceiverDelegate(application);
  application->manager->scanBLE();
  simulated.runLoop().runFor(std::chrono::seconds(5));

  std::cout << "-- the reader wakes up\n";
  reader->simulateSilence(false);
  simulated.runLoop().runFor(std::chrono::seconds(5));

  application->manager->close();
  simulated.runLoop().runFor(std::chrono::seconds(1));
}
