#include "PluggedReader.h"

#include <chrono>
#include <utility>

namespace kestrin::bench {
namespace {

const char* nameOf(simulated::ReaderFamily family) {
  return family == simulated::ReaderFamily::standard ? "KVR-0417" : "KVR-Q62T-0417";
}

}  // namespace

std::shared_ptr<simulated::SimulatedPlatform> quietPlatform() {
  simulated::Options options;
  options.virtualTime = true;
  options.log = std::make_shared<DeafSink>();
  return std::make_shared<simulated::SimulatedPlatform>(options);
}

struct PluggedReader::Finder final : KestrinBLEProtocols {
  explicit Finder(std::string name) : wanted(std::move(name)) {}
  void scanningBleDeive(const std::shared_ptr<CBPeripheral>& reader) noexcept override {
    if (reader->name() == wanted) found = reader;
  }
  const std::string wanted;
  std::shared_ptr<CBPeripheral> found;
};

PluggedReader::PluggedReader(simulated::ReaderFamily family)
    : PluggedReader(quietPlatform(), nameOf(family), family) {}

PluggedReader::PluggedReader(std::shared_ptr<simulated::SimulatedPlatform> platform,
                             const std::string& name)
    : PluggedReader(std::move(platform), name, simulated::ReaderFamily::standard) {}

PluggedReader::PluggedReader(std::shared_ptr<simulated::SimulatedPlatform> platform,
                             const std::string& name, simulated::ReaderFamily family)
    : platform_(std::move(platform)),
      characteristics_(simulated::readerCharacteristics(family)),
      reader_(platform_->radio().addReader(name, family)),
      manager_(KestrinBleMgr::init(platform_->platform())) {
  const auto finder = std::make_shared<Finder>(name);
  manager_->setDelegate(finder);
  manager_->setRcpReceiverDelegate(receiver_);
  manager_->scanBLE();
  runLoop().runFor(std::chrono::seconds(2));
  require(finder->found != nullptr, "no reader was found");
  manager_->connectBLE(finder->found);
  // The reader's answer to the question for its information comes in here too.
  runLoop().runFor(std::chrono::seconds(10));
  require(manager_->isOpened(), "the reader is not connected");
}

std::shared_ptr<CBCharacteristic> PluggedReader::tx() const {
  const auto services = manager_->pripheral()->services();
  require(services.has_value(), "the reader's services are not known");
  for (const auto& service : *services) {
    const auto asked = service->characteristics();
    if (!asked) continue;
    for (const auto& found : *asked) {
      if (found->UUID() == characteristics_.tx) return found;
    }
  }
  require(false, "the reader has no characteristic for commands");
  return nullptr;
}

void PluggedReader::notify(const std::vector<NSData>& pieces) {
  for (const NSData& piece : pieces) {
    require(reader_->simulateNotification(characteristics_.rx, piece), "nobody is subscribed");
  }
  runLoop().run();  // Virtual time: until nothing is pending.
}

}  // namespace kestrin::bench
