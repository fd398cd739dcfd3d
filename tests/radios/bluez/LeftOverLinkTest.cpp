// Links that the daemon shows and that this process has not made.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>

#include "LinkNames.h"
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
      if (prepareMore) prepareMore(service);
    });
    startRadio();
    central = makeCentral();
    ASSERT_TRUE(waitForCount(EventKind::state, 1));
    scan();
    settle();
  }
  void scan() { central->scanForPeripheralsWithServices_options(std::nullopt, std::nullopt); }
  [[nodiscard]] bool hasSighting(const std::string& name) const {
    return std::ranges::any_of(recorder->events(EventKind::sighting),
                               [&](const Event& each) { return each.name == name; });
  }
  std::function<void(BusService&)> prepareMore;
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

TEST_F(BluezLeftOver, HasItsNameAlsoWhereTheDaemonStillKnowsItsSignal) {
  ASSERT_NO_FATAL_FAILURE(startLinked({{"RSSI", Variant(std::int16_t{-50})}}, {}));
  ASSERT_TRUE(waitFor([&] { return hasSighting("KVR-0001"); }));
}

/// With a file for names, as a process that was killed has left it.
class BluezLinkNames : public BluezLeftOver {
 protected:
  BluezLinkNames()
      : folder_(testing::TempDir() + "kestrin-link-names-" + std::to_string(::getpid())) {
    std::filesystem::create_directories(folder_);
    linkNames = folder_ / "links";
  }
  void TearDown() override { std::filesystem::remove_all(folder_); }
  void leave(const std::string& lines) const { std::ofstream(*linkNames) << lines; }
  [[nodiscard]] std::string kept() const {
    std::ostringstream text;
    text << std::ifstream(*linkNames).rdbuf();
    return text.str();
  }

 private:
  const std::filesystem::path folder_;
};

const std::string kReaderLine = std::string(kReaderPath) + " 4b56522d30303031\n";  // KVR-0001.

TEST_F(BluezLinkNames, ALeftOverLinkIsReportedUnderTheNameThatWasLeft) {
  leave(kReaderLine);
  ASSERT_NO_FATAL_FAILURE(startLinked({{"Name", Variant(std::string("Virtual"))}}, {}));
  ASSERT_TRUE(waitForCount(EventKind::sighting, 1));
  settle();
  EXPECT_TRUE(hasSighting("KVR-0001"));
  EXPECT_EQ(count(EventKind::sighting), 1U);
}

TEST_F(BluezLinkNames, ALeftOverLinkOfWhichNothingWasLeftHasItsOwnName) {
  leave("/org/bluez/hci0/dev_OF_ANOTHER 4b56522d30303031\n");
  ASSERT_NO_FATAL_FAILURE(startLinked({{"Name", Variant(std::string("Virtual"))}}, {}));
  ASSERT_TRUE(waitForCount(EventKind::sighting, 1));
  EXPECT_TRUE(hasSighting("Virtual"));
}

TEST_F(BluezLinkNames, WhatWasLeftOfAReaderThatIsNotLinkedSaysNothing) {
  leave(kReaderLine);
  ASSERT_NO_FATAL_FAILURE(startLinked({{"Name", Variant(std::string("Renamed"))},
                                       {"Connected", Variant(false)},
                                       {"RSSI", Variant(std::int16_t{-50})}},
                                      {}));
  ASSERT_TRUE(waitForCount(EventKind::sighting, 1));
  EXPECT_TRUE(hasSighting("Renamed"));
}

TEST_F(BluezLinkNames, TheNameOfALinkedReaderIsKeptForAsLongAsTheLinkLasts) {
  ASSERT_NO_FATAL_FAILURE(linkUp());
  EXPECT_EQ(kept(), kReaderLine);
  daemon->changeDevice({{"Name", Variant(std::string("Virtual"))}});
  settle();
  EXPECT_EQ(kept(), kReaderLine);
  daemon->dropLink();
  ASSERT_TRUE(waitForCount(EventKind::disconnected, 1));
  settle();
  EXPECT_FALSE(std::ifstream(*linkNames).is_open());
}

TEST_F(BluezLinkNames, WhatIsNotTakenOverYetIsKept) {
  const std::string other = "/org/bluez/hci0/dev_C0_DE_00_00_00_02 4b56522d30303032\n";
  leave(kReaderLine + other + "/org/bluez/hci0/dev_C0_DE_00_00_00_03 4b56522d30303033\n");
  prepareMore = [](BusService& service) {
    service.putQuietly(
        "/org/bluez/hci0/dev_C0_DE_00_00_00_02",
        {{kDeviceInterface,
          {{"Address", Variant(std::string("C0:DE:00:00:00:02"))}, {"Connected", Variant(true)}}}});
  };
  ASSERT_NO_FATAL_FAILURE(startLinked({{"Name", Variant(std::string("Virtual"))}}, {}));
  ASSERT_TRUE(waitForCount(EventKind::sighting, 1));
  peripheral = recorder->events(EventKind::sighting)[0].peripheral;
  central->connectPeripheral_options(peripheral, std::nullopt);
  ASSERT_TRUE(waitForCount(EventKind::connected, 1));
  EXPECT_EQ(kept(), kReaderLine + other) << "the third has no link any more";
}

TEST_F(BluezLinkNames, LinesThatSayNothingArePassedOver) {
  leave("\n" + std::string(kReaderPath) + "\n" + kReaderPath + " 4\n" + kReaderPath + " 4g\n" +
        kReaderPath + " " + std::string(498, '6') + "\n" + kReaderLine + "\xff\n");
  LinkNames names;
  names.use(*linkNames);
  names.use("/proc/another");
  EXPECT_EQ(names.left(), (LinkNames::Names{{kReaderPath, "KVR-0001"}}));
}

TEST_F(BluezLinkNames, OfMoreThanAnyControllerLinksTheFirstAreTaken) {
  std::string lines;
  for (int i = 0; i < 300; ++i) lines += "/device" + std::to_string(i) + " 41\n";
  leave(lines);
  LinkNames names;
  names.use(*linkNames);
  EXPECT_EQ(names.left().size(), 256U);
}

TEST_F(BluezLinkNames, ANameOfAnyBytesComesBack) {
  std::string every;
  for (int byte = 1; byte < 249; ++byte) every += static_cast<char>(byte);
  LinkNames names;
  names.use(*linkNames);
  names.keep({{kReaderPath, every}});
  LinkNames next;
  next.use(*linkNames);
  EXPECT_EQ(next.left(), (LinkNames::Names{{kReaderPath, every}}));
}

TEST_F(BluezLinkNames, AFileThatCannotBeWrittenCostsOnlyTheNames) {
  linkNames = "/proc/no-such-folder/links";
  ASSERT_NO_FATAL_FAILURE(linkUp());
}

}  // namespace
}  // namespace kestrin::bluez::test
