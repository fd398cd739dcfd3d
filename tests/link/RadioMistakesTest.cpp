// Events in which a radio leaves out what they are about: a build with assertions stops there and
// names the mistake, one without ignores the event.
#include <functional>
#include <memory>
#include <string>

#include "link/LinkTest.h"

namespace kestrin::test {
namespace {

class RadioMistakes : public LinkTest {
 protected:
  /// Plays an event that has nothing else to it than what is missing.
  void ignores(const std::function<void()>& event, const std::string& mistake) {
#ifdef NDEBUG
    (void)mistake;
    event();
    EXPECT_EQ(platform.take(), kNothing);
#else
    EXPECT_DEATH(event(), mistake);
#endif
  }
  static constexpr char kPeripheral[] = "the radio made an event without its peripheral";
  static constexpr char kServiceMissing[] = "the radio reported a service that is null";
  static constexpr char kCharacteristic[] = "the radio reported a characteristic that is null";

  Reader reader = standardReader();
  Reader kvr = kvrReader();
};

TEST_F(RadioMistakes, AStateWithoutItsCentralManager) {
  ignores([&] { Peer::centralManagerDidUpdateState(*manager, nullptr); },
          "the radio made an event without its central manager");
}

TEST_F(RadioMistakes, ASightingWithoutItsPeripheral) {
  ignores(
      [&] {
        Peer::centralManager_didDiscoverPeripheral_advertisementData_RSSI(*manager, nullptr,
                                                                          nullptr, {}, -50);
      },
      kPeripheral);
}

TEST_F(RadioMistakes, AConnectionWithoutItsPeripheral) {
  ignores([&] { Peer::centralManager_didConnectPeripheral(*manager, nullptr, nullptr); },
          kPeripheral);
  EXPECT_FALSE(manager->open());
}

TEST_F(RadioMistakes, FoundServicesWithoutTheirPeripheral) {
  ignores([&] { Peer::peripheral_didDiscoverServices(*manager, nullptr, std::nullopt); },
          kPeripheral);
}

TEST_F(RadioMistakes, AFoundServiceThatIsNull) {
  reader.peripheral->shownServices = Services{nullptr};
  ignores([&] { Peer::peripheral_didDiscoverServices(*manager, reader.peripheral, std::nullopt); },
          kServiceMissing);
  kvr.peripheral->shownServices = Services{nullptr};
  ignores([&] { Peer::peripheral_didDiscoverServices(*manager, kvr.peripheral, std::nullopt); },
          kServiceMissing);
}

TEST_F(RadioMistakes, FoundCharacteristicsWithoutTheirPeripheral) {
  ignores(
      [&] {
        Peer::peripheral_didDiscoverCharacteristicsForService_error(*manager, nullptr,
                                                                    reader.service, std::nullopt);
      },
      kPeripheral);
}

TEST_F(RadioMistakes, FoundCharacteristicsWithoutTheirService) {
  ignores(
      [&] {
        Peer::peripheral_didDiscoverCharacteristicsForService_error(*manager, reader.peripheral,
                                                                    nullptr, std::nullopt);
      },
      kServiceMissing);
  EXPECT_FALSE(manager->open());
}

TEST_F(RadioMistakes, AValueWithoutItsCharacteristicOrItsPeripheral) {
  ignores(
      [&] {
        Peer::peripheral_didUpdateValueForCharacteristic_error(*manager, reader.peripheral, nullptr,
                                                               std::nullopt);
      },
      kCharacteristic);
  reader.rx->shownValue = kFrame;
  ignores(
      [&] {
        Peer::peripheral_didUpdateValueForCharacteristic_error(*manager, nullptr, reader.rx,
                                                               std::nullopt);
      },
      kPeripheral);
}

TEST_F(RadioMistakes, ANotificationStateWithoutItsCharacteristic) {
  ignores(
      [&] {
        Peer::peripheral_didUpdateNotificationStateForCharacteristic_error(
            *manager, reader.peripheral, nullptr, std::nullopt);
      },
      kCharacteristic);
}

#ifdef NDEBUG
TEST_F(RadioMistakes, OfAFoundCharacteristicLeaveTheOthersFound) {
  reader.service->shownCharacteristics = Characteristics{nullptr, reader.rx, nullptr, reader.tx};
  Peer::peripheral_didDiscoverCharacteristicsForService_error(*manager, reader.peripheral,
                                                              reader.service, std::nullopt);
  EXPECT_EQ(Peer::rxCharacteristic(*manager), reader.rx);
  EXPECT_EQ(Peer::txCharacteristic(*manager), reader.tx);
  kvr.service->shownCharacteristics = Characteristics{nullptr, kvr.rx, kvr.tx};
  kvr.peripheral->shownServices = Services{nullptr, kvr.service};
  Peer::peripheral_didDiscoverCharacteristicsForService_error(*manager, kvr.peripheral, kvr.service,
                                                              std::nullopt);
  EXPECT_EQ(Peer::rxCharacteristic(*manager), kvr.rx);
  EXPECT_EQ(Peer::txCharacteristic(*manager), kvr.tx);
}
#else
TEST_F(RadioMistakes, OfAFoundCharacteristicStopThere) {
  reader.service->shownCharacteristics = Characteristics{nullptr};
  EXPECT_DEATH(Peer::peripheral_didDiscoverCharacteristicsForService_error(
                   *manager, reader.peripheral, reader.service, std::nullopt),
               kCharacteristic);
  kvr.service->shownCharacteristics = Characteristics{nullptr};
  kvr.peripheral->shownServices = Services{kvr.service};
  EXPECT_DEATH(Peer::peripheral_didDiscoverCharacteristicsForService_error(
                   *manager, kvr.peripheral, kvr.service, std::nullopt),
               kCharacteristic);
  kvr.peripheral->shownServices = Services{nullptr};
  EXPECT_DEATH(Peer::peripheral_didDiscoverCharacteristicsForService_error(
                   *manager, kvr.peripheral, kvr.service, std::nullopt),
               kServiceMissing);
}
#endif

}  // namespace
}  // namespace kestrin::test
