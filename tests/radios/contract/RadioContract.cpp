#include "radios/contract/RadioContract.h"

#include <algorithm>
#include <utility>

namespace kestrin::test {

std::vector<NSData> manyValues(std::size_t count) {
  std::vector<NSData> values;
  for (std::size_t i = 0; i < count; ++i) {
    values.emplace_back(std::vector<std::uint8_t>(i % 21, static_cast<std::uint8_t>(i)));
  }
  return values;
}

std::vector<Event> RadioContract::sightings() {
  auto seen = events(EventKind::sighting);
  // The identity is known as soon as one sighting had the name.
  const auto named = std::find_if(seen.begin(), seen.end(), [this](const Event& event) {
    return event.name == bed().readerName();
  });
  if (named == seen.end()) return {};
  const auto reader = named->peripheral;
  std::erase_if(seen, [&reader](const Event& event) { return event.peripheral != reader; });
  return seen;
}

std::shared_ptr<CBCentralManager> RadioContract::makeCentral() {
  const EventRecorder::Request request(*recorder_);
  return bed().radio()->initWithDelegate_queue(recorder_, nullptr);
}

std::shared_ptr<CBCentralManager> RadioContract::makePoweredCentral() {
  auto central = makeCentral();
  const bool powered =
      bed().runUntil([&] { return central->state() == CBManagerState::poweredOn; });
  EXPECT_TRUE(powered) << "the radio was not powered on to begin with";
  recorder_->clear();
  return central;
}

void RadioContract::scan(CBCentralManager& central, const UUIDs& services) {
  const EventRecorder::Request request(*recorder_);
  central.scanForPeripheralsWithServices_options(services, std::nullopt);
}

void RadioContract::connect(CBCentralManager& central,
                            const std::shared_ptr<CBPeripheral>& peripheral) {
  const EventRecorder::Request request(*recorder_);
  if (peripheral) peripheral->setDelegate(recorder_);
  central.connectPeripheral_options(peripheral, std::nullopt);
}

void RadioContract::cancel(CBCentralManager& central,
                           const std::shared_ptr<CBPeripheral>& peripheral) {
  const EventRecorder::Request request(*recorder_);
  central.cancelPeripheralConnection(peripheral);
}

void RadioContract::discoverServices(CBPeripheral& peripheral, const UUIDs& services) {
  const EventRecorder::Request request(*recorder_);
  peripheral.discoverServices(services);
}

void RadioContract::discoverCharacteristics(CBPeripheral& peripheral,
                                            const std::shared_ptr<CBService>& service,
                                            const UUIDs& characteristics) {
  const EventRecorder::Request request(*recorder_);
  peripheral.discoverCharacteristics_forService(characteristics, service);
}

void RadioContract::subscribe(CBPeripheral& peripheral,
                              const std::shared_ptr<CBCharacteristic>& characteristic,
                              bool enabled) {
  const EventRecorder::Request request(*recorder_);
  peripheral.setNotifyValue_forCharacteristic(enabled, characteristic);
}

void RadioContract::read(CBPeripheral& peripheral,
                         const std::shared_ptr<CBCharacteristic>& characteristic) {
  const EventRecorder::Request request(*recorder_);
  peripheral.readValueForCharacteristic(characteristic);
}

void RadioContract::write(CBPeripheral& peripheral,
                          const std::shared_ptr<CBCharacteristic>& characteristic,
                          const std::optional<NSData>& value) {
  const EventRecorder::Request request(*recorder_);
  peripheral.writeValue_forCharacteristic_type(
      value, characteristic, CBCharacteristicWriteType::CBCharacteristicWriteWithResponse);
}

bool RadioContract::waitFor(EventKind kind, std::size_t number) {
  const bool came = bed().runUntil([&] { return count(kind) >= number; });
  EXPECT_TRUE(came) << "events of kind " << static_cast<int>(kind) << ": " << count(kind)
                    << " instead of " << number;
  return came;
}

std::shared_ptr<CBPeripheral> RadioContract::findReader(CBCentralManager& central) {
  scan(central);
  const bool found = bed().runUntil([&] { return !sightings().empty(); });
  central.stopScan();
  EXPECT_TRUE(found) << "no sighting of " << bed().readerName();
  auto reader = found ? sightings().front().peripheral : nullptr;
  recorder_->clear();
  return reader;
}

bool RadioContract::connectAndWait(CBCentralManager& central,
                                   const std::shared_ptr<CBPeripheral>& reader) {
  const std::size_t before = count(EventKind::connected);
  connect(central, reader);
  return waitFor(EventKind::connected, before + 1);
}

std::shared_ptr<CBCharacteristic> RadioContract::find(CBPeripheral& reader, const CBUUID& service,
                                                      const CBUUID& characteristic) {
  const std::size_t servicesBefore = count(EventKind::services);
  discoverServices(reader, {{service}});
  if (!waitFor(EventKind::services, servicesBefore + 1)) return nullptr;
  const auto services = reader.services().value_or(std::vector<std::shared_ptr<CBService>>());
  const auto found = std::find_if(services.begin(), services.end(), [&](const auto& candidate) {
    return candidate->UUID() == service;
  });
  EXPECT_NE(found, services.end()) << "no service " << service.UUIDString();
  if (found == services.end()) return nullptr;
  const std::size_t characteristicsBefore = count(EventKind::characteristics);
  discoverCharacteristics(reader, *found, {{characteristic}});
  if (!waitFor(EventKind::characteristics, characteristicsBefore + 1)) return nullptr;
  const auto known = (*found)->characteristics();
  for (const auto& candidate : known.value_or(std::vector<std::shared_ptr<CBCharacteristic>>())) {
    if (candidate->UUID() == characteristic) return candidate;
  }
  ADD_FAILURE() << "no characteristic " << characteristic.UUIDString();
  return nullptr;
}

std::shared_ptr<CBCharacteristic> RadioContract::findSubscribed(CBPeripheral& reader) {
  auto rx = find(reader, dataService(), replyCharacteristic());
  if (!rx) return nullptr;
  const std::size_t before = count(EventKind::notificationState);
  subscribe(reader, rx);
  if (!waitFor(EventKind::notificationState, before + 1)) return nullptr;
  EXPECT_EQ(events(EventKind::notificationState).back().error, std::nullopt);
  return rx;
}

void LinkedRadioContract::SetUp() {
  central = makePoweredCentral();
  reader = findReader(*central);
  ASSERT_NE(reader, nullptr);
  ASSERT_TRUE(connectAndWait(*central, reader));
  recorder().clear();
}

void LinkedRadioContract::answerServices(const UUIDs& wanted) {
  const std::size_t before = count(EventKind::services);
  discoverServices(*reader, wanted);
  ASSERT_TRUE(waitFor(EventKind::services, before + 1));
  EXPECT_EQ(events(EventKind::services).back().error, std::nullopt);
}

void LinkedRadioContract::answerCharacteristics(const std::shared_ptr<CBService>& service,
                                                const UUIDs& wanted) {
  const std::size_t before = count(EventKind::characteristics);
  discoverCharacteristics(*reader, service, wanted);
  ASSERT_TRUE(waitFor(EventKind::characteristics, before + 1));
  const Event answer = events(EventKind::characteristics).back();
  EXPECT_EQ(answer.service, service);
  EXPECT_EQ(answer.error, std::nullopt);
}

}  // namespace kestrin::test
