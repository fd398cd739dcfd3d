// The radio's state and its sightings.
#include "radios/contract/RadioContract.h"

namespace kestrin::test {
namespace {

TEST_P(RadioContract, StateIsUnknownUntilItsFirstReport) {
  const auto central = makeCentral();
  EXPECT_EQ(central->state(), CBManagerState::unknown);
  EXPECT_EQ(recorder().count(), 0U);
  ASSERT_TRUE(waitFor(EventKind::state));
  const Event first = events(EventKind::state).front();
  EXPECT_EQ(first.central, central.get());
  EXPECT_NE(first.state, CBManagerState::unknown);
  EXPECT_EQ(first.state, central->state());
}

TEST_P(RadioContract, StateIsReportedOnceAndThenWithEachChange) {
  const auto central = makePoweredCentral();
  bed().settle();
  EXPECT_EQ(count(EventKind::state), 0U);
  bed().switchOff();
  ASSERT_TRUE(waitFor(EventKind::state));
  bed().switchOn();
  ASSERT_TRUE(waitFor(EventKind::state, 2));
  bed().settle();
  const auto reports = events(EventKind::state);
  ASSERT_EQ(reports.size(), 2U);
  EXPECT_EQ(reports[0].state, CBManagerState::poweredOff);
  EXPECT_EQ(reports[1].state, CBManagerState::poweredOn);
}

TEST_P(RadioContract, ACentralManagerMadeWhileSwitchedOffReportsThat) {
  bed().switchOff();
  bed().settle();
  const auto central = makeCentral();
  ASSERT_TRUE(waitFor(EventKind::state));
  EXPECT_EQ(events(EventKind::state).front().state, CBManagerState::poweredOff);
}

TEST_P(RadioContract, EveryCentralManagerHearsOfAChange) {
  const auto first = makePoweredCentral();
  const auto second = makePoweredCentral();
  bed().switchOff();
  ASSERT_TRUE(waitFor(EventKind::state, 2));
  const auto reports = events(EventKind::state);
  EXPECT_NE(reports[0].central, reports[1].central);
}

TEST_P(RadioContract, WhyItIsNotPoweredOnIsAQuery) {
  const auto radio = bed().radio();
  const auto central = makePoweredCentral();
  EXPECT_EQ(radio->stateReason(), "");
  bed().switchOff();
  ASSERT_TRUE(waitFor(EventKind::state));
  EXPECT_NE(radio->stateReason(), "");
  EXPECT_EQ(radio->stateReason().find('\n'), std::string::npos);
}

TEST_P(RadioContract, AScanBeforeTheFirstStateReportIsDropped) {
  const auto central = makeCentral();
  scan(*central);
  bed().settle();
  EXPECT_EQ(central->state(), CBManagerState::poweredOn);
  EXPECT_EQ(count(EventKind::sighting), 0U);
}

TEST_P(RadioContract, AScanWhileSwitchedOffIsDroppedAndNotRemembered) {
  const auto central = makePoweredCentral();
  bed().switchOff();
  ASSERT_TRUE(waitFor(EventKind::state));
  scan(*central);
  bed().settle();
  bed().switchOn();
  ASSERT_TRUE(waitFor(EventKind::state, 2));
  bed().settle();
  EXPECT_EQ(count(EventKind::sighting), 0U);
}

TEST_P(RadioContract, SwitchingOffEndsAScan) {
  const auto central = makePoweredCentral();
  scan(*central);
  ASSERT_TRUE(waitFor(EventKind::sighting));
  bed().switchOff();
  ASSERT_TRUE(waitFor(EventKind::state));
  bed().switchOn();
  ASSERT_TRUE(waitFor(EventKind::state, 2));
  recorder().clear();
  bed().rename("KVR-2");
  bed().settle();
  EXPECT_EQ(count(EventKind::sighting), 0U);
}

TEST_P(RadioContract, AScanFromInsideThePoweredOnReportIsHonoured) {
  bed().switchOff();
  bed().settle();
  const auto central = makeCentral();
  recorder().onEvent = [&](const Event& event) {
    if (event.kind != EventKind::state || event.state != CBManagerState::poweredOn) return;
    scan(*central);
  };
  ASSERT_TRUE(waitFor(EventKind::state));
  bed().switchOn();
  EXPECT_TRUE(waitFor(EventKind::sighting));
}

TEST_P(RadioContract, APeripheralIsReportedOncePerScanRequest) {
  const auto central = makePoweredCentral();
  scan(*central);
  bed().settle();
  bed().settle();
  const auto seen = sightings();
  ASSERT_EQ(seen.size(), 1U);
  EXPECT_EQ(seen[0].central, central.get());
  EXPECT_EQ(seen[0].name, bed().readerName());
  EXPECT_LT(seen[0].rssi, 0);
  EXPECT_NE(seen[0].peripheral->identifier(), "");
}

TEST_P(RadioContract, ASecondScanRequestBeginsTheCountAnew) {
  const auto central = makePoweredCentral();
  scan(*central);
  bed().settle();
  ASSERT_EQ(sightings().size(), 1U);
  scan(*central);
  bed().settle();
  EXPECT_EQ(sightings().size(), 2U);
}

TEST_P(RadioContract, APeripheralIsReportedAgainWhenItsNameChanges) {
  const auto central = makePoweredCentral();
  scan(*central);
  bed().settle();
  bed().rename("KVR-2");
  ASSERT_TRUE(bed().runUntil([&] { return sightings().size() >= 2; }));
  bed().rename("KVR-2");
  bed().settle();
  const auto seen = sightings();
  ASSERT_EQ(seen.size(), 2U);
  EXPECT_EQ(seen[1].peripheral, seen[0].peripheral);
  EXPECT_EQ(seen[1].name, "KVR-2");
}

TEST_P(RadioContract, NothingIsReportedAfterStopScan) {
  const auto central = makePoweredCentral();
  central->stopScan();
  scan(*central);
  central->stopScan();
  central->stopScan();
  bed().rename("KVR-2");
  bed().settle();
  EXPECT_EQ(recorder().count(), 0U);
}

TEST_P(RadioContract, StopScanFromInsideASightingIsTheLastOne) {
  const auto central = makePoweredCentral();
  recorder().onEvent = [&](const Event& event) {
    if (event.kind == EventKind::sighting) central->stopScan();
  };
  scan(*central);
  ASSERT_TRUE(waitFor(EventKind::sighting));
  bed().settle();
  EXPECT_EQ(count(EventKind::sighting), 1U);
}

TEST_P(RadioContract, AScanForAServiceThatNobodyAdvertisesFindsNobody) {
  const auto central = makePoweredCentral();
  scan(*central, {{CBUUID(0x1819)}});
  bed().settle();
  EXPECT_EQ(count(EventKind::sighting), 0U);
}

TEST_P(RadioContract, OneObjectStandsForADeviceOverAllScansAndCentralManagers) {
  const auto first = makePoweredCentral();
  const auto second = makePoweredCentral();
  const auto reader = findReader(*first);
  ASSERT_NE(reader, nullptr);
  EXPECT_EQ(findReader(*first), reader);
  EXPECT_EQ(findReader(*second), reader);
}

TEST_P(RadioContract, TwoCentralManagersScanIndependently) {
  const auto first = makePoweredCentral();
  const auto second = makePoweredCentral();
  scan(*first);
  scan(*second);
  bed().settle();
  first->stopScan();
  bed().rename("KVR-2");
  bed().settle();
  std::size_t ofFirst = 0;
  std::size_t ofSecond = 0;
  for (const auto& seen : sightings()) ++(seen.central == first.get() ? ofFirst : ofSecond);
  EXPECT_EQ(ofFirst, 1U);
  EXPECT_EQ(ofSecond, 2U);
}

}  // namespace
}  // namespace kestrin::test
