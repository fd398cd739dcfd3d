#include "support/RecordingBluetooth.h"

#include <utility>

#include "support/RecordingPlatform.h"

namespace kestrin::test {
namespace {

constexpr char kAbsent[] = "(absent)";

template <class To, class From>
std::vector<std::shared_ptr<To>> listOf(const std::vector<std::shared_ptr<From>>& list) {
  return {list.begin(), list.end()};
}

}  // namespace

std::string uuidsText(const std::optional<std::vector<CBUUID>>& uuids) {
  if (!uuids) return kAbsent;
  std::string text;
  for (const CBUUID& uuid : *uuids) text += (text.empty() ? "" : " ") + uuid.UUIDString();
  return "[" + text + "]";
}

std::string peripheralText(const std::shared_ptr<CBPeripheral>& peripheral) {
  return peripheral ? '"' + peripheral->identifier() + '"' : kAbsent;
}

std::string characteristicText(const std::shared_ptr<CBCharacteristic>& characteristic) {
  return characteristic ? characteristic->UUID().UUIDString() : kAbsent;
}

std::string valueText(const std::optional<NSData>& value) {
  return value ? value->description() : kAbsent;
}

RecordingCharacteristic::RecordingCharacteristic(std::string_view uuid,
                                                 CBCharacteristicProperties properties)
    : propertyReads(properties), uuid_(CBUUID::UUIDWithString(uuid).value()) {}

RecordingService::RecordingService(std::string_view uuid)
    : uuid_(CBUUID::UUIDWithString(uuid).value()) {}

std::optional<std::vector<std::shared_ptr<CBCharacteristic>>> RecordingService::characteristics()
    const {
  if (!shownCharacteristics) return std::nullopt;
  return listOf<CBCharacteristic>(*shownCharacteristics);
}

std::string RecordingService::debugDescription() const {
  return "<service " + uuid_.UUIDString() + ">";
}

RecordingPeripheral::RecordingPeripheral(RecordingPlatform& platform, std::string label,
                                         std::optional<std::string> name)
    : nameReads(std::move(name)), platform_(platform), label_(std::move(label)) {}

void RecordingPeripheral::record(const std::string& request) const {
  platform_.recordRequest("peripheral \"" + label_ + "\" " + request);
}

void RecordingPeripheral::setDelegate(std::weak_ptr<CBPeripheralDelegate> delegate) {
  delegate_ = std::move(delegate);
  record("setDelegate " + platform_.ownerText(delegate_.lock()));
}

void RecordingPeripheral::discoverServices(const std::optional<std::vector<CBUUID>>& serviceUUIDs) {
  record("discoverServices " + uuidsText(serviceUUIDs));
}

std::optional<std::vector<std::shared_ptr<CBService>>> RecordingPeripheral::services() const {
  if (!shownServices) return std::nullopt;
  return listOf<CBService>(*shownServices);
}

void RecordingPeripheral::discoverCharacteristics_forService(
    const std::optional<std::vector<CBUUID>>& characteristicUUIDs,
    const std::shared_ptr<CBService>& service) {
  record("discoverCharacteristics " + uuidsText(characteristicUUIDs) + " forService " +
         (service ? service->UUID().UUIDString() : kAbsent));
}

void RecordingPeripheral::readValueForCharacteristic(
    const std::shared_ptr<CBCharacteristic>& characteristic) {
  record("readValue of " + characteristicText(characteristic));
}

void RecordingPeripheral::setNotifyValue_forCharacteristic(
    bool enabled, const std::shared_ptr<CBCharacteristic>& characteristic) {
  record(std::string("setNotifyValue ") + (enabled ? "true" : "false") + " for " +
         characteristicText(characteristic));
}

void RecordingPeripheral::writeValue_forCharacteristic_type(
    const std::optional<NSData>& value, const std::shared_ptr<CBCharacteristic>& characteristic,
    CBCharacteristicWriteType type) {
  record("writeValue " + valueText(value) + " to " + characteristicText(characteristic) + " type " +
         std::to_string(static_cast<std::int64_t>(type)));
}

RecordingCentral::RecordingCentral(RecordingPlatform& platform, int number,
                                   std::weak_ptr<CBCentralManagerDelegate> delegate)
    : platform_(platform), number_(number), delegate_(std::move(delegate)) {}

RecordingCentral::~RecordingCentral() { platform_.transcript().add(label() + " released"); }

void RecordingCentral::record(const std::string& request) const {
  platform_.recordRequest(label() + " " + request);
}

void RecordingCentral::scanForPeripheralsWithServices_options(
    const std::optional<std::vector<CBUUID>>& services,
    const std::optional<CBScanOptions>& options) {
  record("scanForPeripheralsWithServices " + uuidsText(services) + " options " +
         (options ? "present" : kAbsent));
}

void RecordingCentral::stopScan() { record("stopScan"); }

void RecordingCentral::connectPeripheral_options(const std::shared_ptr<CBPeripheral>& peripheral,
                                                 const std::optional<CBConnectOptions>& options) {
  record("connectPeripheral " + peripheralText(peripheral) + " options " +
         (options ? "present" : kAbsent));
}

void RecordingCentral::cancelPeripheralConnection(const std::shared_ptr<CBPeripheral>& peripheral) {
  record("cancelPeripheralConnection " + peripheralText(peripheral));
}

}  // namespace kestrin::test
