// States, advertisements and names of the simulated radio.
#include "radios/simulated/SimulatedRadioTest.h"

namespace kestrin::simulated {
namespace {

using AirTest = SimulatedRadioTest;

TEST_F(AirTest, EveryStateAndValuesBeyondThemAreReported) {
  const auto central = makeCentral();
  for (const std::int64_t value : {0, 1, 2, 3, 4, 5, 6, 99}) {
    SCOPED_TRACE(value);
    recorder->clear();
    const auto state = static_cast<CBManagerState>(value);
    radio->simulateState(state);
    run();
    // The radio is powered on to begin with and again just before value 5's turn comes.
    ASSERT_EQ(count(EventKind::state), 1U);
    EXPECT_EQ(events(EventKind::state)[0].state, state);
    EXPECT_EQ(central->state(), state);
    EXPECT_EQ(radio->stateReason().empty(), state == CBManagerState::poweredOn);
  }
}

TEST_F(AirTest, TheStateItIsInAlreadyIsNotReportedAgain) {
  const auto central = makeCentral();
  radio->simulateState(CBManagerState::poweredOn);
  run();
  EXPECT_EQ(recorder->count(), 0U);
}

TEST_F(AirTest, ChangesInOneTurnAreAllReported) {
  const auto central = makeCentral();
  radio->simulateState(CBManagerState::poweredOff);
  radio->simulateState(CBManagerState::poweredOn);
  run();
  const auto reports = events(EventKind::state);
  ASSERT_EQ(reports.size(), 2U);
  EXPECT_EQ(reports[0].state, CBManagerState::poweredOff);
  EXPECT_EQ(reports[1].state, CBManagerState::poweredOn);
}

TEST_F(AirTest, TheFirstReportSaysWhatIsSoThenAndNothingIsReportedTwice) {
  const auto central = radio->initWithDelegate_queue(recorder, loop);
  radio->simulateState(CBManagerState::poweredOff);
  run();
  ASSERT_EQ(count(EventKind::state), 1U);
  EXPECT_EQ(events(EventKind::state)[0].state, CBManagerState::poweredOff);
}

TEST_F(AirTest, ACentralManagerOnAnotherQueueReportsThereThatItIsUnsupported) {
  const auto other = std::make_shared<MainRunLoop>(std::make_shared<VirtualClock>());
  const auto central = radio->initWithDelegate_queue(recorder, other);
  run();
  EXPECT_EQ(recorder->count(), 0U);
  other->run();
  ASSERT_EQ(recorder->count(), 1U);
  EXPECT_EQ(events(EventKind::state)[0].state, CBManagerState::unsupported);
}

TEST_F(AirTest, EveryPeripheralIsHeardWithinTheAdvertisingInterval) {
  for (int i = 0; i < 20; ++i) radio->addPeripheral("P" + std::to_string(i));
  const auto central = makeCentral();
  scan(*central);
  const Time begin = loop->now();
  run();
  EXPECT_EQ(count(EventKind::sighting), 20U);
  EXPECT_LE(loop->now() - begin, Options().advertisingInterval);
  for (const auto& seen : events(EventKind::sighting)) {
    EXPECT_GE(seen.rssi, Options().signalStrength.min);
    EXPECT_LE(seen.rssi, Options().signalStrength.max);
  }
}

TEST_F(AirTest, APeripheralAddedDuringAScanIsHeard) {
  const auto central = makeCentral();
  scan(*central);
  run();
  radio->addPeripheral("Lamp");
  run();
  EXPECT_EQ(count(EventKind::sighting), 1U);
}

TEST_F(AirTest, AVanishedPeripheralIsNotHeardUntilItAppears) {
  const auto device = radio->addPeripheral("Lamp");
  device->simulateVanishing();
  const auto central = makeCentral();
  scan(*central);
  run();
  device->simulateAdvertisement();
  run();
  EXPECT_EQ(count(EventKind::sighting), 0U);
  device->simulateAppearing();
  run();
  EXPECT_EQ(count(EventKind::sighting), 1U);
}

TEST_F(AirTest, AnAdvertisementOnDemandRepeatsASighting) {
  const auto device = radio->addPeripheral("Lamp");
  const auto central = makeCentral();
  scan(*central);
  run();
  radio->simulateAdvertisement(device);
  device->simulateAdvertisement();
  run();
  const auto seen = events(EventKind::sighting);
  ASSERT_EQ(seen.size(), 3U);
  for (const auto& sighting : seen) EXPECT_EQ(sighting.name, "Lamp");
  central->stopScan();
  radio->simulateAdvertisement(device);
  radio->simulateAdvertisement(nullptr);
  run();
  EXPECT_EQ(count(EventKind::sighting), 3U) << "nobody listens";
}

TEST_F(AirTest, APeripheralWithoutANameIsReportedWithoutOne) {
  const auto device = radio->addPeripheral(std::nullopt);
  const auto central = makeCentral();
  scan(*central);
  run();
  ASSERT_EQ(count(EventKind::sighting), 1U);
  EXPECT_EQ(events(EventKind::sighting)[0].name, std::nullopt);
  device->simulateName("Lamp");
  run();
  ASSERT_EQ(count(EventKind::sighting), 2U);
  EXPECT_EQ(events(EventKind::sighting)[1].name, "Lamp");
}

TEST_F(AirTest, ANamelessAdvertisementLeavesAKnownNameAndANewNameIsAChange) {
  const auto device = radio->addPeripheral("Lamp");
  const auto central = makeCentral();
  scan(*central);
  device->simulateNamelessAdvertisement();
  run();
  device->simulateNamelessAdvertisement();
  run();
  const auto seen = events(EventKind::sighting);
  ASSERT_EQ(seen.size(), 3U);
  EXPECT_EQ(seen[0].name, std::nullopt);
  EXPECT_EQ(seen[1].name, "Lamp");
  EXPECT_EQ(seen[2].name, "Lamp");
  EXPECT_EQ(seen[2].advertisement.localName, std::nullopt);
}

TEST_F(AirTest, ANameOnceHeardStaysKnown) {
  const auto device = radio->addPeripheral("Lamp");
  const auto central = makeCentral();
  EXPECT_EQ(device->peripheral()->name(), std::nullopt) << "nobody has heard it yet";
  scan(*central);
  run();
  device->simulateName(std::nullopt);
  run();
  EXPECT_EQ(device->peripheral()->name(), "Lamp");
  EXPECT_EQ(count(EventKind::sighting), 1U);
}

TEST_F(AirTest, ALinkedPeripheralDoesNotAdvertiseAndDoesAgainAfterwards) {
  const auto device = radio->addPeripheral("Lamp");
  const auto central = makeCentral();
  connect(*central, device);
  run();
  scan(*central);
  run();
  EXPECT_EQ(count(EventKind::sighting), 0U);
  device->simulateLinkLoss();
  run();
  EXPECT_EQ(count(EventKind::sighting), 1U);
}

TEST_F(AirTest, ANameHeardDuringALinkCountsOnlyAfterIt) {
  const auto device = radio->addPeripheral("Lamp");
  const auto central = makeCentral();
  scan(*central);
  run();
  connect(*central, device);
  run();
  device->simulateName("Torch");
  device->simulateAdvertisement();
  run();
  EXPECT_EQ(device->peripheral()->name(), "Lamp");
  central->cancelPeripheralConnection(device->peripheral());
  run();
  EXPECT_EQ(events(EventKind::disconnected).at(0).name, "Lamp");
  EXPECT_EQ(device->peripheral()->name(), "Torch");
}

TEST_F(AirTest, AScanForAServiceFindsWhoAdvertisesIt) {
  const auto standard = radio->addReader("KVR-1", ReaderFamily::standard);
  const auto kvr = radio->addReader("KVR-Q62T", ReaderFamily::kvrQ62T);
  radio->addPeripheral("Lamp");
  const auto central = makeCentral();
  central->scanForPeripheralsWithServices_options({{CBUUID(0xFFF0), CBUUID(0x1234)}}, std::nullopt);
  run();
  ASSERT_EQ(count(EventKind::sighting), 1U);
  const Event seen = events(EventKind::sighting)[0];
  EXPECT_EQ(seen.peripheral, kvr->peripheral());
  EXPECT_EQ(seen.advertisement.serviceUUIDs, std::vector<CBUUID>{CBUUID(0xFFF0)});
  EXPECT_EQ(seen.advertisement.localName, "KVR-Q62T");
}

TEST_F(AirTest, EveryDeviceHasAnIdentifierOfItsOwn) {
  const auto first = radio->addPeripheral("Lamp");
  const auto second = radio->addPeripheral("Lamp");
  EXPECT_EQ(first->identifier(), "C0:00:00:00:00:01");
  EXPECT_EQ(second->identifier(), "C0:00:00:00:00:02");
  EXPECT_EQ(first->peripheral()->identifier(), first->identifier());
  EXPECT_NE(first->peripheral(), second->peripheral());
}

TEST_F(AirTest, PeripheralsOfAnotherRadioAreIgnored) {
  SimulatedRadio other(loop, {});
  const auto device = other.addPeripheral("Lamp");
  const auto central = makeCentral();
  connect(*central, device);
  run();
  EXPECT_FALSE(device->connected());
  EXPECT_EQ(recorder->count(), 0U);
}

TEST_F(AirTest, AHandleThatOutlivesItsRadioDoesNothing) {
  const auto device = radio->addPeripheral("Lamp");
  radio.reset();
  device->simulateVanishing();
  device->simulateAppearing();
  device->simulateName("Torch");
  device->simulateAdvertisement();
  device->simulateNamelessAdvertisement();
  device->simulateLinkLoss();
  device->simulateConnectionNeverCompleting(true);
  device->simulateConnectionNeverCompleting(false);
  EXPECT_FALSE(device->simulateNotification(CBUUID(0x2A19), NSData{1}));
  EXPECT_FALSE(device->connected());
  EXPECT_EQ(device->identifier(), "C0:00:00:00:00:01");
  run();
}

TEST(RadioOptions, TheStateToBeginWithIsReportedFirst) {
  const auto loop = std::make_shared<MainRunLoop>(std::make_shared<VirtualClock>());
  SimulatedRadio radio(loop, {.state = CBManagerState::unauthorized});
  const auto recorder = std::make_shared<EventRecorder>();
  const auto central = radio.initWithDelegate_queue(recorder, nullptr);
  loop->run();
  ASSERT_EQ(recorder->count(), 1U);
  EXPECT_EQ(recorder->events(EventKind::state)[0].state, CBManagerState::unauthorized);
}

/// Every span is chosen, and one range is the wrong way round.
class ChosenTimes : public LinkedReaderTest {
 protected:
  static Options chosen() {
    Options options;
    options.latency = {30ms, 30ms};
    options.connectionDelay = {700ms, 100ms};
    options.supervisionTimeout = 4s;
    options.signalStrength = {-42, -42};
    return options;
  }
  ChosenTimes() : LinkedReaderTest(chosen()) {}
};

TEST_F(ChosenTimes, AnAnswerTakesTheLatencyOfBothDirections) {
  const Time begin = loop->now();
  peripheral->discoverServices(std::nullopt);
  run();
  ASSERT_EQ(count(EventKind::services), 1U);
  EXPECT_EQ(loop->now() - begin, 60ms);
}

TEST_F(ChosenTimes, ARangeTheWrongWayRoundCountsAsItsMinimum) {
  reader->simulateLinkLoss();
  run();
  const Time begin = loop->now();
  link();
  EXPECT_EQ(loop->now() - begin, 700ms);
}

TEST_F(ChosenTimes, TheSupervisionTimeoutAndTheSignalStrengthAreTheChosenOnes) {
  const Time begin = loop->now();
  reader->simulateVanishing();
  run();
  EXPECT_EQ(loop->now() - begin, 4s);
  reader->simulateAppearing();
  scan(*central);
  run();
  ASSERT_EQ(count(EventKind::sighting), 1U);
  EXPECT_EQ(events(EventKind::sighting)[0].rssi, -42);
}

}  // namespace
}  // namespace kestrin::simulated
