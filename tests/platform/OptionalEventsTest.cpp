// Events that a delegate does not handle: the radio tells them all the same, and what they are
// about happens whether or not anybody listens.
#include <gtest/gtest.h>

#include <chrono>
#include <memory>

#include "kestrin/simulated/SimulatedPlatform.h"

namespace kestrin {
namespace {

/// Handles nothing.
class Nobody final : public CBCentralManagerDelegate,
                     public CBPeripheralDelegate,
                     public CBPeripheralManagerDelegate {};

class OptionalEvents : public testing::Test {
 protected:
  static simulated::Options options() {
    simulated::Options options;
    options.virtualTime = true;
    return options;
  }
  void pass() { platform.runLoop().runFor(std::chrono::seconds(1)); }

  simulated::SimulatedPlatform platform{options()};
  const std::shared_ptr<simulated::VirtualPeripheral> reader =
      platform.radio().addReader("KVR-0417", simulated::ReaderFamily::standard);
  const std::shared_ptr<Nobody> nobody = std::make_shared<Nobody>();
};

TEST_F(OptionalEvents, ThatNobodyHandlesChangeNothing) {
  const auto rx = simulated::readerCharacteristics(simulated::ReaderFamily::standard).rx;
  const auto central = platform.radio().initWithDelegate_queue(nobody, nullptr);
  pass();
  EXPECT_EQ(central->state(), CBManagerState::poweredOn);
  static_cast<CBPeripheralManagerDelegate&>(*nobody).peripheralManagerDidUpdateState(nullptr);
  central->scanForPeripheralsWithServices_options(std::nullopt, std::nullopt);
  pass();
  const auto peripheral = reader->peripheral();
  EXPECT_EQ(peripheral->name(), "KVR-0417");
  peripheral->setDelegate(nobody);
  central->connectPeripheral_options(peripheral, std::nullopt);
  pass();
  EXPECT_TRUE(reader->connected());

  peripheral->discoverServices(std::nullopt);
  pass();
  const auto services = peripheral->services();
  ASSERT_TRUE(services);
  for (const auto& service : *services) {
    peripheral->discoverCharacteristics_forService(std::nullopt, service);
  }
  pass();
  std::shared_ptr<CBCharacteristic> found;
  for (const auto& service : *services) {
    const auto characteristics = service->characteristics();
    ASSERT_TRUE(characteristics);
    for (const auto& each : *characteristics) {
      if (each->UUID() == rx) found = each;
    }
  }
  ASSERT_TRUE(found);
  peripheral->setNotifyValue_forCharacteristic(true, found);
  pass();
  EXPECT_TRUE(reader->simulateNotification(rx, {0xBB, 0x01}));
  pass();
  EXPECT_EQ(found->value(), (NSData{0xBB, 0x01}));
  central->cancelPeripheralConnection(peripheral);
  pass();
  EXPECT_FALSE(reader->connected());
}

}  // namespace
}  // namespace kestrin
