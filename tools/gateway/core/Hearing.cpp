#include "tools/gateway/core/Hearing.h"

#include <algorithm>
#include <utility>

#include "KestrinBLESDK/platform/CBPeripheral.h"

namespace kestrin::gateway {
namespace {

constexpr int kNotAvailable = 127;

/// Stands between a radio and the delegate of one central manager.
class Ear final : public CBCentralManagerDelegate {
 public:
  Ear(std::weak_ptr<CBCentralManagerDelegate> delegate, std::shared_ptr<Hearing> hearing)
      : delegate_(std::move(delegate)), hearing_(std::move(hearing)) {}

  void centralManagerDidUpdateState(
      const std::shared_ptr<CBCentralManager>& central) noexcept override {
    if (const auto delegate = delegate_.lock()) delegate->centralManagerDidUpdateState(central);
  }
  void centralManager_didDiscoverPeripheral_advertisementData_RSSI(
      const std::shared_ptr<CBCentralManager>& central, const std::shared_ptr<CBPeripheral>& device,
      const CBAdvertisementData& data, int RSSI) noexcept override {
    hearing_->heard(device->identifier(), RSSI);
    if (const auto delegate = delegate_.lock()) {
      delegate->centralManager_didDiscoverPeripheral_advertisementData_RSSI(central, device, data,
                                                                            RSSI);
    }
  }
  void centralManager_didConnectPeripheral(
      const std::shared_ptr<CBCentralManager>& central,
      const std::shared_ptr<CBPeripheral>& device) noexcept override {
    if (const auto delegate = delegate_.lock()) {
      delegate->centralManager_didConnectPeripheral(central, device);
    }
  }
  void centralManager_didDisconnectPeripheral_error(
      const std::shared_ptr<CBCentralManager>& central, const std::shared_ptr<CBPeripheral>& device,
      const std::optional<NSError>& error) noexcept override {
    if (const auto delegate = delegate_.lock()) {
      delegate->centralManager_didDisconnectPeripheral_error(central, device, error);
    }
  }

 private:
  const std::weak_ptr<CBCentralManagerDelegate> delegate_;
  const std::shared_ptr<Hearing> hearing_;
};

/// A central manager and what its events pass through, which the radio does not keep.
struct Listened {
  std::shared_ptr<Ear> ear;
  std::shared_ptr<CBCentralManager> central;
};

class ListenedRadio final : public Radio {
 public:
  ListenedRadio(std::shared_ptr<Radio> radio, std::shared_ptr<Hearing> hearing)
      : radio_(std::move(radio)), hearing_(std::move(hearing)) {}

  std::shared_ptr<CBCentralManager> initWithDelegate_queue(
      std::weak_ptr<CBCentralManagerDelegate> delegate, std::shared_ptr<RunLoop> queue) override {
    const auto made = std::make_shared<Listened>();
    made->ear = std::make_shared<Ear>(std::move(delegate), hearing_);
    made->central = radio_->initWithDelegate_queue(made->ear, std::move(queue));
    return {made, made->central.get()};
  }
  [[nodiscard]] std::string stateReason() const override { return radio_->stateReason(); }

 private:
  const std::shared_ptr<Radio> radio_;
  const std::shared_ptr<Hearing> hearing_;
};

}  // namespace

void Hearing::heard(const std::string& identifier, int signal) {
  if (signal >= kNotAvailable) return;
  if (sightings_.size() >= kMost && !sightings_.contains(identifier)) {
    sightings_.erase(std::min_element(
        sightings_.begin(), sightings_.end(),
        [](const auto& a, const auto& b) { return a.second.turn < b.second.turn; }));
  }
  sightings_[identifier] = {signal, ++turns_};
}

std::optional<int> Hearing::signalOf(const std::string& identifier) const {
  const auto found = sightings_.find(identifier);
  return found == sightings_.end() ? std::nullopt : std::optional(found->second.signal);
}

std::shared_ptr<Radio> listened(std::shared_ptr<Radio> radio, std::shared_ptr<Hearing> hearing) {
  return std::make_shared<ListenedRadio>(std::move(radio), std::move(hearing));
}

}  // namespace kestrin::gateway
