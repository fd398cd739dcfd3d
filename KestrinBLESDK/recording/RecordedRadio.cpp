// The radio's side of a recording platform: its central managers and its peripherals.
#include <map>
#include <mutex>
#include <utility>

#include "KestrinBLESDK/recording/RecordedPeripheral.h"
#include "KestrinBLESDK/recording/RecordedPlatform.h"
#include "KestrinBLESDK/recording/Recorder.h"

namespace kestrin {
namespace {

/// There is one object per device, however often it is met: managers compare by identity.
class RecordedPeripherals {
 public:
  explicit RecordedPeripherals(std::shared_ptr<Recorder> recorder)
      : recorder_(std::move(recorder)) {}

  std::shared_ptr<CBPeripheral> of(const std::shared_ptr<CBPeripheral>& inner) {
    if (!inner) return nullptr;
    const std::scoped_lock lock(mutex_);
    auto& known = known_[inner.get()];
    if (!known) known = std::make_shared<RecordedPeripheral>(inner, recorder_);
    return known;
  }

 private:
  const std::shared_ptr<Recorder> recorder_;
  std::mutex mutex_;
  std::map<const CBPeripheral*, std::shared_ptr<RecordedPeripheral>> known_;
};

std::shared_ptr<CBPeripheral> innerOf(const std::shared_ptr<CBPeripheral>& peripheral) {
  const auto recorded = std::dynamic_pointer_cast<RecordedPeripheral>(peripheral);
  return recorded ? recorded->inner() : peripheral;
}

class RecordedCentral final : public CBCentralManager,
                              public CBCentralManagerDelegate,
                              public std::enable_shared_from_this<RecordedCentral> {
 public:
  RecordedCentral(std::weak_ptr<CBCentralManagerDelegate> delegate,
                  std::shared_ptr<RecordedPeripherals> peripherals,
                  std::shared_ptr<Recorder> recorder)
      : delegate_(std::move(delegate)),
        peripherals_(std::move(peripherals)),
        recorder_(std::move(recorder)) {}
  void setInner(std::shared_ptr<CBCentralManager> inner) { inner_ = std::move(inner); }

  [[nodiscard]] CBManagerState state() const override { return inner_->state(); }
  void scanForPeripheralsWithServices_options(
      const std::optional<std::vector<CBUUID>>& services,
      const std::optional<CBScanOptions>& options) override {
    RecordedEvent event;
    event.kind = RecordedKind::scan;
    event.services = recordedUuids(services);
    recorder_->take(std::move(event));
    inner_->scanForPeripheralsWithServices_options(services, options);
  }
  void stopScan() override {
    RecordedEvent event;
    event.kind = RecordedKind::stopScan;
    recorder_->take(std::move(event));
    inner_->stopScan();
  }
  void connectPeripheral_options(const std::shared_ptr<CBPeripheral>& peripheral,
                                 const std::optional<CBConnectOptions>& options) override {
    tell(RecordedKind::connect, peripheral);
    inner_->connectPeripheral_options(innerOf(peripheral), options);
  }
  void cancelPeripheralConnection(const std::shared_ptr<CBPeripheral>& peripheral) override {
    tell(RecordedKind::cancel, peripheral);
    inner_->cancelPeripheralConnection(innerOf(peripheral));
  }

  void centralManagerDidUpdateState(
      const std::shared_ptr<CBCentralManager>& /*central*/) noexcept override {
    const auto self = shared_from_this();  // The delegate may drop its central manager.
    RecordedEvent event;
    event.kind = RecordedKind::state;
    event.state = recordedState(inner_->state());
    recorder_->take(std::move(event));
    if (const auto delegate = delegate_.lock()) delegate->centralManagerDidUpdateState(self);
  }
  void centralManager_didDiscoverPeripheral_advertisementData_RSSI(
      const std::shared_ptr<CBCentralManager>& /*central*/,
      const std::shared_ptr<CBPeripheral>& peripheral, const CBAdvertisementData& advertisementData,
      int RSSI) noexcept override {
    const auto self = shared_from_this();
    RecordedEvent event = eventOf(RecordedKind::sighting, peripheral);
    event.rssi = RSSI;
    if (!advertisementData.serviceUUIDs.empty()) {
      event.services = recordedUuids(advertisementData.serviceUUIDs);
    }
    recorder_->take(std::move(event));
    if (const auto delegate = delegate_.lock()) {
      delegate->centralManager_didDiscoverPeripheral_advertisementData_RSSI(
          self, peripherals_->of(peripheral), advertisementData, RSSI);
    }
  }
  void centralManager_didConnectPeripheral(
      const std::shared_ptr<CBCentralManager>& /*central*/,
      const std::shared_ptr<CBPeripheral>& peripheral) noexcept override {
    const auto self = shared_from_this();
    tell(RecordedKind::connected, peripheral);
    if (const auto delegate = delegate_.lock()) {
      delegate->centralManager_didConnectPeripheral(self, peripherals_->of(peripheral));
    }
  }
  void centralManager_didDisconnectPeripheral_error(
      const std::shared_ptr<CBCentralManager>& /*central*/,
      const std::shared_ptr<CBPeripheral>& peripheral,
      const std::optional<NSError>& error) noexcept override {
    const auto self = shared_from_this();
    RecordedEvent event = eventOf(RecordedKind::disconnected, peripheral);
    if (error) event.error = error->description();
    recorder_->take(std::move(event));
    if (const auto delegate = delegate_.lock()) {
      delegate->centralManager_didDisconnectPeripheral_error(self, peripherals_->of(peripheral),
                                                             error);
    }
  }

 private:
  static RecordedEvent eventOf(RecordedKind kind, const std::shared_ptr<CBPeripheral>& peripheral) {
    RecordedEvent event;
    event.kind = kind;
    event.name = peripheral->name();
    event.identifier = peripheral->identifier();
    return event;
  }
  /// An absent peripheral is asked for nothing, so there is nothing to record.
  void tell(RecordedKind kind, const std::shared_ptr<CBPeripheral>& peripheral) {
    if (peripheral) recorder_->take(eventOf(kind, peripheral));
  }

  const std::weak_ptr<CBCentralManagerDelegate> delegate_;
  const std::shared_ptr<RecordedPeripherals> peripherals_;
  const std::shared_ptr<Recorder> recorder_;
  std::shared_ptr<CBCentralManager> inner_;
};

class RecordedRadio final : public Radio {
 public:
  RecordedRadio(std::shared_ptr<Radio> radio, std::shared_ptr<Recorder> recorder)
      : radio_(std::move(radio)),
        recorder_(std::move(recorder)),
        peripherals_(std::make_shared<RecordedPeripherals>(recorder_)) {}

