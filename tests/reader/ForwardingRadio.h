// A radio whose reports pass through a delegate of the test's, which may hold, repeat or keep them.
//
// Threads: the main run loop's. Lifetime: what passes the reports on lives as long as the radio.
// Errors: none; what nobody hears any more is dropped.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "KestrinBLESDK/Reader.h"

namespace kestrin::test {

/// Passes every report on as it is.
class ForwardingDelegate : public CBCentralManagerDelegate {
 public:
  explicit ForwardingDelegate(std::weak_ptr<CBCentralManagerDelegate> delegate)
      : delegate_(std::move(delegate)) {}
  [[nodiscard]] bool isHeard() const noexcept { return !delegate_.expired(); }

  void centralManagerDidUpdateState(
      const std::shared_ptr<CBCentralManager>& central) noexcept override {
    if (const auto to = delegate_.lock()) to->centralManagerDidUpdateState(central);
  }
  void centralManager_didDiscoverPeripheral_advertisementData_RSSI(
      const std::shared_ptr<CBCentralManager>& central, const std::shared_ptr<CBPeripheral>& device,
      const CBAdvertisementData& data, int RSSI) noexcept override {
    if (const auto to = delegate_.lock()) {
      to->centralManager_didDiscoverPeripheral_advertisementData_RSSI(central, device, data, RSSI);
    }
  }
  void centralManager_didConnectPeripheral(
      const std::shared_ptr<CBCentralManager>& central,
      const std::shared_ptr<CBPeripheral>& device) noexcept override {
    if (const auto to = delegate_.lock()) to->centralManager_didConnectPeripheral(central, device);
  }
  void centralManager_didDisconnectPeripheral_error(
      const std::shared_ptr<CBCentralManager>& central, const std::shared_ptr<CBPeripheral>& device,
      const std::optional<NSError>& error) noexcept override {
    if (const auto to = delegate_.lock()) {
      to->centralManager_didDisconnectPeripheral_error(central, device, error);
    }
  }

 private:
  const std::weak_ptr<CBCentralManagerDelegate> delegate_;
};

/// Another radio, with a `Delegate` between it and each central manager's own.
template <typename Delegate>
class ForwardingRadio : public Radio {
 public:
  explicit ForwardingRadio(std::shared_ptr<Radio> radio) : radio_(std::move(radio)) {}
  std::shared_ptr<CBCentralManager> initWithDelegate_queue(
      std::weak_ptr<CBCentralManagerDelegate> delegate, std::shared_ptr<RunLoop> queue) override {
    delegates_.push_back(wrap(std::move(delegate)));
    return radio_->initWithDelegate_queue(delegates_.back(), std::move(queue));
  }
  [[nodiscard]] std::string stateReason() const override { return radio_->stateReason(); }

 protected:
  virtual std::shared_ptr<Delegate> wrap(std::weak_ptr<CBCentralManagerDelegate> delegate) = 0;
  [[nodiscard]] const std::vector<std::shared_ptr<Delegate>>& delegates() const {
    return delegates_;
  }

 private:
  const std::shared_ptr<Radio> radio_;
  std::vector<std::shared_ptr<Delegate>> delegates_;
};

}  // namespace kestrin::test
