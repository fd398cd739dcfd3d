// A first application: finds a reader, connects to it, sends it a command and prints the frames
// that come. It runs on the simulated radio. With a real one it would begin with
// `kestrin::bluez::install()`, take `KestrinBleMgr::sharedInstance()` and turn
// `MainRunLoop::main()`.
#include <KestrinBLESDK/KestrinBleMgr.h>

#include <chrono>
#include <iostream>

#include "kestrin/simulated/SimulatedPlatform.h"

struct FirstReader final : kestrin::KestrinBLEProtocols, kestrin::RcpReceiver {
  std::shared_ptr<kestrin::KestrinBleMgr> manager;

  void scanningBleDeive(const std::shared_ptr<kestrin::CBPeripheral>& reader) noexcept override {
    std::cout << "found " << reader->name().value_or("") << '\n';
    manager->connectBLE(reader);
  }
  void plugChangedStatus(bool plugged) noexcept override {
    std::cout << (plugged ? "plugged in\n" : "unplugged\n");
    if (plugged) manager->send(kestrin::buildRcpFrame(0x00, 0x22, {}));
  }
  void dispatchRcpFrmReader(const std::optional<kestrin::NSData>& frame) noexcept override {
    std::cout << "frame " << frame.value_or(kestrin::NSData()).description() << '\n';
  }
};

int main() {
  kestrin::simulated::Options options;
  options.virtualTime = true;  // Waits for nothing; false: in real time.
  kestrin::simulated::SimulatedPlatform simulated(options);
  simulated.radio().addReader("KVR-0417", kestrin::simulated::ReaderFamily::standard);

  const auto application = std::make_shared<FirstReader>();
  application->manager = kestrin::KestrinBleMgr::init(simulated.platform());
  application->manager->setDelegate(application);
  application->manager->setRcpReceiverDelegate(application);
  application->manager->scanBLE();
  simulated.runLoop().runFor(std::chrono::seconds(5));
  application->manager->close();
  simulated.runLoop().runFor(std::chrono::seconds(1));
}
