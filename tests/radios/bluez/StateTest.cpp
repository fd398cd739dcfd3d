#include <gtest/gtest.h>

#include <cstdint>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "RadioCore.h"
#include "radios/bluez/BluezRadioTest.h"

namespace kestrin::bluez::test {
namespace {

using State = CBManagerState;
using States = std::vector<CBManagerState>;
using sdbus::Variant;

class BluezState : public BluezRadioTest {
 protected:
  /// A central manager, and the first state that it reports.
  State firstState() {
    if (!radio) startRadio();
    central = makeCentral();
    EXPECT_TRUE(waitForCount(EventKind::state, 1));
    return central->state();
  }
  bool reasonSays(const std::string& words) {
    return radio->stateReason().find(words) != std::string::npos;
  }
  bool becomes(State state) {
    return waitFor([&] { return central->state() == state; });
  }
};

class BluezStateRefused : public BluezRadioTest {
 protected:
  BluezStateRefused() : BluezRadioTest(PrivateBus::Policy::daemonRefused) {}
};

TEST_F(BluezState, IsUnsupportedWithoutABusAndSaysSo) {
  bus.kill();
  EXPECT_EQ(firstState(), State::unsupported);
  EXPECT_TRUE(reasonSays("message bus cannot be reached")) << radio->stateReason();
}

TEST_F(BluezState, IsUnsupportedWithoutADaemonAndSaysSo) {
  EXPECT_EQ(firstState(), State::unsupported);
  EXPECT_TRUE(reasonSays("daemon is not running")) << radio->stateReason();
}

TEST_F(BluezState, IsUnsupportedWithoutAnAdapterAndSaysSo) {
  startDaemon([](BusService& service) { service.putQuietly("/org/bluez", {}); });
  EXPECT_EQ(firstState(), State::unsupported);
  EXPECT_TRUE(reasonSays("no Bluetooth adapter")) << radio->stateReason();
}

TEST_F(BluezState, FollowsTheAdaptersPower) {
  startDaemon();
  EXPECT_EQ(firstState(), State::poweredOn);
  EXPECT_EQ(radio->stateReason(), "");
  daemon->changeAdapter({{"Powered", Variant(false)}});
  ASSERT_TRUE(becomes(State::poweredOff));
  EXPECT_TRUE(reasonSays("hci0 is powered off")) << radio->stateReason();
  daemon->changeAdapter({{"Powered", Variant(true)}});
  ASSERT_TRUE(becomes(State::poweredOn));
  EXPECT_EQ(radio->stateReason(), "");
  EXPECT_EQ(states(), States({State::poweredOn, State::poweredOff, State::poweredOn}));
}

TEST_F(BluezState, IsResettingWhileAKilledDaemonIsAwayAndPoweredOnAfterwards) {
  startDaemon();
  EXPECT_EQ(firstState(), State::poweredOn);
  killDaemon();
  ASSERT_TRUE(becomes(State::resetting));
  EXPECT_TRUE(reasonSays("daemon is not running")) << radio->stateReason();
  startDaemon();
  ASSERT_TRUE(becomes(State::poweredOn));
  settle();
  EXPECT_EQ(states(), States({State::poweredOn, State::resetting, State::poweredOn}));
}

TEST_F(BluezState, IsResettingWhileTheBusIsAwayAndComesBackWithIt) {
  startDaemon();
  EXPECT_EQ(firstState(), State::poweredOn);
  bus.kill();
  ASSERT_TRUE(becomes(State::resetting));
  killDaemon();
  bus.restart();
  startDaemon();
  ASSERT_NO_FATAL_FAILURE(pass(1s));
  ASSERT_TRUE(becomes(State::poweredOn));
}

TEST_F(BluezState, AnAdapterThatIsPulledIsResettingForAMomentAndThenUnsupported) {
  startDaemon();
  EXPECT_EQ(firstState(), State::poweredOn);
  daemon->run([](BusService& service) { service.remove(kAdapterPath); });
  ASSERT_TRUE(becomes(State::resetting));
  pass(2s);
  EXPECT_EQ(central->state(), State::unsupported);
  daemon->run([](BusService& service) {
    service.put(kAdapterPath, {{kAdapterInterface, {{"Powered", Variant(true)}}}});
  });
  ASSERT_TRUE(becomes(State::poweredOn));
}

TEST_F(BluezState, ADaemonThatBringsItsAdaptersUpLateIsWaitedFor) {
  startDaemon();
  EXPECT_EQ(firstState(), State::poweredOn);
  killDaemon();
  ASSERT_TRUE(becomes(State::resetting));
  startDaemon([](BusService& service) { service.putQuietly("/org/bluez", {}); });
  settle();
  daemon->run([](BusService& service) {
    service.put(kAdapterPath, {{kAdapterInterface, {{"Powered", Variant(true)}}}});
  });
  ASSERT_TRUE(becomes(State::poweredOn));
  EXPECT_EQ(states(), States({State::poweredOn, State::resetting, State::poweredOn}));
}

TEST_F(BluezStateRefused, IsUnauthorizedWhereTheBusRefusesTheDaemon) {
  startDaemon();
  startRadio();
  central = makeCentral();
  ASSERT_TRUE(waitForCount(EventKind::state, 1));
  EXPECT_EQ(central->state(), State::unauthorized);
  EXPECT_NE(radio->stateReason().find("adduser USER bluetooth"), std::string::npos)
      << radio->stateReason();
}

TEST_F(BluezState, IsUnauthorizedWhenTheDaemonRefusesToScan) {
  startDaemon();
  EXPECT_EQ(firstState(), State::poweredOn);
  daemon->always("StartDiscovery", StandInDaemon::fails("org.bluez.Error.NotAuthorized"));
  central->scanForPeripheralsWithServices_options(std::nullopt, std::nullopt);
  ASSERT_TRUE(becomes(State::unauthorized));
  EXPECT_TRUE(reasonSays("permission to use adapter hci0")) << radio->stateReason();
  daemon->normally("StartDiscovery");
  central = makeCentral();
  EXPECT_TRUE(becomes(State::poweredOn)) << "a new central manager is a new try";
}

TEST_F(BluezState, ADaemonThatNeverListsItsObjectsIsReportedAndAskedAgain) {
  startDaemon();
  std::promise<void> isStuck;
  std::promise<void> wakeUp;
  std::thread stuck([&] {
    daemon->run([&](BusService&) {
      isStuck.set_value();
      wakeUp.get_future().wait();
    });
  });
  isStuck.get_future().wait();
  startRadio();
  central = makeCentral();
  // The bus answers that the name is owned; then the list is asked for, in vain.
  while (count(EventKind::state) == 0) {
    clock->sleepFor(1s);
    session->post([](RadioCore&) {});
    loop->runFor(5ms);
  }
  EXPECT_EQ(central->state(), State::unsupported);
  EXPECT_TRUE(reasonSays("does not answer")) << radio->stateReason();
  wakeUp.set_value();
  stuck.join();
  clock->sleepFor(30s);
  session->post([](RadioCore&) {});
  EXPECT_TRUE(becomes(State::poweredOn));
}

TEST_F(BluezState, TheAdapterIsTheNamedOneElseTheFirstThatIsPowered) {
  startDaemon([](BusService& service) {
    service.putQuietly("/org/bluez/hci0", {{kAdapterInterface, {{"Powered", Variant(false)}}}});
    service.putQuietly("/org/bluez/hci1", {{kAdapterInterface, {{"Powered", Variant(true)}}}});
  });
  EXPECT_EQ(firstState(), State::poweredOn);
  startRadio("hci0");
  central = makeCentral();
  EXPECT_TRUE(becomes(State::poweredOff));
  startRadio("hci5");
  central = makeCentral();
  EXPECT_TRUE(becomes(State::unsupported));
  EXPECT_TRUE(reasonSays("no Bluetooth adapter hci5")) << radio->stateReason();
}

TEST_F(BluezState, MalformedMapsChangeNothing) {
  startDaemon();
  EXPECT_EQ(firstState(), State::poweredOn);
  daemon->changeAdapter({{"Powered", Variant(std::string("off"))}, {"Oddity", Variant(true)}});
  daemon->run([](BusService& service) {
    const char properties[] = "org.freedesktop.DBus.Properties";
    const char manager[] = "org.freedesktop.DBus.ObjectManager";
    service.signal(kAdapterPath, properties, "PropertiesChanged",
                   [](sdbus::Signal& signal) { signal << std::int32_t{1}; });
    service.signal("/", manager, "InterfacesAdded", [](sdbus::Signal&) {});
    service.signal("/", manager, "InterfacesAdded",
                   [](sdbus::Signal& signal) { signal << std::string("/org/bluez/hci0"); });
    service.signal("/", manager, "InterfacesRemoved", [](sdbus::Signal& signal) {
      signal << sdbus::ObjectPath(kAdapterPath) << std::string(kAdapterInterface);
    });
    service.signal("/", manager, "InterfacesRemoved", [](sdbus::Signal& signal) {
      signal << sdbus::ObjectPath("/org/bluez/hci9") << std::vector<std::string>{kAdapterInterface};
    });
  });
  settle();
  EXPECT_EQ(states(), States({State::poweredOn}));
}

TEST_F(BluezState, AnotherProgramsSignalsDoNotCount) {
  startDaemon();
  EXPECT_EQ(firstState(), State::poweredOn);
  BusService stranger(bus.address(),
                      [](const std::string&, const std::string&, const sdbus::MethodCall&) {});
  stranger.run([&] {
    stranger.signal(
        "/", "org.freedesktop.DBus.ObjectManager", "InterfacesRemoved", [](sdbus::Signal& signal) {
          signal << sdbus::ObjectPath(kAdapterPath) << std::vector<std::string>{kAdapterInterface};
        });
  });
  settle();
  EXPECT_EQ(states(), States({State::poweredOn}));
}

}  // namespace
}  // namespace kestrin::bluez::test
