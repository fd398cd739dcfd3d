/// \class kestrin::simulated::VirtualPeripheral
/// One virtual device in range of a simulated radio: what to make it do, and what it has seen.
///
/// A change holds from the next message on that the device gets or sends. Every error that the
/// device is told to answer with is answered until it is told otherwise.
///
/// Threads: on the thread that turns the main run loop.
///
/// Lifetime: the radio keeps the device as long as any central manager or the radio itself lives; a
/// handle that outlives both does nothing.
///
/// Errors: none; a UUID that the device does not have changes nothing.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "KestrinBLESDK/platform/CBPeripheral.h"
#include "KestrinBLESDK/platform/Clock.h"
#include "KestrinBLESDK/platform/Export.h"
#include "kestrin/simulated/GattLayout.h"
#include "kestrin/simulated/ReaderScript.h"

namespace kestrin::simulated {
/// \addtogroup simulated
/// @{

class Device;

/// One write as the device got it.
struct ReceivedWrite {
  /// What was written to.
  CBUUID characteristic;
  /// The bytes of this one write; may be empty.
  NSData value{};
  /// Whether the device was to answer.
  CBCharacteristicWriteType type = CBCharacteristicWriteType::CBCharacteristicWriteWithResponse;
  /// When it arrived, by the run loop's clock.
  Time at{};
};

class KESTRIN_EXPORT VirtualPeripheral {
 public:
  /// Devices are made by a `SimulatedRadio`.
  explicit VirtualPeripheral(std::shared_ptr<Device> device);
  ~VirtualPeripheral();
  VirtualPeripheral(const VirtualPeripheral&) = delete;
  VirtualPeripheral& operator=(const VirtualPeripheral&) = delete;

  /// The device's address, for example `C0:00:00:00:00:01`.
  [[nodiscard]] std::string identifier() const;
  /// The one object that stands for this device.
  [[nodiscard]] std::shared_ptr<CBPeripheral> peripheral() const;

  // On the air.

  /// Leaves the range: it is no longer heard, a link is lost after the supervision timeout, and an
  /// attempt to connect waits for it.
  void simulateVanishing();
  /// Comes back into range.
  void simulateAppearing();
  /// Advertises another name from now on, or none. A name once heard stays known.
  void simulateName(std::optional<std::string> name);
  /// Is heard once more by every running scan, even if nothing has changed.
  void simulateAdvertisement();
  /// Likewise, with an advertisement that carries no name.
  void simulateNamelessAdvertisement();

  // The link.

  /// The link is lost at once; the device stays in range.
  void simulateLinkLoss();
  /// Whether attempts to connect neither succeed nor fail. One that is under way when this ends
  /// begins again.
  void simulateConnectionNeverCompleting(bool never = true);
  /// The next `attempts` attempts to connect fail.
  void simulateFailingConnections(std::size_t attempts);

  // The attribute server.

  /// Answers service discovery with this error; absent: no longer.
  void simulateServiceDiscoveryError(std::optional<NSError> error);
  /// Answers characteristic discovery with this error; absent: no longer.
  void simulateCharacteristicDiscoveryError(std::optional<NSError> error);
  /// Whether the services of that UUID are left out of the links made from now on.
  void simulateMissingService(const CBUUID& service, bool missing = true);
  /// Whether the characteristics of that UUID are left out of the links made from now on.
  void simulateMissingCharacteristic(const CBUUID& characteristic, bool missing = true);
  /// The property mask of the characteristics of that UUID on the links made from now on.
  void simulateProperties(const CBUUID& characteristic, CBCharacteristicProperties properties);
  /// Answers every subscription with this error; absent: no longer.
  void simulateSubscriptionError(std::optional<NSError> error);
  /// Answers every read with this error; absent: no longer.
  void simulateReadError(std::optional<NSError> error);
  /// Refuses every write with this error, so that it is not received; absent: no longer. A central
  /// is not told of refused writes.
  void simulateWriteError(std::optional<NSError> error);
  /// What a read of the characteristics of that UUID answers from now on.
  void simulateValue(const CBUUID& characteristic, const NSData& value);
  /// Notifies one value as it stands, empty ones too. Returns whether anybody is subscribed.
  bool simulateNotification(const CBUUID& characteristic, const NSData& value);

  // The reader.

  /// Whether the reader gets commands without answering them.
  void simulateSilence(bool silent = true);
  /// Answers commands by this script from now on.
  void setScript(ReaderScript script);

  // What the device has seen.

  /// Whether a link is up, by the device's own account.
  [[nodiscard]] bool connected() const;
  /// The characteristics that a central is subscribed to, in handle order.
  [[nodiscard]] std::vector<CBUUID> subscriptions() const;
  /// Every write received so far, oldest first, over all links.
  [[nodiscard]] std::vector<ReceivedWrite> writes() const;
  /// How many writes have been refused.
  [[nodiscard]] std::size_t refusedWrites() const;
  /// How many attempts to connect have reached the device.
  [[nodiscard]] std::size_t connectionAttempts() const;

 private:
  const std::shared_ptr<Device> device_;
};

/// @}

}  // namespace kestrin::simulated
