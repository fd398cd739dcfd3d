// The one object that stands for a virtual device on the central's side.
//
// Threads: as CBPeripheral.h says. What may be asked from any thread is submitted to the main run
// loop and carried out there.
// Lifetime: held by its device and by the application. It holds the device weakly, and of a link
// only what was shown of it, until the last report of its end.
// Errors: as CBPeripheral.h says.
#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "KestrinBLESDK/platform/CBPeripheral.h"
#include "Link.h"
#include "RadioCore.h"

namespace kestrin::simulated {

class SimulatedPeripheral final : public CBPeripheral,
                                  public std::enable_shared_from_this<SimulatedPeripheral> {
 public:
  SimulatedPeripheral(std::string identifier, std::weak_ptr<RadioCore> core,
                      std::weak_ptr<Device> device);

  [[nodiscard]] std::string identifier() const override { return identifier_; }
  [[nodiscard]] std::optional<std::string> name() const override;
  void setDelegate(std::weak_ptr<CBPeripheralDelegate> delegate) override;
  void discoverServices(const std::optional<std::vector<CBUUID>>& serviceUUIDs) override;
  [[nodiscard]] std::optional<std::vector<std::shared_ptr<CBService>>> services() const override;
  void discoverCharacteristics_forService(
      const std::optional<std::vector<CBUUID>>& characteristicUUIDs,
      const std::shared_ptr<CBService>& service) override;
  void readValueForCharacteristic(const std::shared_ptr<CBCharacteristic>& characteristic) override;
  void setNotifyValue_forCharacteristic(
      bool enabled, const std::shared_ptr<CBCharacteristic>& characteristic) override;
  void writeValue_forCharacteristic_type(const std::optional<NSData>& value,
                                         const std::shared_ptr<CBCharacteristic>& characteristic,
                                         CBCharacteristicWriteType type) override;

  [[nodiscard]] const std::weak_ptr<Device>& device() const noexcept { return device_; }
  /// The name was heard. It changes nothing for the length of a link.
  void hearName(const std::string& name);
  /// A link is up: what is found on it is this object's from now on.
  void show(std::shared_ptr<Link> link) { shown_ = std::move(link); }
  /// The last report of the end of `link` is made.
  void hide(const std::shared_ptr<Link>& link);
  /// Gives the characteristic a value and announces it.
  void takeValue(const std::shared_ptr<SimulatedCharacteristic>& characteristic, NSData value);

 private:
  using LinkRequest = std::function<void(RadioCore&, const std::shared_ptr<Device>&, Link&)>;
  using CharacteristicRequest =
      std::function<void(RadioCore&, const std::shared_ptr<Device>&, Link&,
                         const std::shared_ptr<SimulatedCharacteristic>&)>;

  void onLink(const std::weak_ptr<Link>& link, const LinkRequest& request);
  void submit(const std::shared_ptr<CBCharacteristic>& characteristic,
              CharacteristicRequest request);
  [[nodiscard]] Link::Answer answer(std::function<void(SimulatedPeripheral&, CBPeripheralDelegate*,
                                                       const std::optional<NSError>&)>
                                        give);

  const std::string identifier_;
  const std::weak_ptr<RadioCore> core_;
  const std::weak_ptr<Device> device_;
  std::weak_ptr<CBPeripheralDelegate> delegate_;
  std::shared_ptr<Link> shown_;
  mutable std::mutex nameMutex_;
  std::optional<std::string> name_;
};

}  // namespace kestrin::simulated
