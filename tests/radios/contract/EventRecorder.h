// A delegate for central managers and peripherals that records every event as it came, and watches
// that events come on the main run loop's thread, one at a time and never from inside a request.
//
// Threads: events on any thread, so that a wrong one is found out; the rest on the test's thread.
// Lifetime: shared by the test. Errors: see `violations`.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "KestrinBLESDK/platform/CBCentralManager.h"

namespace kestrin::test {

enum class EventKind {
  state,
  sighting,
  connected,
  disconnected,
  services,
  characteristics,
  value,
  notificationState,
};

struct Event {
  EventKind kind = EventKind::state;
  const CBCentralManager* central = nullptr;
  CBManagerState state = CBManagerState::unknown;
  std::shared_ptr<CBPeripheral> peripheral{};
  /// The peripheral's name at that moment.
  std::optional<std::string> name{};
  std::shared_ptr<CBService> service{};
  std::shared_ptr<CBCharacteristic> characteristic{};
  /// The characteristic's value at that moment.
  std::optional<NSData> value{};
  std::optional<NSError> error{};
  CBAdvertisementData advertisement{};
  int rssi = 0;
};

class EventRecorder final : public CBCentralManagerDelegate, public CBPeripheralDelegate {
 public:
  /// Called after each event is recorded, from inside it.
  std::function<void(const Event&)> onEvent;

  [[nodiscard]] std::vector<Event> events(EventKind kind) const;
  [[nodiscard]] std::size_t count(EventKind kind) const { return events(kind).size(); }
  [[nodiscard]] std::size_t count() const;
  void clear();
  /// What came in a way in which no event may come.
  [[nodiscard]] std::vector<std::string> violations() const;

  /// Marks that a request is being made on the test's thread.
  class Request {
   public:
    explicit Request(EventRecorder& recorder) : recorder_(recorder) { ++recorder_.requests_; }
    ~Request() { --recorder_.requests_; }
    Request(const Request&) = delete;
    Request& operator=(const Request&) = delete;

   private:
    EventRecorder& recorder_;
  };

  void centralManagerDidUpdateState(
      const std::shared_ptr<CBCentralManager>& central) noexcept override;
  void centralManager_didDiscoverPeripheral_advertisementData_RSSI(
      const std::shared_ptr<CBCentralManager>& central,
      const std::shared_ptr<CBPeripheral>& peripheral, const CBAdvertisementData& advertisementData,
      int RSSI) noexcept override;
  void centralManager_didConnectPeripheral(
      const std::shared_ptr<CBCentralManager>& central,
      const std::shared_ptr<CBPeripheral>& peripheral) noexcept override;
  void centralManager_didDisconnectPeripheral_error(
      const std::shared_ptr<CBCentralManager>& central,
      const std::shared_ptr<CBPeripheral>& peripheral,
      const std::optional<NSError>& error) noexcept override;
  void peripheral_didDiscoverServices(const std::shared_ptr<CBPeripheral>& peripheral,
                                      const std::optional<NSError>& error) noexcept override;
  void peripheral_didDiscoverCharacteristicsForService_error(
      const std::shared_ptr<CBPeripheral>& peripheral, const std::shared_ptr<CBService>& service,
      const std::optional<NSError>& error) noexcept override;
  void peripheral_didUpdateValueForCharacteristic_error(
      const std::shared_ptr<CBPeripheral>& peripheral,
      const std::shared_ptr<CBCharacteristic>& characteristic,
      const std::optional<NSError>& error) noexcept override;
  void peripheral_didUpdateNotificationStateForCharacteristic_error(
      const std::shared_ptr<CBPeripheral>& peripheral,
      const std::shared_ptr<CBCharacteristic>& characteristic,
      const std::optional<NSError>& error) noexcept override;

 private:
  void record(const Event& event);

  const std::thread::id mainThread_ = std::this_thread::get_id();
  int requests_ = 0;  // Under way on the test's thread.
  mutable std::mutex mutex_;
  int running_ = 0;
  std::vector<Event> events_;
  std::vector<std::string> violations_;
};

}  // namespace kestrin::test
