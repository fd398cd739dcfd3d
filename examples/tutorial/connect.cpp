// The tutorial's second step: pick a reader and connect to it.
#include <KestrinBLESDK/KestrinBleMgr.h>

#include <chrono>
#include <iostream>

#include "kestrin/simulated/SimulatedPlatform.h"

using kestrin::simulated::ReaderFamily;

struct Application final : kestrin::KestrinBLEProtocols, kestrin::RcpReceiver {
  std::shared_ptr<kestrin::KestrinBleMgr> manager;

  void scanningBleDeive(const std::shared_ptr<kestrin::CBPeripheral>& reader) noexcept override {
    std::cout << "found " << reader->name().value_or("") << '\n';
    if (reader->name() == "KVR-0417") manager->connectBLE(reader);
  }
  void plugChangedStatus(bool plugged) noexcept override {
    std::cout << (plugged ? "plugged in\n" : "unplugged\n");
  }
};

int main() {
  kestrin::simulated::Options options;
  options.virtualTime = true;
  kestrin::simulated::SimulatedPlatform simulated(options);
  simulated.radio().addReader("KVR-0417", ReaderFamily::standard);
  simulated.radio().addReader("KVR-Q62T-0009", ReaderFamily::kvrQ62T);
  simulated.radio().addPeripheral("Lamp");

  const auto application = std::make_shared<Application>();
  application->manager = kestrin::KestrinBleMgr::init(simulated.platform());
  application->manager->setDelegate(application);
  application->manager->setRcpReceiverDelegate(application);
  application->manager->scanBLE();
  simulated.runLoop().runFor(std::chrono::seconds(5));

  application->manager->close();
  simulated.runLoop().runFor(std::chrono::seconds(1));
}
