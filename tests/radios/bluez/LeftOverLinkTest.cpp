// Links that the daemon shows and that this process has not made.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "radios/bluez/BluezRadioTest.h"

namespace kestrin::bluez::test {
namespace {

using sdbus::Variant;

/// A reader that the daemon shows as linked, before its services are known.
class BluezJoin : public BluezRadioTest {
 protected:
  void SetUp() override {
    ASSERT_NO_FATAL_FAILURE(findReader());
    daemon->changeDevice({{"Connected", Variant(true)}});
    settle();
  }
  void ask() {
    central->connectPeripheral_options(peripheral, std::nullopt);
    settle();
  }
};

TEST_F(BluezJoin, ALinkThatAKilledDaemonLeftIsWaitedOut) {
  ask();
  EXPECT_EQ(daemon->count("Connect"), 0U) << "the daemon would say that it is connected";
  EXPECT_EQ(count(EventKind::connected), 0U);
  daemon->dropLink();
  ASSERT_TRUE(waitForCount(EventKind::connected, 1));
  settle();
  EXPECT_EQ(daemon->count("Connect"), 1U);
  EXPECT_EQ(daemon->count("Disconnect"), 0U);
  EXPECT_EQ(count(EventKind::disconnected), 0U);
}

TEST_F(BluezJoin, ALinkThatAnotherProgramBringsUpIsShared) {
  ask();
  EXPECT_EQ(count(EventKind::connected), 0U);
  resolveServices();
  ASSERT_TRUE(waitForCount(EventKind::connected, 1));
  ASSERT_NO_FATAL_FAILURE(discoverCharacteristics());
  EXPECT_EQ(daemon->count("Disconnect"), 0U);
}

TEST_F(BluezJoin, ALinkWhoseServicesAreKnownIsSharedAtOnce) {
  resolveServices();
  settle();
  ask();
  ASSERT_TRUE(waitForCount(EventKind::connected, 1));
  ASSERT_NO_FATAL_FAILURE(discoverCharacteristics());
  EXPECT_EQ(daemon->count("Disconnect"), 0U);
}

TEST_F(BluezJoin, ALinkThatComesToNothingIsEndedAndMadeAnew) {
  ask();
  ASSERT_NO_FATAL_FAILURE(pass(10s - 1ms));
  EXPECT_EQ(daemon->count("Disconnect"), 0U);
  ASSERT_NO_FATAL_FAILURE(pass(1ms));
  EXPECT_EQ(daemon->count("Disconnect"), 1U);
  ASSERT_TRUE(waitForCount(EventKind::connected, 1));
  EXPECT_EQ(daemon->count("Connect"), 1U);
  EXPECT_EQ(count(EventKind::disconnected), 0U);
}

TEST_F(BluezJoin, ADaemonThatDoesNotEndTheLinkIsTakenAtItsWord) {
  daemon->next("Disconnect", StandInDaemon::fails("org.bluez.Error.Failed"));
  ask();
  ASSERT_NO_FATAL_FAILURE(pass(10s));
  ASSERT_TRUE(waitForCount(EventKind::connected, 1));
  EXPECT_EQ(daemon->count("Connect"), 1U);
}

TEST_F(BluezJoin, CancellingGivesOneReportAndLeavesTheLinkToItsOwner) {
  ask();
  central->cancelPeripheralConnection(peripheral);
  ASSERT_TRUE(waitForCount(EventKind::disconnected, 1));
  ASSERT_NO_FATAL_FAILURE(pass(40s));
  EXPECT_EQ(count(EventKind::disconnected), 1U);
  EXPECT_EQ(daemon->count("Disconnect"), 0U);
}

TEST_F(BluezJoin, AnAdapterThatIsSwitchedOffMeanwhileIsWaitedFor) {
  ask();
  daemon->changeAdapter({{"Powered", Variant(false)}});
  ASSERT_NO_FATAL_FAILURE(pass(10s));
  EXPECT_EQ(daemon->count("Disconnect"), 0U);
  daemon->dropLink();
  daemon->changeAdapter({{"Powered", Variant(true)}});
  EXPECT_TRUE(waitForCount(EventKind::connected, 1));
}

TEST_F(BluezJoin, ADeviceThatGoesMeanwhileIsSearchedFor) {
  ask();
  daemon->removeReader();
  ASSERT_TRUE(waitFor([&] { return daemon->count("StartDiscovery") == 2; }));
  daemon->showReader();
  EXPECT_TRUE(waitForCount(EventKind::connected, 1));
}

TEST_F(BluezRadioTest, ALateLinkOfACallThatWasGivenUpIsEndedWhenItIsCancelled) {
  ASSERT_NO_FATAL_FAILURE(findReader());
  daemon->next("Connect", StandInDaemon::silence());
  central->connectPeripheral_options(peripheral, std::nullopt);
  ASSERT_NO_FATAL_FAILURE(pass(60s));
  daemon->changeDevice({{"Connected", Variant(true)}});
  settle();
  central->cancelPeripheralConnection(peripheral);
  EXPECT_TRUE(waitFor([&] { return daemon->count("Disconnect") == 1; }));
}

const Properties kServiceProperties{
    {"UUID", Variant(std::string("ba821000-3b5b-4654-85fe-e998b123adea"))}};

/// A daemon with a linked reader, as a killed program leaves it.
class BluezLeftOver : public BluezRadioTest {
 protected:
  void startLinked(const Properties& device, const Properties& characteristic,
                   bool withService = true) {
    startDaemon([&](BusService& service) {
      service.putQuietly(kAdapterPath, {{kAdapterInterface, {{"Powered", Variant(true)}}}});
      Properties all{{"Address", Variant(std::string("C0:DE:00:00:00:01"))},
                     {"Name", Variant(std::string("KVR-0001"))},
                     {"Connected", Variant(true)},
                     {"ServicesResolved", Variant(true)}};
      for (const auto& [name, value] : device) all[name] = value;
      service.putQuietly(kReaderPath, {{kDeviceInterface, all}});
      if (withService) service.putQuietly(kServicePath, {{kServiceInterface, kServiceProperties}});
      Properties attribute{{"UUID", Variant(std::string("ba821002-3b5b-4654-85fe-e998b123adea"))}};
      for (const auto& [name, value] : characteristic) attribute[name] = value;
      service.putQuietly(kRxPath, {{kCharacteristicInterface, attribute}});
    });
    startRadio();
    central = makeCentral();
    ASSERT_TRUE(waitForCount(EventKind::state, 1));
    scan();
    settle();
  }
  void scan() { central->scanForPeripheralsWithServices_options(std::nullopt, std::nullopt); }
};

TEST_F(BluezLeftOver, IsReportedOnceByAScanAndTakenOver) {
  ASSERT_NO_FATAL_FAILURE(startLinked({}, {}));
  ASSERT_TRUE(waitForCount(EventKind::sighting, 1));
  settle();
  const auto sightings = recorder->events(EventKind::sighting);
  ASSERT_EQ(sightings.size(), 1U);
  EXPECT_EQ(sightings[0].name, "KVR-0001");
  EXPECT_EQ(sightings[0].rssi, 127) << "not available";
  peripheral = sightings[0].peripheral;
  peripheral->setDelegate(recorder);
  central->connectPeripheral_options(peripheral, std::nullopt);
  ASSERT_TRUE(waitForCount(EventKind::connected, 1));
  EXPECT_EQ(daemon->count("Disconnect"), 0U);
}

TEST_F(BluezLeftOver, IsNotReportedAsLongAsAProgramListensBySignal) {
  ASSERT_NO_FATAL_FAILURE(startLinked({}, {{"Notifying", Variant(true)}}));
  EXPECT_EQ(count(EventKind::sighting), 0U);
  daemon->run([](BusService& service) {
    service.change(kRxPath, kCharacteristicInterface, {{"Notifying", Variant(false)}});
  });
  EXPECT_TRUE(waitForCount(EventKind::sighting, 1));
}

TEST_F(BluezLeftOver, IsNotReportedAsLongAsAProgramListensByDescriptor) {
  ASSERT_NO_FATAL_FAILURE(startLinked({}, {{"NotifyAcquired", Variant(true)}}));
  EXPECT_EQ(count(EventKind::sighting), 0U);
  daemon->run([](BusService& service) {
    service.change(kRxPath, kCharacteristicInterface, {{"NotifyAcquired", Variant(false)}});
  });
  EXPECT_TRUE(waitForCount(EventKind::sighting, 1));
}

TEST_F(BluezLeftOver, IsNotReportedBeforeItsServicesAreKnown) {
  ASSERT_NO_FATAL_FAILURE(startLinked({{"ServicesResolved", Variant(false)}}, {}));
  EXPECT_EQ(count(EventKind::sighting), 0U) << "it may be a dead one";
  daemon->changeDevice({{"ServicesResolved", Variant(true)}});
  EXPECT_TRUE(waitForCount(EventKind::sighting, 1));
}

TEST_F(BluezLeftOver, IsNotReportedBeforeItHasAServiceSinceClassicLinksHaveNone) {
  ASSERT_NO_FATAL_FAILURE(startLinked({}, {}, false));
  EXPECT_EQ(count(EventKind::sighting), 0U);
  daemon->run([](BusService& service) {
    service.put(kServicePath, {{kServiceInterface, kServiceProperties}});
  });
  EXPECT_TRUE(waitForCount(EventKind::sighting, 1));
}

TEST_F(BluezLeftOver, IsNeverALinkOfThisProcess) {
  ASSERT_NO_FATAL_FAILURE(linkUp());
  daemon->changeDevice({}, {"RSSI"});
  recorder->clear();
  scan();
  settle();
  daemon->next("Disconnect", StandInDaemon::silence());
  central->cancelPeripheralConnection(peripheral);
  settle();
  scan();
  settle();
  EXPECT_EQ(count(EventKind::sighting), 0U) << "in use, then being ended";
}

}  // namespace
}  // namespace kestrin::bluez::test
