#include "support/RecordingPlatform.h"

#include <stdexcept>
#include <utility>

#include "kestrin/simulated/VirtualClock.h"
#include "support/RecordingSystem.h"

namespace kestrin::test {
namespace {

std::string errorText(const std::optional<NSError>& error) {
  return error ? " error " + error->description() : "";
}

class RecordingRadio final : public Radio {
 public:
  explicit RecordingRadio(RecordingPlatform& platform) : platform_(platform) {}
  std::shared_ptr<CBCentralManager> initWithDelegate_queue(
      std::weak_ptr<CBCentralManagerDelegate> delegate, std::shared_ptr<RunLoop> queue) override {
    return platform_.makeCentral(std::move(delegate), queue);
  }
  [[nodiscard]] std::string stateReason() const override { return "the test says so"; }

 private:
  RecordingPlatform& platform_;
};

}  // namespace

RecordingPlatform::RecordingPlatform()
    : RecordingPlatform(std::make_shared<simulated::VirtualClock>()) {}

RecordingPlatform::RecordingPlatform(const std::shared_ptr<Clock>& clock) {
  transcript_ = std::make_shared<Transcript>(clock);
  loop_ = std::make_shared<MainRunLoop>(clock);
  recordingLoop_ = std::make_shared<RecordingRunLoop>(*this, loop_);
  platform_ = {.radio = std::make_shared<RecordingRadio>(*this),
               .mainRunLoop = recordingLoop_,
               .thread = std::make_shared<RecordingThread>(*this, sleepOn(loop_)),
               .notificationCenter = std::make_shared<RecordingNotificationCenter>(*this),
               .dispatch = std::make_shared<RecordingDispatch>(*this),
               .log = std::make_shared<RecordingLogSink>(*this)};
}

// What is still pending may hold a manager, and that records its own end.
RecordingPlatform::~RecordingPlatform() { dropRunLoop(); }

void RecordingPlatform::recordRequest(const std::string& line) {
  transcript_->add(line);
  if (onRequest) onRequest(line);
}

void RecordingPlatform::recordDelay(const std::string& line) {
  transcript_->add(line);
  if (onDelay) onDelay(line);
}

std::shared_ptr<RecordingPeripheral> RecordingPlatform::peripheral(const std::string& name) {
  return peripheral(name, name);
}

std::shared_ptr<RecordingPeripheral> RecordingPlatform::peripheral(
    const std::string& label, std::optional<std::string> name) {
  return std::make_shared<RecordingPeripheral>(*this, label, std::move(name));
}

std::shared_ptr<RecordingCentral> RecordingPlatform::central() const {
  auto central = central_.lock();
  if (!central) throw std::logic_error("there is no central manager to report anything");
  return central;
}

std::shared_ptr<CBCentralManager> RecordingPlatform::makeCentral(
    std::weak_ptr<CBCentralManagerDelegate> delegate, const std::shared_ptr<RunLoop>& queue) {
  const std::string owner = ownerText(delegate.lock());
  auto central = std::make_shared<RecordingCentral>(*this, ++centralsMade_, std::move(delegate));
  recordRequest(central->label() + " initWithDelegate " + owner + " queue " +
                (queue ? "present" : "(absent)"));
  central_ = central;
  return central;
}

std::string RecordingPlatform::ownerText(const std::shared_ptr<const void>& object) const {
  if (!object) return "(absent)";
  for (std::size_t i = 0; i < managers_.size(); ++i) {
    const bool same = !object.owner_before(managers_[i]) && !managers_[i].owner_before(object);
    if (same) return "manager#" + std::to_string(i + 1);
  }
  return "(unknown)";
}

std::string RecordingPlatform::addressText(const void* address) const {
  if (address == nullptr) return "(absent)";
  for (std::size_t i = 0; i < managers_.size(); ++i) {
    if (managers_[i].lock().get() == address) return "manager#" + std::to_string(i + 1);
  }
  return "(unknown)";
}

void RecordingPlatform::run(double seconds) { loop_->runFor(timeFromSeconds(seconds)); }

void RecordingPlatform::play(const std::function<void()>& event) {
  loop_->post(event);
  loop_->runOneTurn();
}

void RecordingPlatform::enterBackground() {
  transcript_->add("* post UIApplicationDidEnterBackgroundNotification");
  platform_.notificationCenter->postNotificationName_object(
      UIApplicationDidEnterBackgroundNotification);
}

void RecordingPlatform::dropRunLoop() {
  recordingLoop_.reset();
  loop_.reset();
}

void RecordingPlatform::playCentral(
    const std::string& line,
    const std::function<void(CBCentralManagerDelegate&, const std::shared_ptr<RecordingCentral>&)>&
        deliver) {
  play([&] {
    const auto reporting = central();
    const auto delegate = reporting->delegate();
    transcript_->add("* " + reporting->label() + " " + line + (delegate ? "" : " to nobody"));
    if (delegate) deliver(*delegate, reporting);
  });
}

void RecordingPlatform::didUpdateState(std::int64_t state) {
  central()->shownState = static_cast<CBManagerState>(state);
  playCentral("didUpdateState " + std::to_string(state), [](auto& delegate, const auto& central) {
    delegate.centralManagerDidUpdateState(central);
  });
}

void RecordingPlatform::didDiscover(const std::shared_ptr<RecordingPeripheral>& peripheral,
                                    const CBAdvertisementData& advertisementData, int rssi) {
  playCentral("didDiscoverPeripheral " + peripheralText(peripheral),
              [&](auto& delegate, const auto& central) {
                delegate.centralManager_didDiscoverPeripheral_advertisementData_RSSI(
                    central, peripheral, advertisementData, rssi);
              });
}

void RecordingPlatform::didConnect(const std::shared_ptr<RecordingPeripheral>& peripheral) {
  playCentral("didConnectPeripheral " + peripheralText(peripheral),
              [&](auto& delegate, const auto& central) {
                delegate.centralManager_didConnectPeripheral(central, peripheral);
              });
}

void RecordingPlatform::didDisconnect(const std::shared_ptr<RecordingPeripheral>& peripheral,
                                      const std::optional<NSError>& error) {
  playCentral("didDisconnectPeripheral " + peripheralText(peripheral) + errorText(error),
              [&](auto& delegate, const auto& central) {
                delegate.centralManager_didDisconnectPeripheral_error(central, peripheral, error);
              });
}

void RecordingPlatform::playPeripheral(const std::shared_ptr<RecordingPeripheral>& peripheral,
                                       const std::string& line, const Deliver& deliver) {
  play([&] {
    const auto delegate = peripheral->delegate();
    transcript_->add("* " + peripheralText(peripheral) + " " + line +
                     (delegate ? "" : " to nobody"));
    if (delegate) deliver(*delegate);
  });
}

void RecordingPlatform::didDiscoverServices(const std::shared_ptr<RecordingPeripheral>& peripheral,
                                            const Services& services) {
  peripheral->shownServices = services;
  playPeripheral(peripheral, "didDiscoverServices", [&](CBPeripheralDelegate& delegate) {
    delegate.peripheral_didDiscoverServices(peripheral, std::nullopt);
  });
}

void RecordingPlatform::failToDiscoverServices(
    const std::shared_ptr<RecordingPeripheral>& peripheral, const NSError& error) {
  playPeripheral(peripheral, "didDiscoverServices" + errorText(error),
                 [&](CBPeripheralDelegate& delegate) {
                   delegate.peripheral_didDiscoverServices(peripheral, error);
                 });
}

void RecordingPlatform::didDiscoverCharacteristics(
    const std::shared_ptr<RecordingPeripheral>& peripheral,
    const std::shared_ptr<RecordingService>& service, const Characteristics& characteristics) {
  service->shownCharacteristics = characteristics;
  playPeripheral(peripheral, "didDiscoverCharacteristicsForService " + service->UUID().UUIDString(),
                 [&](CBPeripheralDelegate& delegate) {
                   delegate.peripheral_didDiscoverCharacteristicsForService_error(
                       peripheral, service, std::nullopt);
                 });
}

void RecordingPlatform::failToDiscoverCharacteristics(
    const std::shared_ptr<RecordingPeripheral>& peripheral,
    const std::shared_ptr<RecordingService>& service, const NSError& error) {
  playPeripheral(
      peripheral,
      "didDiscoverCharacteristicsForService " + service->UUID().UUIDString() + errorText(error),
      [&](CBPeripheralDelegate& delegate) {
        delegate.peripheral_didDiscoverCharacteristicsForService_error(peripheral, service, error);
      });
}

void RecordingPlatform::didUpdateValue(
    const std::shared_ptr<RecordingPeripheral>& peripheral,
    const std::shared_ptr<RecordingCharacteristic>& characteristic,
    const std::optional<NSData>& value, const std::optional<NSError>& error) {
  characteristic->shownValue = value;
  playPeripheral(peripheral,
                 "didUpdateValueForCharacteristic " + characteristicText(characteristic) + " " +
                     valueText(value) + errorText(error),
                 [&](CBPeripheralDelegate& delegate) {
                   delegate.peripheral_didUpdateValueForCharacteristic_error(peripheral,
                                                                             characteristic, error);
                 });
}

void RecordingPlatform::didUpdateNotificationState(
    const std::shared_ptr<RecordingPeripheral>& peripheral,
    const std::shared_ptr<RecordingCharacteristic>& characteristic,
    const std::optional<NSError>& error) {
  playPeripheral(peripheral,
                 "didUpdateNotificationStateForCharacteristic " +
                     characteristicText(characteristic) + errorText(error),
                 [&](CBPeripheralDelegate& delegate) {
                   delegate.peripheral_didUpdateNotificationStateForCharacteristic_error(
                       peripheral, characteristic, error);
                 });
}

}  // namespace kestrin::test
