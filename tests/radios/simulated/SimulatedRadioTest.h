// A simulated radio in virtual time with one powered central manager whose events are recorded.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "KestrinBLESDK/platform/MainRunLoop.h"
#include "kestrin/simulated/SimulatedRadio.h"
#include "kestrin/simulated/VirtualClock.h"
#include "radios/contract/EventRecorder.h"

namespace kestrin::simulated {

using namespace std::chrono_literals;
using test::Event;
using test::EventKind;
using test::EventRecorder;

/// Asks a reader for its information.
inline const NSData kGetReaderInfo{0xBB, 0x00, 0x03, 0x00, 0x01, 0xB1, 0x7E, 0x65, 0x97};

class SimulatedRadioTest : public testing::Test {
 protected:
  explicit SimulatedRadioTest(const Options& options = {})
      : loop(std::make_shared<MainRunLoop>(std::make_shared<VirtualClock>())),
        radio(std::make_shared<SimulatedRadio>(loop, options)),
        recorder(std::make_shared<EventRecorder>()) {}
  void TearDown() override { EXPECT_EQ(recorder->violations(), std::vector<std::string>()); }

  std::shared_ptr<CBCentralManager> makeCentral() {
    auto made = radio->initWithDelegate_queue(recorder, nullptr);
    loop->run();
    recorder->clear();
    return made;
  }
  /// Turns the loop until nothing is pending.
  void run() { loop->run(); }
  static void scan(CBCentralManager& central) {
    central.scanForPeripheralsWithServices_options(std::nullopt, std::nullopt);
  }
  void connect(CBCentralManager& central, const std::shared_ptr<VirtualPeripheral>& device) {
    device->peripheral()->setDelegate(recorder);
    central.connectPeripheral_options(device->peripheral(), std::nullopt);
  }
  std::size_t count(EventKind kind) { return recorder->count(kind); }
  std::vector<Event> events(EventKind kind) { return recorder->events(kind); }

  /// The characteristic, after discovery of everything.
  std::shared_ptr<CBCharacteristic> discovered(const std::shared_ptr<CBPeripheral>& peripheral,
                                               const CBUUID& uuid) {
    peripheral->discoverServices(std::nullopt);
    run();
    std::shared_ptr<CBCharacteristic> found;
    // Lists are answered by value and must be kept while they are gone through.
    const auto services = peripheral->services().value();
    for (const auto& service : services) {
      peripheral->discoverCharacteristics_forService(std::nullopt, service);
      run();
      const auto characteristics = service->characteristics().value();
      for (const auto& candidate : characteristics) {
        if (candidate->UUID() == uuid) found = candidate;
      }
    }
    return found;
  }
  void write(CBPeripheral& peripheral, const std::shared_ptr<CBCharacteristic>& characteristic,
             const NSData& value) {
    peripheral.writeValue_forCharacteristic_type(
        value, characteristic, CBCharacteristicWriteType::CBCharacteristicWriteWithResponse);
  }

  const std::shared_ptr<MainRunLoop> loop;
  std::shared_ptr<SimulatedRadio> radio;
  const std::shared_ptr<EventRecorder> recorder;
};

/// The same with a linked standard reader.
class LinkedReaderTest : public SimulatedRadioTest {
 protected:
  explicit LinkedReaderTest(const Options& options = {}) : SimulatedRadioTest(options) {}
  void SetUp() override {
    reader = radio->addReader("KVR-1", ReaderFamily::standard);
    peripheral = reader->peripheral();
    central = makeCentral();
    link();
    ASSERT_TRUE(reader->connected());
    recorder->clear();
  }
  void link() {
    connect(*central, reader);
    run();
  }

  const CBUUID tx = readerCharacteristics(ReaderFamily::standard).tx;
  const CBUUID rx = readerCharacteristics(ReaderFamily::standard).rx;
  std::shared_ptr<VirtualPeripheral> reader;
  std::shared_ptr<CBPeripheral> peripheral;
  std::shared_ptr<CBCentralManager> central;
};

inline NSError anError() { return {CBATTErrorDomain, 0x0E, "Unlikely error"}; }

}  // namespace kestrin::simulated
