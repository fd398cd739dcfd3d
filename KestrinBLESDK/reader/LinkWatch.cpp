#include "KestrinBLESDK/reader/LinkWatch.h"

#include <utility>

namespace kestrin::reader {
namespace {

/// Stands between a radio and the delegate of one central manager.
class Forwarder final : public CBCentralManagerDelegate {
 public:
  Forwarder(std::weak_ptr<CBCentralManagerDelegate> delegate, std::weak_ptr<LinkListener> listener)
      : delegate_(std::move(delegate)), listener_(std::move(listener)) {}

  void centralManagerDidUpdateState(
      const std::shared_ptr<CBCentralManager>& central) noexcept override {
    if (const auto delegate = delegate_.lock()) delegate->centralManagerDidUpdateState(central);
    if (const auto listener = listener_.lock()) listener->radioReported();
  }
  void centralManager_didDiscoverPeripheral_advertisementData_RSSI(
      const std::shared_ptr<CBCentralManager>& central, const std::shared_ptr<CBPeripheral>& device,
      const CBAdvertisementData& data, int RSSI) noexcept override {
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
    if (const auto listener = listener_.lock()) listener->linkBegan(device);
  }
  void centralManager_didDisconnectPeripheral_error(
      const std::shared_ptr<CBCentralManager>& central, const std::shared_ptr<CBPeripheral>& device,
      const std::optional<NSError>& error) noexcept override {
    if (const auto delegate = delegate_.lock()) {
      delegate->centralManager_didDisconnectPeripheral_error(central, device, error);
    }
    if (const auto listener = listener_.lock()) listener->linkEnded(device);
  }

 private:
  const std::weak_ptr<CBCentralManagerDelegate> delegate_;
  const std::weak_ptr<LinkListener> listener_;
};

/// A central manager and what its events pass through, which the radio does not keep.
struct Watched {
  std::shared_ptr<Forwarder> forwarder;
  std::shared_ptr<CBCentralManager> central;
};

class WatchedRadio final : public Radio {
 public:
  WatchedRadio(std::shared_ptr<Radio> radio, std::weak_ptr<LinkListener> listener)
      : radio_(std::move(radio)), listener_(std::move(listener)) {}

  std::shared_ptr<CBCentralManager> initWithDelegate_queue(
      std::weak_ptr<CBCentralManagerDelegate> delegate, std::shared_ptr<RunLoop> queue) override {
    const auto made = std::make_shared<Watched>();
    made->forwarder = std::make_shared<Forwarder>(std::move(delegate), listener_);
    made->central = radio_->initWithDelegate_queue(made->forwarder, std::move(queue));
    return {made, made->central.get()};
  }
  [[nodiscard]] std::string stateReason() const override { return radio_->stateReason(); }

 private:
  const std::shared_ptr<Radio> radio_;
  const std::weak_ptr<LinkListener> listener_;
};

}  // namespace

std::shared_ptr<Radio> watched(std::shared_ptr<Radio> radio, std::weak_ptr<LinkListener> listener) {
  return std::make_shared<WatchedRadio>(std::move(radio), std::move(listener));
}

}  // namespace kestrin::reader
