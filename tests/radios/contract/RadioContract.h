// What every radio promises, as a suite that any radio can run: link the `...Contract.cpp` files
// and instantiate the suite with a factory of beds.
//
//   INSTANTIATE_TEST_SUITE_P(Simulated, RadioContract, testing::Values(makeSimulatedBed));
//
// Threads: one test on one thread. Lifetime: each test has a bed of its own.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "radios/contract/ContractBed.h"
#include "radios/contract/EventRecorder.h"

namespace kestrin::test {

/// The UUIDs that the contract needs of the reader's layout.
inline CBUUID dataService() {
  return *CBUUID::UUIDWithString("BA821000-3B5B-4654-85FE-E998B123ADEA");
}
inline CBUUID commandCharacteristic() {
  return *CBUUID::UUIDWithString("BA821001-3B5B-4654-85FE-E998B123ADEA");
}
inline CBUUID replyCharacteristic() {
  return *CBUUID::UUIDWithString("BA821002-3B5B-4654-85FE-E998B123ADEA");
}
inline CBUUID deviceInformation() { return CBUUID(0x180A); }
inline CBUUID manufacturerName() { return CBUUID(0x2A29); }
inline CBUUID hardwareRevision() { return CBUUID(0x2A27); }

/// Values of 0 to 20 bytes that differ from their neighbours, empty ones among them.
std::vector<NSData> manyValues(std::size_t count);

class RadioContract : public testing::TestWithParam<ContractBedFactory> {
 protected:
  using UUIDs = std::optional<std::vector<CBUUID>>;

  RadioContract() : bed_(GetParam()()), recorder_(std::make_shared<EventRecorder>()) {}
  void TearDown() override { EXPECT_EQ(recorder_->violations(), std::vector<std::string>()); }

  ContractBed& bed() { return *bed_; }
  void dropBed() { bed_.reset(); }
  EventRecorder& recorder() { return *recorder_; }
  std::vector<Event> events(EventKind kind) { return recorder_->events(kind); }
  std::size_t count(EventKind kind) { return recorder_->count(kind); }
  /// The sightings of the reader, and of no other peripheral in range.
  std::vector<Event> sightings();

  /// A central manager that reports to the recorder; its first state report is still to come.
  std::shared_ptr<CBCentralManager> makeCentral();
  /// The same, powered on, with nothing recorded yet.
  std::shared_ptr<CBCentralManager> makePoweredCentral();

  // Requests, watched by the recorder.
  void scan(CBCentralManager& central, const UUIDs& services = std::nullopt);
  void connect(CBCentralManager& central, const std::shared_ptr<CBPeripheral>& peripheral);
  void cancel(CBCentralManager& central, const std::shared_ptr<CBPeripheral>& peripheral);
  void discoverServices(CBPeripheral& peripheral, const UUIDs& services);
  void discoverCharacteristics(CBPeripheral& peripheral, const std::shared_ptr<CBService>& service,
                               const UUIDs& characteristics);
  void subscribe(CBPeripheral& peripheral, const std::shared_ptr<CBCharacteristic>& characteristic,
                 bool enabled = true);
  void read(CBPeripheral& peripheral, const std::shared_ptr<CBCharacteristic>& characteristic);
  void write(CBPeripheral& peripheral, const std::shared_ptr<CBCharacteristic>& characteristic,
             const std::optional<NSData>& value);

  // Whole steps, each waited for; a step that fails fails the test and returns null or false.
  /// The reader's object, found by a scan that is then stopped.
  std::shared_ptr<CBPeripheral> findReader(CBCentralManager& central);
  [[nodiscard]] bool waitFor(EventKind kind, std::size_t count = 1);
  bool connectAndWait(CBCentralManager& central, const std::shared_ptr<CBPeripheral>& reader);
  /// The characteristic, after discovery of its service and of itself.
  std::shared_ptr<CBCharacteristic> find(CBPeripheral& reader, const CBUUID& service,
                                         const CBUUID& characteristic);
  /// The reply characteristic, subscribed.
  std::shared_ptr<CBCharacteristic> findSubscribed(CBPeripheral& reader);

 private:
  std::unique_ptr<ContractBed> bed_;
  const std::shared_ptr<EventRecorder> recorder_;
};

/// With a link to the reader, and nothing recorded yet.
class LinkedRadioContract : public RadioContract {
 protected:
  void SetUp() override;
  // Discoveries, waited for; they must succeed.
  void answerServices(const UUIDs& wanted);
  void answerCharacteristics(const std::shared_ptr<CBService>& service, const UUIDs& wanted);

  std::shared_ptr<CBCentralManager> central;
  std::shared_ptr<CBPeripheral> reader;
};

}  // namespace kestrin::test
