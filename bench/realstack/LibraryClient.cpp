// An application of this library on the real radio: frames are put together, checked and delivered
// to the receiver.
#include <KestrinBLESDK/KestrinBleMgr.h>

#include <atomic>
#include <memory>
#include <optional>
#include <string_view>

#include "bench/realstack/Tally.h"
#include "kestrin/bluez/Bluez.h"

namespace {

using kestrin::bench::tally;

// Hears the one log line that says that the reader's services are known, and then no more.
class ServicesSink final : public kestrin::NSLogSink {
 public:
  [[nodiscard]] bool isListening() const noexcept override { return listening_; }
  void write(std::string_view line) noexcept override {
    if (line != "Found correct service") return;
    listening_ = false;
    tally().servicesKnown();
  }

 private:
  std::atomic<bool> listening_ = true;
};

struct Application final : kestrin::KestrinBLEProtocols, kestrin::RcpReceiver {
  std::shared_ptr<kestrin::KestrinBleMgr> manager;

  void scanningBleDeive(const std::shared_ptr<kestrin::CBPeripheral>& reader) noexcept override {
    if (!reader->name().value_or("").starts_with(kestrin::bench::kReaderName)) return;
    tally().connecting();
    manager->connectBLE(reader);
  }
  void plugChangedStatus(bool plugged) noexcept override {
    if (plugged) tally().up();
  }
  void dispatchRcpFrmReader(const std::optional<kestrin::NSData>& frame) noexcept override {
    if (frame) tally().add(frame->bytes(), frame->length());
  }
};

}  // namespace

int main() {
  kestrin::setDefaultLogSink(std::make_shared<ServicesSink>());
  kestrin::bluez::install();
  const auto application = std::make_shared<Application>();
  application->manager = kestrin::KestrinBleMgr::sharedInstance();
  application->manager->setDelegate(application);
  application->manager->setRcpReceiverDelegate(application);
  application->manager->scanBLE();
  kestrin::MainRunLoop::main()->run();
}
