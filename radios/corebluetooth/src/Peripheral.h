// The one object that stands for a device, whichever central managers see it.
//
// Threads: as CBPeripheral.h says; what is not of that interface on the main thread.
//
// Lifetime: held by its radio. While it has a link, that is through the object of the central
// manager that had one first; when that one gives it up, through the next one's.
//
// Errors: as CBPeripheral.h says.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "KestrinBLESDK/platform/CBPeripheral.h"
#include "Link.h"
#include "MainThread.h"
#include "PeripheralEvents.h"

namespace kestrin::corebluetooth {

class Peripheral final : public CBPeripheral,
                         private DeviceEvents,
                         public std::enable_shared_from_this<Peripheral> {
 public:
  Peripheral(std::weak_ptr<MainThread> mainThread, std::string identifier)
      : mainThread_(std::move(mainThread)), identifier_(std::move(identifier)) {}

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

  /// Whether it is of the radio that has this main thread.
  [[nodiscard]] bool isOf(const MainThread& mainThread) const {
    return mainThread_.lock().get() == &mainThread;
  }
  /// A name from the air, which counts while there is no link.
  void takeName(const std::string& name);
  /// The object that the central manager which saw the device last has for it.
  void setNewestDevice(::CBPeripheral* device) { newestDevice_ = Strong<::CBPeripheral*>(device); }
  [[nodiscard]] ::CBPeripheral* newestDevice() const { return newestDevice_.get(); }
  /// A central manager has a link, through its own object for the device.
  void claim(const void* central, ::CBPeripheral* device);
  /// It has it no more. With an error, what is still to be answered on that link is answered with
  /// it.
  void release(const void* central, const std::optional<NSError>& error);

 private:
  using Request = std::function<void(Link& link, Characteristic& characteristic)>;
  void onCharacteristic(const std::shared_ptr<CBCharacteristic>& asked, Request request);
  std::shared_ptr<Link> linkForDiscovery() const;
  void showLink(::CBPeripheral* device);

  void didDiscoverServices(const std::optional<NSError>& error) override;
  void didDiscoverCharacteristics(::CBService* attribute,
                                  const std::optional<NSError>& error) override;
  void didUpdateValue(::CBCharacteristic* attribute, const std::optional<NSError>& error) override;
  void didUpdateNotificationState(::CBCharacteristic* attribute,
                                  const std::optional<NSError>& error) override;

  const std::weak_ptr<MainThread> mainThread_;
  const std::string identifier_;
  mutable std::mutex nameMutex_;
  std::optional<std::string> name_;
  std::weak_ptr<CBPeripheralDelegate> delegate_;
  std::shared_ptr<Link> link_;
  std::vector<std::pair<const void*, Strong<::CBPeripheral*>>> claims_;
  Strong<::CBPeripheral*> newestDevice_;
};

}  // namespace kestrin::corebluetooth
