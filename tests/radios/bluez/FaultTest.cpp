// A daemon, a bus or an application that goes at a bad moment, and a daemon that talks nonsense.
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "radios/bluez/BluezRadioTest.h"

namespace kestrin::bluez::test {
namespace {

using sdbus::Variant;

/// How far the work with a reader has come.
enum class Moment {
  idle,
  scanning,
  searching,
  joining,
  calling,
  pausing,
  up,
  discovering,
  subscribed,
  writing,
  disconnecting
};
constexpr Moment kMoments[] = {Moment::idle,    Moment::scanning,     Moment::searching,
                               Moment::joining, Moment::calling,      Moment::pausing,
                               Moment::up,      Moment::discovering,  Moment::subscribed,
                               Moment::writing, Moment::disconnecting};

class BluezFault : public BluezRadioTest, public testing::WithParamInterface<Moment> {
 protected:
  void SetUp() override { ASSERT_NO_FATAL_FAILURE(reach(GetParam())); }

  void reach(Moment moment) {
    if (moment == Moment::up || moment == Moment::discovering || moment == Moment::disconnecting) {
      ASSERT_NO_FATAL_FAILURE(connect());
    } else if (moment == Moment::subscribed || moment == Moment::writing) {
      ASSERT_NO_FATAL_FAILURE(linkUp());
      subscribe();
    } else {
      ASSERT_NO_FATAL_FAILURE(findReader());
    }
    goOn(moment);
    settle();
  }
  void goOn(Moment moment) {
    switch (moment) {
      case Moment::scanning:
        central->scanForPeripheralsWithServices_options(std::nullopt, std::nullopt);
        break;
      case Moment::searching:
        daemon->removeReader();
        settle();
        ask();
        break;
      case Moment::joining:
        daemon->changeDevice({{"Connected", Variant(true)}});
        settle();
        ask();
        break;
      case Moment::calling:
        daemon->next("Connect", StandInDaemon::silence());
        ask();
        break;
      case Moment::pausing:
        daemon->next("Connect", StandInDaemon::fails("org.bluez.Error.Failed"));
        ask();
        break;
      case Moment::discovering:
        peripheral->discoverServices(std::nullopt);
        break;
      case Moment::writing:
        daemon->next("WriteValue", StandInDaemon::silence());
        for (std::uint8_t number = 0; number < 3; ++number) {
          peripheral->writeValue_forCharacteristic_type(NSData{number}, tx, {});
        }
        break;
      case Moment::disconnecting:
        daemon->next("Disconnect", StandInDaemon::silence());
        central->cancelPeripheralConnection(peripheral);
        break;
      case Moment::idle:
      case Moment::up:
      case Moment::subscribed:
        break;
    }
  }
  void ask() { central->connectPeripheral_options(peripheral, std::nullopt); }
  [[nodiscard]] static bool linked() {
    return GetParam() == Moment::up || GetParam() == Moment::discovering ||
           GetParam() == Moment::subscribed || GetParam() == Moment::writing ||
           GetParam() == Moment::disconnecting;
  }
  [[nodiscard]] static bool attempting() {
    return GetParam() == Moment::searching || GetParam() == Moment::joining ||
           GetParam() == Moment::calling || GetParam() == Moment::pausing;
  }
  bool becomes(CBManagerState state) {
    return waitFor([&] { return central->state() == state; });
  }
  /// A pending attempt goes on by itself; then everything works once more, from a scan on.
  void expectItWorksAgain() {
    recorder->clear();
    central->scanForPeripheralsWithServices_options(std::nullopt, std::nullopt);
    ASSERT_TRUE(waitFor([&] { return daemon->count("StartDiscovery") >= 1; }));
    daemon->showReader();
    ASSERT_TRUE(waitForCount(EventKind::sighting, 1));
    EXPECT_EQ(recorder->events(EventKind::sighting)[0].peripheral, peripheral);
    if (!attempting()) ask();
    ASSERT_TRUE(waitForCount(EventKind::connected, 1));
    resolveServices();
    ASSERT_NO_FATAL_FAILURE(discoverCharacteristics());
    subscribe();
    daemon->notify(NSData{42});
    ASSERT_TRUE(waitForCount(EventKind::value, 1));
    EXPECT_EQ(values(), std::vector<NSData>({NSData{42}}));
    EXPECT_EQ(count(EventKind::connected), 1U);
    EXPECT_EQ(count(EventKind::disconnected), 0U);
  }
};

TEST_P(BluezFault, AKilledDaemonIsReportedOnceAndEverythingWorksWithTheNext) {
  killDaemon();
  ASSERT_TRUE(becomes(CBManagerState::resetting));
  settle();
  EXPECT_EQ(count(EventKind::disconnected), linked() ? 1U : 0U);
  startDaemon();
  ASSERT_TRUE(becomes(CBManagerState::poweredOn));
  expectItWorksAgain();
}

TEST_P(BluezFault, ADaemonThatStopsIsReportedOnceAndEverythingWorksWithTheNext) {
  daemon->run([](BusService& service) {
    for (const auto& path : service.pathsBelow("/org/bluez/hci0/dev_C0_DE_00_00_00_01")) {
      service.remove(path);
    }
    if (service.has(kReaderPath)) {
      service.change(kReaderPath, kDeviceInterface,
                     {{"ServicesResolved", Variant(false)}, {"Connected", Variant(false)}});
      service.remove(kReaderPath);
    }
    service.change(kAdapterPath, kAdapterInterface, {{"Powered", Variant(false)}});
    service.remove(kAdapterPath);
    service.releaseName("org.bluez");
  });
  killDaemon();
  ASSERT_TRUE(becomes(CBManagerState::resetting));
  settle();
  EXPECT_EQ(count(EventKind::disconnected), linked() ? 1U : 0U);
  startDaemon();
  ASSERT_TRUE(becomes(CBManagerState::poweredOn));
  expectItWorksAgain();
}

TEST_P(BluezFault, ABusThatGoesIsReportedOnceAndEverythingWorksWithTheNext) {
  bus.kill();
  ASSERT_TRUE(becomes(CBManagerState::resetting));
  EXPECT_TRUE(waitFor([&] { return count(EventKind::disconnected) == (linked() ? 1U : 0U); }));
  killDaemon();
  bus.restart();
  startDaemon();
  ASSERT_NO_FATAL_FAILURE(pass(1s));
  ASSERT_TRUE(becomes(CBManagerState::poweredOn));
  expectItWorksAgain();
}

TEST_P(BluezFault, AnAdapterThatGoesOffAndOnIsReportedOnceAndEverythingWorks) {
  if (linked()) daemon->dropLink();
  daemon->changeAdapter({{"Powered", Variant(false)}});
  daemon->failHeld("Connect");
  daemon->failHeld("Disconnect");
  daemon->failHeld("WriteValue");
  ASSERT_TRUE(becomes(CBManagerState::poweredOff));
  settle();
  EXPECT_EQ(count(EventKind::disconnected), linked() ? 1U : 0U);
  daemon->removeReader();  // The daemon forgets a device that nobody uses.
  settle();
  daemon->changeAdapter({{"Powered", Variant(true)}});
  ASSERT_TRUE(becomes(CBManagerState::poweredOn));
  expectItWorksAgain();
}

TEST_P(BluezFault, ADroppedCentralManagerHearsNothingMoreAndLeavesNoLink) {
  const auto before = recorder->count();
  central.reset();
  settle();
  pass(1s);
  EXPECT_EQ(recorder->count(), before);
  if (GetParam() == Moment::searching || GetParam() == Moment::scanning) {
    EXPECT_EQ(daemon->count("StopDiscovery"), daemon->count("StartDiscovery"));
  }
  if (linked() || GetParam() == Moment::calling) {
    EXPECT_EQ(daemon->count("Disconnect"), 1U);
  }
}

TEST_P(BluezFault, TheRadiosEndLeavesNoLinkAndDoesNotWaitForTheDaemon) {
  central.reset();
  radio.reset();
  session.reset();  // The last hold: what there was to say is said.
  peripheral.reset();
  if (linked() || GetParam() == Moment::calling) {
    EXPECT_TRUE(waitFor([&] { return daemon->count("Disconnect") == 1; }));
  }
  loop->runFor(1ms);
}

TEST_P(BluezFault, TheRunLoopMayEndFirst) {
  loop.reset();
  if (daemon) daemon->changeAdapter({{"Powered", Variant(false)}});
  killDaemon();
  const auto before = recorder->count();
  session.reset();
  radio.reset();
  central.reset();
  EXPECT_EQ(recorder->count(), before);
}

TEST_P(BluezFault, ContradictoryAndMalformedMapsAreSurvived) {
  daemon->run([](BusService& service) {
    const char properties[] = "org.freedesktop.DBus.Properties";
    if (!service.has(kReaderPath)) return;
    service.change(kReaderPath, kDeviceInterface,
                   {{"Connected", Variant(std::string("yes"))},
                    {"ServicesResolved", Variant(std::int64_t{1})},
                    {"RSSI", Variant(true)},
                    {"UUIDs", Variant(std::string())}});
    for (const char* path : {kAdapterPath, kReaderPath, kServicePath, kRxPath}) {
      service.signal(path, properties, "PropertiesChanged", [](sdbus::Signal& signal) {
        signal << std::string(kDeviceInterface) << std::vector<std::string>{"Connected"};
      });
      // An interface that this object does not have.
      service.signal(path, properties, "PropertiesChanged", [](sdbus::Signal& signal) {
        signal << std::string(kCharacteristicInterface)
               << Properties{{"Value", Variant(std::string("text"))}, {"Flags", Variant(true)}}
               << std::vector<std::string>{"UUID"};
      });
    }
    // Resolved without a link, and back.
    service.change(kReaderPath, kDeviceInterface, {{"ServicesResolved", Variant(true)}});
  });
  settle();
  const auto before = count(EventKind::disconnected);
  EXPECT_EQ(before, 0U);
  killDaemon();
  ASSERT_TRUE(becomes(CBManagerState::resetting));
  startDaemon();
  ASSERT_TRUE(becomes(CBManagerState::poweredOn));
}

std::string nameOf(const testing::TestParamInfo<Moment>& info) {
  static const char* const kNames[] = {"Idle",       "Scanning", "Searching",    "Joining",
                                       "Calling",    "Pausing",  "Up",           "Discovering",
                                       "Subscribed", "Writing",  "Disconnecting"};
  return kNames[static_cast<int>(info.param)];
}

INSTANTIATE_TEST_SUITE_P(While, BluezFault, testing::ValuesIn(kMoments), nameOf);

}  // namespace
}  // namespace kestrin::bluez::test
