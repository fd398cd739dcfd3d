#include "radios/contract/EventRecorder.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace kestrin::test {

std::vector<Event> EventRecorder::events(EventKind kind) const {
  const std::scoped_lock lock(mutex_);
  std::vector<Event> found;
  std::copy_if(events_.begin(), events_.end(), std::back_inserter(found),
               [kind](const Event& event) { return event.kind == kind; });
  return found;
}

std::size_t EventRecorder::count() const {
  const std::scoped_lock lock(mutex_);
  return events_.size();
}

void EventRecorder::clear() {
  std::vector<Event> released;
  const std::scoped_lock lock(mutex_);
  released.swap(events_);
}

std::vector<std::string> EventRecorder::violations() const {
  const std::scoped_lock lock(mutex_);
  return violations_;
}

void EventRecorder::record(const Event& event) {
  {
    const std::scoped_lock lock(mutex_);
    const std::string which = "event of kind " + std::to_string(static_cast<int>(event.kind));
    if (std::this_thread::get_id() != mainThread_) {
      violations_.push_back(which + " on a thread that is not the main one");
    } else if (requests_ != 0) {
      violations_.push_back(which + " from inside a request");
    }
    if (running_ != 0) violations_.push_back(which + " from inside another event");
    ++running_;
    events_.push_back(event);
  }
  // A copy is called: the test may replace it from inside.
  if (const auto called = onEvent) called(event);
  const std::scoped_lock lock(mutex_);
  --running_;
}

void EventRecorder::centralManagerDidUpdateState(
    const std::shared_ptr<CBCentralManager>& central) noexcept {
  record({.kind = EventKind::state, .central = central.get(), .state = central->state()});
}

void EventRecorder::centralManager_didDiscoverPeripheral_advertisementData_RSSI(
    const std::shared_ptr<CBCentralManager>& central,
    const std::shared_ptr<CBPeripheral>& peripheral, const CBAdvertisementData& advertisementData,
    int RSSI) noexcept {
  record({.kind = EventKind::sighting,
          .central = central.get(),
          .peripheral = peripheral,
          .name = peripheral->name(),
          .advertisement = advertisementData,
          .rssi = RSSI});
}

void EventRecorder::centralManager_didConnectPeripheral(
    const std::shared_ptr<CBCentralManager>& central,
    const std::shared_ptr<CBPeripheral>& peripheral) noexcept {
  record({.kind = EventKind::connected,
          .central = central.get(),
          .peripheral = peripheral,
          .name = peripheral->name()});
}

void EventRecorder::centralManager_didDisconnectPeripheral_error(
    const std::shared_ptr<CBCentralManager>& central,
    const std::shared_ptr<CBPeripheral>& peripheral, const std::optional<NSError>& error) noexcept {
  record({.kind = EventKind::disconnected,
          .central = central.get(),
          .peripheral = peripheral,
          .name = peripheral->name(),
          .error = error});
}

void EventRecorder::peripheral_didDiscoverServices(const std::shared_ptr<CBPeripheral>& peripheral,
                                                   const std::optional<NSError>& error) noexcept {
  record({.kind = EventKind::services,
          .peripheral = peripheral,
          .name = peripheral->name(),
          .error = error});
}

void EventRecorder::peripheral_didDiscoverCharacteristicsForService_error(
    const std::shared_ptr<CBPeripheral>& peripheral, const std::shared_ptr<CBService>& service,
    const std::optional<NSError>& error) noexcept {
  record({.kind = EventKind::characteristics,
          .peripheral = peripheral,
          .name = peripheral->name(),
          .service = service,
          .error = error});
}

void EventRecorder::peripheral_didUpdateValueForCharacteristic_error(
    const std::shared_ptr<CBPeripheral>& peripheral,
    const std::shared_ptr<CBCharacteristic>& characteristic,
    const std::optional<NSError>& error) noexcept {
  record({.kind = EventKind::value,
          .peripheral = peripheral,
          .name = peripheral->name(),
          .characteristic = characteristic,
          .value = characteristic->value(),
          .error = error});
}

void EventRecorder::peripheral_didUpdateNotificationStateForCharacteristic_error(
    const std::shared_ptr<CBPeripheral>& peripheral,
    const std::shared_ptr<CBCharacteristic>& characteristic,
    const std::optional<NSError>& error) noexcept {
  record({.kind = EventKind::notificationState,
          .peripheral = peripheral,
          .name = peripheral->name(),
          .characteristic = characteristic,
          .value = characteristic->value(),
          .error = error});
}

}  // namespace kestrin::test