  std::shared_ptr<CBCentralManager> initWithDelegate_queue(
      std::weak_ptr<CBCentralManagerDelegate> delegate, std::shared_ptr<RunLoop> queue) override {
    const auto central =
        std::make_shared<RecordedCentral>(std::move(delegate), peripherals_, recorder_);
    central->setInner(radio_->initWithDelegate_queue(central, std::move(queue)));
    return central;
  }
  [[nodiscard]] std::string stateReason() const override { return radio_->stateReason(); }
  [[nodiscard]] const std::shared_ptr<Recorder>& recorder() const noexcept { return recorder_; }
  [[nodiscard]] const std::shared_ptr<Radio>& inner() const noexcept { return radio_; }

 private:
  const std::shared_ptr<Radio> radio_;
  const std::shared_ptr<Recorder> recorder_;
  const std::shared_ptr<RecordedPeripherals> peripherals_;
};

}  // namespace

std::shared_ptr<Recorder> recorderOf(const Platform& platform) {
  const auto radio = std::dynamic_pointer_cast<RecordedRadio>(platform.radio);
  return radio ? radio->recorder() : nullptr;
}

std::shared_ptr<CBPeripheral> unrecorded(const std::shared_ptr<CBPeripheral>& device) {
  std::shared_ptr<CBPeripheral> inner = device;
  while (const auto recorded = std::dynamic_pointer_cast<RecordedPeripheral>(inner)) {
    inner = recorded->inner();
  }
  return inner;
}

std::shared_ptr<Radio> unrecordedRadio(const std::shared_ptr<Radio>& radio) {
  std::shared_ptr<Radio> inner;
  for (auto recorded = std::dynamic_pointer_cast<RecordedRadio>(radio); recorded;
       recorded = std::dynamic_pointer_cast<RecordedRadio>(inner)) {
    inner = recorded->inner();
  }
  return inner;
}

std::shared_ptr<Radio> recordedRadio(std::shared_ptr<Radio> radio,
                                     std::shared_ptr<Recorder> recorder) {
  return std::make_shared<RecordedRadio>(std::move(radio), std::move(recorder));
}

}  // namespace kestrin
