// The application of first_reader.cpp on the real radio.
#include <KestrinBLESDK/KestrinBleMgr.h>
#include <kestrin/bluez/Bluez.h>

#include <chrono>
#include <iostream>

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
  kestrin::bluez::install();
  const auto application = std::make_shared<FirstReader>();
  application->manager = kestrin::KestrinBleMgr::sharedInstance();
  application->manager->setDelegate(application);
  application->manager->setRcpReceiverDelegate(application);
  application->manager->scanBLE();
  kestrin::MainRunLoop::main()->runFor(std::chrono::seconds(30));

  const std::string why = kestrin::Platform::systemDefault().radio->stateReason();
  if (!why.empty()) std::cout << "no radio: " << why << '\n';
  application->manager->close();
  kestrin::MainRunLoop::main()->runFor(std::chrono::seconds(1));
}
