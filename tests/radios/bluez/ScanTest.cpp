#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "radios/bluez/BluezRadioTest.h"

namespace kestrin::bluez::test {
namespace {

using sdbus::Variant;
using Calls = std::vector<std::string>;

class BluezScan : public BluezRadioTest {
 protected:
  void scan() { central->scanForPeripheralsWithServices_options(std::nullopt, std::nullopt); }
  bool discoveryStarts(std::size_t times = 1) {
    return waitFor([&] { return daemon->count("StartDiscovery") >= times; });
  }
};

TEST_F(BluezScan, SetsTheFilterBeforeTheDiscoveryBegins) {
  ASSERT_NO_FATAL_FAILURE(start());
  scan();
  ASSERT_TRUE(discoveryStarts());
  EXPECT_EQ(daemon->calls(), Calls({"SetDiscoveryFilter", "StartDiscovery"}));
  EXPECT_EQ(daemon->options(), "Transport=le ");
  central->stopScan();
  ASSERT_TRUE(waitFor([&] { return daemon->count("StopDiscovery") == 1; }));
}

TEST_F(BluezScan, TwoScansShareOneDiscovery) {
  ASSERT_NO_FATAL_FAILURE(start());
  const auto second = makeCentral();
  ASSERT_TRUE(waitForCount(EventKind::state, 2));
  scan();
  second->scanForPeripheralsWithServices_options(std::nullopt, std::nullopt);
  daemon->showReader();
  ASSERT_TRUE(waitForCount(EventKind::sighting, 2));
  central->stopScan();
  settle();
  EXPECT_EQ(daemon->count("StartDiscovery"), 1U);
  EXPECT_EQ(daemon->count("StopDiscovery"), 0U) << "the other one still scans";
  const auto sightings = recorder->events(EventKind::sighting);
  EXPECT_EQ(sightings[0].peripheral, sightings[1].peripheral) << "one object per device";
}

TEST_F(BluezScan, IsNotHonouredUnlessPoweredOn) {
  ASSERT_NO_FATAL_FAILURE(start());
  daemon->changeAdapter({{"Powered", Variant(false)}});
  ASSERT_TRUE(waitForCount(EventKind::state, 2));
  scan();
  settle();
  daemon->changeAdapter({{"Powered", Variant(true)}});
  ASSERT_TRUE(waitForCount(EventKind::state, 3));
  settle();
  EXPECT_EQ(daemon->count("StartDiscovery"), 0U);
  scan();
  EXPECT_TRUE(discoveryStarts());
}

TEST_F(BluezScan, ADeviceKnownFromBeforeIsNoSightingUntilItIsSeen) {
  startDaemon([](BusService& service) {
    service.putQuietly(kAdapterPath, {{kAdapterInterface, {{"Powered", Variant(true)}}}});
    service.putQuietly(kReaderPath,
                       {{kDeviceInterface, {{"Name", Variant(std::string("KVR-0001"))}}}});
  });
  startRadio();
  central = makeCentral();
  ASSERT_TRUE(waitForCount(EventKind::state, 1));
  scan();
  settle();
  daemon->changeDevice({{"Name", Variant(std::string("KVR-0002"))}});
  settle();
  EXPECT_EQ(count(EventKind::sighting), 0U);
  daemon->changeDevice({{"RSSI", Variant(std::int16_t{-70})}});
  ASSERT_TRUE(waitForCount(EventKind::sighting, 1));
  const auto sighting = recorder->events(EventKind::sighting)[0];
  EXPECT_EQ(sighting.name, "KVR-0002");
  EXPECT_EQ(sighting.rssi, -70);
}

TEST_F(BluezScan, ADeviceThatAnotherProgramsDiscoverySeesCountsAsSeen) {
  ASSERT_NO_FATAL_FAILURE(start());
  daemon->showReader();
  settle();
  scan();
  EXPECT_TRUE(waitForCount(EventKind::sighting, 1));
}

TEST_F(BluezScan, AnAbsentNameIsAbsentAndALateOneIsReported) {
  ASSERT_NO_FATAL_FAILURE(start());
  scan();
  daemon->run([](BusService& service) {
    service.put(kReaderPath, {{kDeviceInterface,
                               {{"Alias", Variant(std::string("C0-DE-00-00-00-01"))},
                                {"RSSI", Variant(std::int16_t{-50})}}}});
  });
  ASSERT_TRUE(waitForCount(EventKind::sighting, 1));
  daemon->changeDevice({{"Name", Variant(std::string("KVR-0001"))}});
  ASSERT_TRUE(waitForCount(EventKind::sighting, 2));
  const auto sightings = recorder->events(EventKind::sighting);
  EXPECT_EQ(sightings[0].name, std::nullopt);
  EXPECT_EQ(sightings[1].name, "KVR-0001");
  EXPECT_EQ(sightings[0].peripheral, sightings[1].peripheral);
}

TEST_F(BluezScan, ReportsADeviceOncePerScanRequest) {
  ASSERT_NO_FATAL_FAILURE(start());
  scan();
  daemon->showReader();
  ASSERT_TRUE(waitForCount(EventKind::sighting, 1));
  for (int rssi = -60; rssi < -50; ++rssi) {
    daemon->changeDevice({{"RSSI", Variant(static_cast<std::int16_t>(rssi))}});
  }
  settle();
  EXPECT_EQ(count(EventKind::sighting), 1U);
  scan();
  EXPECT_TRUE(waitForCount(EventKind::sighting, 2));
}

TEST_F(BluezScan, ADiscoveryThatTheDaemonRefusesForNowIsTriedAgainWithAGrowingPause) {
  ASSERT_NO_FATAL_FAILURE(start());
  daemon->always("StartDiscovery", StandInDaemon::fails("org.bluez.Error.InProgress"));
  scan();
  ASSERT_TRUE(discoveryStarts(1));
  settle();
  ASSERT_NO_FATAL_FAILURE(pass(499ms));
  EXPECT_EQ(daemon->count("StartDiscovery"), 1U);
  ASSERT_NO_FATAL_FAILURE(pass(1ms));
  EXPECT_EQ(daemon->count("StartDiscovery"), 2U);
  ASSERT_NO_FATAL_FAILURE(pass(999ms));
  EXPECT_EQ(daemon->count("StartDiscovery"), 2U);
  daemon->normally("StartDiscovery");
  ASSERT_NO_FATAL_FAILURE(pass(1ms));
  EXPECT_EQ(daemon->count("StartDiscovery"), 3U);
  daemon->showReader();
  EXPECT_TRUE(waitForCount(EventKind::sighting, 1));
}

TEST_F(BluezScan, WorksAgainAfterADaemonThatWasKilledWhileScanning) {
  ASSERT_NO_FATAL_FAILURE(start());
  scan();
  ASSERT_TRUE(discoveryStarts());
  killDaemon();
  ASSERT_TRUE(waitForCount(EventKind::state, 2));
  startDaemon();
  ASSERT_TRUE(waitForCount(EventKind::state, 3));
  scan();
  ASSERT_TRUE(discoveryStarts());
  daemon->showReader();
  EXPECT_TRUE(waitForCount(EventKind::sighting, 1));
}

TEST_F(BluezScan, WorksAgainAfterTheAdapterWasOffAndNobodySaidThatDiscoveryHadEnded) {
  ASSERT_NO_FATAL_FAILURE(start());
  scan();
  ASSERT_TRUE(discoveryStarts());
  daemon->changeAdapter({{"Powered", Variant(false)}});
  ASSERT_TRUE(waitForCount(EventKind::state, 2));
  daemon->changeAdapter({{"Powered", Variant(true)}});
  ASSERT_TRUE(waitForCount(EventKind::state, 3));
  scan();
  EXPECT_TRUE(discoveryStarts(2));
}

TEST_F(BluezScan, ADroppedCentralManagerEndsItsScanAndHearsNothing) {
  ASSERT_NO_FATAL_FAILURE(start());
  scan();
  ASSERT_TRUE(discoveryStarts());
  central.reset();
  ASSERT_TRUE(waitFor([&] { return daemon->count("StopDiscovery") == 1; }));
  daemon->showReader();
  settle();
  EXPECT_EQ(count(EventKind::sighting), 0U);
}

TEST_F(BluezScan, MalformedDevicesAreSightingsWithoutWhatIsMalformed) {
  ASSERT_NO_FATAL_FAILURE(start());
  scan();
  daemon->showReader({{"Name", Variant(std::int64_t{7})}, {"UUIDs", Variant(true)}});
  ASSERT_TRUE(waitForCount(EventKind::sighting, 1));
  EXPECT_EQ(recorder->events(EventKind::sighting)[0].name, std::nullopt);
  EXPECT_EQ(recorder->events(EventKind::sighting)[0].peripheral->identifier(), "C0:DE:00:00:00:01");
}

}  // namespace
}  // namespace kestrin::bluez::test
