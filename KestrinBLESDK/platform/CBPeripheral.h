/// \class kestrin::CBPeripheral
/// A device in range or once in range, and the events it reports.
///
/// There is one `CBPeripheral` object per device for the life of the process, over all central
/// managers, so devices are compared by identity.
///
/// Threads: `writeValue...`, `setNotifyValue...`, `readValue...` and `name` may be called from any
/// thread; everything else on the main run loop. Every event comes on the main run loop, one at a
/// time, and never from inside a request.
///
/// Lifetime: the delegate is held weakly. Requests without a link go nowhere, quietly.
///
/// Errors: reported with the event that answers the request.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "KestrinBLESDK/platform/CBCharacteristic.h"
#include "KestrinBLESDK/platform/CBService.h"
#include "KestrinBLESDK/platform/CBUUID.h"
#include "KestrinBLESDK/platform/Export.h"
#include "KestrinBLESDK/platform/NSData.h"
#include "KestrinBLESDK/platform/NSError.h"

namespace kestrin {
/// \addtogroup platform
/// @{

class CBPeripheral;

/// The events of a connected peripheral. Every handler is optional.
class KESTRIN_EXPORT CBPeripheralDelegate {
 public:
  virtual ~CBPeripheralDelegate();
  /// `peripheral:didDiscoverServices:` One per `discoverServices`; `error` is absent on success.
  virtual void peripheral_didDiscoverServices(const std::shared_ptr<CBPeripheral>& peripheral,
                                              const std::optional<NSError>& error) noexcept;
  /// `peripheral:didDiscoverCharacteristicsForService:error:` One per request.
  virtual void peripheral_didDiscoverCharacteristicsForService_error(
      const std::shared_ptr<CBPeripheral>& peripheral, const std::shared_ptr<CBService>& service,
      const std::optional<NSError>& error) noexcept;
  /// `peripheral:didUpdateValueForCharacteristic:error:` A notified value or a read's result; the
  /// characteristic's `value` holds it.
  virtual void peripheral_didUpdateValueForCharacteristic_error(
      const std::shared_ptr<CBPeripheral>& peripheral,
      const std::shared_ptr<CBCharacteristic>& characteristic,
      const std::optional<NSError>& error) noexcept;
  /// `peripheral:didUpdateNotificationStateForCharacteristic:error:` One per `setNotifyValue`.
  virtual void peripheral_didUpdateNotificationStateForCharacteristic_error(
      const std::shared_ptr<CBPeripheral>& peripheral,
      const std::shared_ptr<CBCharacteristic>& characteristic,
      const std::optional<NSError>& error) noexcept;
};

class KESTRIN_EXPORT CBPeripheral {
 public:
  virtual ~CBPeripheral();
  /// A text that tells this device from every other of its radio, for example its address. Not
  /// empty, the same for the life of the process.
  [[nodiscard]] virtual std::string identifier() const = 0;
  /// `name` The advertised or cached name; absent when none is known. It stays what it was for the
  /// length of a link: a name read from the device after connecting does not replace it.
  [[nodiscard]] virtual std::optional<std::string> name() const = 0;
  /// `setDelegate:` Routes this device's events to `delegate` from now on.
  virtual void setDelegate(std::weak_ptr<CBPeripheralDelegate> delegate) = 0;
  /// `discoverServices:` Finds the listed services, or all when the list is absent.
  virtual void discoverServices(const std::optional<std::vector<CBUUID>>& serviceUUIDs) = 0;
  /// `services` Those that were asked for and have been answered on this link, in handle order;
  /// absent before the first answer.
  [[nodiscard]] virtual std::optional<std::vector<std::shared_ptr<CBService>>> services() const = 0;
  /// `discoverCharacteristics:forService:` Finds the listed characteristics of one service, or all
  /// when the list is absent.
  virtual void discoverCharacteristics_forService(
      const std::optional<std::vector<CBUUID>>& characteristicUUIDs,
      const std::shared_ptr<CBService>& service) = 0;
  /// `readValueForCharacteristic:` Reads once; exactly one value event answers.
  virtual void readValueForCharacteristic(
      const std::shared_ptr<CBCharacteristic>& characteristic) = 0;
  /// `setNotifyValue:forCharacteristic:` Subscribes or unsubscribes; exactly one
  /// notification-state event answers, errors included. A subscription ends with its link.
  virtual void setNotifyValue_forCharacteristic(
      bool enabled, const std::shared_ptr<CBCharacteristic>& characteristic) = 0;
  /// `writeValue:forCharacteristic:type:` Queues one write; values are written in order, empty ones
  /// too. An absent value sends nothing.
  virtual void writeValue_forCharacteristic_type(
      const std::optional<NSData>& value, const std::shared_ptr<CBCharacteristic>& characteristic,
      CBCharacteristicWriteType type) = 0;
};

/// @}

}  // namespace kestrin
