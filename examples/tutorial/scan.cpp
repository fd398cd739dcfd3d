// The tutorial's first step: which readers are in range?
#include <KestrinBLESDK/KestrinBleMgr.h>

#include <chrono>
#include <iostream>

#include "kestrin/simulated/SimulatedPlatform.h"

using kestrin::simulated::ReaderFamily;

struct Application final : kestrin::KestrinBLEProtocols {
  void scanningBleDeive(const std::shared_ptr<kestrin::CBPeripheral>& reader) noexcept override {
    std::cout << "found " << reader->name().value_or("") << '\n';
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
  const auto manager = kestrin::KestrinBleMgr::init(simulated.platform());
  manager->setDelegate(application);
  manager->scanBLE();
  simulated.runLoop().runFor(std::chrono::seconds(3));
}
