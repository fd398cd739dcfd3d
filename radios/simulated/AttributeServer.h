// The device's side of its links: what its attribute server holds, what it answers, what it has
// received, and the reader that plays behind it.
//
// Threads: on the main run loop. Lifetime: part of its device.
// Errors: those that it was told to answer with, and those of the property masks.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <set>
#include <vector>

#include "Attributes.h"
#include "kestrin/simulated/GattLayout.h"
#include "kestrin/simulated/ReaderScript.h"
#include "kestrin/simulated/VirtualPeripheral.h"

namespace kestrin::simulated {

/// What a device is told to answer with instead of doing as it is asked.
struct ServerFaults {
  std::optional<NSError> serviceDiscovery;
  std::optional<NSError> characteristicDiscovery;
  std::optional<NSError> subscription;
  std::optional<NSError> read;
  std::optional<NSError> write;
  bool silent = false;
};

class AttributeServer {
 public:
  /// An absent family is not a reader.
  AttributeServer(GattLayout layout, std::optional<ReaderFamily> family);

  ServerFaults faults;

  /// The layout that a link made now shows.
  [[nodiscard]] GattLayout layoutOfNextLink() const;
  void setMissing(const CBUUID& uuid, bool missing);
  void setProperties(const CBUUID& characteristic, CBCharacteristicProperties properties);
  void setValue(const CBUUID& characteristic, const NSData& value);
  void setScript(ReaderScript script) { conversation_.setScript(std::move(script)); }

  /// Returns a read into `value`, or with an error.
  [[nodiscard]] std::optional<NSError> read(const SimulatedCharacteristic& characteristic,
                                            NSData& value) const;
  /// Subscribes or unsubscribes the link's characteristic, or answers with an error.
  std::optional<NSError> subscribe(SimulatedCharacteristic& characteristic, bool enabled) const;
  /// Takes a write; returns the reply frames of a reader.
  std::vector<NSData> write(const SimulatedCharacteristic& characteristic, ReceivedWrite write);
  /// Where replies are notified; absent for a device that is not a reader.
  [[nodiscard]] std::optional<CBUUID> replyCharacteristic() const;
  /// The link has ended.
  void reset() { conversation_.reset(); }

  [[nodiscard]] const std::vector<ReceivedWrite>& writes() const noexcept { return writes_; }
  [[nodiscard]] std::size_t refusedWrites() const noexcept { return refusedWrites_; }

 private:
  GattLayout layout_;
  const std::optional<ReaderCharacteristics> reader_;
  std::set<CBUUID> missing_;
  ReaderConversation conversation_;
  std::vector<ReceivedWrite> writes_;
  std::size_t refusedWrites_ = 0;
};

}  // namespace kestrin::simulated
