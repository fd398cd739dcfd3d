// The application's side of a device: what the main run loop reads, and requests that are handed to
// the radio's thread.
//
// Threads: as CBPeripheral.h, CBService.h and CBCharacteristic.h say. The operations that deliver
// events run on the main run loop.
// Lifetime: one `Peripheral` per device for the life of the process; each link makes services and
// characteristics of its own, which do not keep the radio's thread.
// Errors: none; requests without a link, or with an earlier link's objects, go nowhere. What was
// asked for before the link's end is reported is answered, be it with that end.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "KestrinBLESDK/platform/CBCentralManager.h"
#include "KestrinBLESDK/platform/CBPeripheral.h"
#include "LinkLine.h"

namespace kestrin::bluez {

class Characteristic final : public CBCharacteristic {
 public:
  Characteristic(std::shared_ptr<LinkLine> link, std::string path, const CBUUID& uuid,
                 CBCharacteristicProperties properties);
  [[nodiscard]] CBUUID UUID() const override { return uuid_; }
  [[nodiscard]] CBCharacteristicProperties properties() const override { return properties_; }
  [[nodiscard]] std::optional<NSData> value() const override { return value_; }

  [[nodiscard]] const std::shared_ptr<LinkLine>& link() const noexcept { return link_; }
  [[nodiscard]] const std::string& path() const noexcept { return path_; }
  void setValue(const NSData& value) { value_ = value; }

 private:
  const std::shared_ptr<LinkLine> link_;
  const std::string path_;
  const CBUUID uuid_;
  const CBCharacteristicProperties properties_;
  std::optional<NSData> value_;
};

class Service final : public CBService {
 public:
  using Characteristics = std::vector<std::shared_ptr<Characteristic>>;

  Service(std::shared_ptr<LinkLine> link, std::string path, const CBUUID& uuid);
  [[nodiscard]] CBUUID UUID() const override { return uuid_; }
  [[nodiscard]] std::optional<std::vector<std::shared_ptr<CBCharacteristic>>> characteristics()
      const override;
  [[nodiscard]] std::string debugDescription() const override;

  [[nodiscard]] const std::shared_ptr<LinkLine>& link() const noexcept { return link_; }
  [[nodiscard]] const std::string& path() const noexcept { return path_; }
  void addCharacteristics(const Characteristics& found);

 private:
  const std::shared_ptr<LinkLine> link_;
  const std::string path_;
  const CBUUID uuid_;
  std::optional<Characteristics> characteristics_;
};

class Peripheral final : public CBPeripheral, public std::enable_shared_from_this<Peripheral> {
 public:
  using Services = std::vector<std::shared_ptr<Service>>;

  Peripheral(std::string bus, std::string path, std::string address);
  /// The one object of the device at `path` of a bus.
  static std::shared_ptr<Peripheral> of(const std::string& bus, const std::string& path,
                                        const std::string& address);

  [[nodiscard]] std::string identifier() const override { return address_; }
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

  [[nodiscard]] const std::string& bus() const noexcept { return bus_; }
  [[nodiscard]] const std::string& path() const noexcept { return path_; }

  void setName(const std::optional<std::string>& name);
  /// The link is up for `holder`. Links of an earlier number are over.
  void beginLink(const std::shared_ptr<LinkLine>& link, std::weak_ptr<CBCentralManager> holder);
  /// The link is over for `holder`. With the last one it ends, and `reason` answers what it leaves
  /// unanswered.
  void endLink(std::uint64_t number, const std::shared_ptr<CBCentralManager>& holder,
               const NSError& reason);
  /// What a discovery of that link has found; the event comes with its end.
  void addServices(std::uint64_t link, const Services& found);
  void addCharacteristics(const std::shared_ptr<Service>& service,
                          const Service::Characteristics& found);
  void deliverValue(const std::shared_ptr<Characteristic>& characteristic, const NSData& value);
  /// A request of that link has ended.
  void deliverEnd(const LinkRequest& request, std::uint64_t link,
                  const std::optional<NSError>& error);

 private:
  struct Link {
    std::shared_ptr<LinkLine> line;
    std::vector<std::weak_ptr<CBCentralManager>> holders;
  };
  /// Whether that link is up and a central manager that holds it is still there to be told.
  [[nodiscard]] bool isCurrent(std::uint64_t link) const;
  [[nodiscard]] bool isHeldByOthersThan(const std::shared_ptr<CBCentralManager>& holder) const;

  const std::string bus_;
  const std::string path_;
  const std::string address_;
  mutable std::mutex mutex_;  // Guards the name, which any thread may ask for.
  std::optional<std::string> name_;
  std::weak_ptr<CBPeripheralDelegate> delegate_;
  std::optional<Link> link_;
  std::optional<Services> services_;
};

}  // namespace kestrin::bluez
