#include "kestrin/bluez/Diagnosis.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <future>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "DiagnosisFacts.h"
#include "Errors.h"
#include "radios/bluez/PrivateBus.h"
#include "radios/bluez/StandInDaemon.h"

namespace kestrin::bluez::test {
namespace {

using sdbus::Variant;

constexpr Time kGenerous = std::chrono::seconds(20);
/// For what never answers.
constexpr Time kAtOnce = std::chrono::milliseconds(1);

Options onBus(const std::string& address, std::optional<std::string> adapter = std::nullopt) {
  return {.adapter = std::move(adapter), .busAddress = address};
}

/// `subject: text -> advice`, a line per trouble.
std::string troubles(const Diagnosis& diagnosis) {
  std::string text;
  for (const auto& finding : diagnosis.findings) {
    EXPECT_EQ(finding.advice.empty(), finding.verdict != Verdict::trouble) << finding.subject;
    EXPECT_EQ((finding.text + finding.advice).find('\n'), std::string::npos) << finding.subject;
    if (finding.verdict != Verdict::trouble) continue;
    text += finding.subject + ": " + finding.text + " -> " + finding.advice + "\n";
  }
  return text;
}

/// The findings' subjects with what could not be seen in brackets.
std::string subjects(const Diagnosis& diagnosis) {
  std::string text;
  for (const auto& finding : diagnosis.findings) {
    const bool seen = finding.verdict != Verdict::notSeen;
    text += (text.empty() ? "" : ", ") + (seen ? finding.subject : "(" + finding.subject + ")");
  }
  return text;
}

std::string textOf(const Diagnosis& diagnosis, const std::string& subject) {
  for (const auto& finding : diagnosis.findings) {
    if (finding.subject == subject) return finding.text;
  }
  return "no finding";
}

AdapterFacts adapter(bool powered) {
  return {.object = {.powered = powered}, .address = "C0:DE:00:00:00:00", .alias = "desk"};
}

/// A machine on which everything works.
DiagnosisFacts healthy() {
  DiagnosisFacts facts;
  facts.daemon.isThere = true;
  facts.daemon.version = "5.66";
  facts.daemon.adapters["/org/bluez/hci0"] = adapter(true);
  facts.machine.adapters = {"hci0"};
  facts.user = {.name = "ada", .groupExists = true};
  return facts;
}

TEST(Diagnosis, AMachineOnWhichEverythingWorksHasNoTroubleAndAScanWorks) {
  const Diagnosis diagnosis = conclude(healthy());
  EXPECT_TRUE(diagnosis.scanWorks);
  EXPECT_EQ(troubles(diagnosis), "");
  EXPECT_EQ(subjects(diagnosis), "message bus, daemon, permission, radio block, adapter hci0");
  EXPECT_EQ(textOf(diagnosis, "daemon"), "bluetoothd runs, BlueZ 5.66");
  EXPECT_EQ(textOf(diagnosis, "permission"), "user ada may talk to the daemon");
  EXPECT_EQ(textOf(diagnosis, "radio block"), "none");
  EXPECT_EQ(textOf(diagnosis, "adapter hci0"), "C0:DE:00:00:00:00 'desk', powered on");
}

TEST(Diagnosis, WithoutAMessageBusNothingBehindItIsSeen) {
  DiagnosisFacts facts = healthy();
  facts.daemon = {};
  facts.daemon.busTrouble = CallError{"org.freedesktop.DBus.Error.FileNotFound", "no such file"};
  const Diagnosis diagnosis = conclude(facts);
  EXPECT_FALSE(diagnosis.scanWorks);
  EXPECT_EQ(subjects(diagnosis), "message bus, (daemon), (permission), radio block, (adapter)");
  EXPECT_EQ(troubles(diagnosis),
            "message bus: cannot be used: no such file -> install the package dbus, 'systemctl "
            "start dbus'\n");
}

TEST(Diagnosis, ABusThatRefusesTheUserOrDoesNotAnswerHasAdviceOfItsOwn) {
  DiagnosisFacts facts = healthy();
  facts.daemon.busTrouble = CallError{"org.freedesktop.DBus.Error.AccessDenied", "denied"};
  EXPECT_EQ(troubles(conclude(facts)),
            "message bus: cannot be used: denied -> let user ada use it, or run as root\n");
  facts.daemon.busTrouble = CallError{"org.freedesktop.DBus.Error.Timeout", "silent"};
  EXPECT_EQ(troubles(conclude(facts)),
            "message bus: cannot be used: silent -> see 'systemctl status dbus'; a restart of the "
            "machine helps\n");
}

TEST(Diagnosis, ADaemonThatIsNotThereIsToBeStartedAndOneThatIsStuckRestarted) {
  DiagnosisFacts facts = healthy();
  facts.daemon = {};
  EXPECT_EQ(troubles(conclude(facts)),
            "daemon: bluetoothd is not running -> install the package bluez, 'systemctl start "
            "bluetooth'\n");
  facts.machine.adapters = {};
  EXPECT_EQ(troubles(conclude(facts)),
            "daemon: bluetoothd is not running, and the kernel has no adapter -> plug an adapter "
            "in, install the package bluez, 'systemctl start bluetooth'\n");
  facts.daemon.isThere = true;
  facts.daemon.trouble = CallError{"org.freedesktop.DBus.Error.NoReply", "silent"};
  const Diagnosis stuck = conclude(facts);
  EXPECT_EQ(troubles(stuck),
            "daemon: bluetoothd does not answer: silent -> 'systemctl restart bluetooth'\n");
  EXPECT_EQ(subjects(stuck), "message bus, daemon, (permission), radio block, (adapter)");
  EXPECT_FALSE(stuck.scanWorks);
}

TEST(Diagnosis, ARefusedUserIsToldWhatIsMissing) {
  DiagnosisFacts facts = healthy();
  facts.daemon.trouble = CallError{"org.freedesktop.DBus.Error.AccessDenied", "denied"};
  const std::string refused = "permission: user ada may not talk to the daemon -> ";
  EXPECT_EQ(troubles(conclude(facts)),
            refused + "'adduser ada bluetooth' and log in again, or run as root\n");
  EXPECT_FALSE(conclude(facts).scanWorks);
  EXPECT_EQ(subjects(conclude(facts)), "message bus, daemon, permission, radio block, (adapter)");
  facts.user.isListed = true;
  EXPECT_EQ(troubles(conclude(facts)),
            refused +
                "log out and in again: this session is older than the membership in the group "
                "bluetooth\n");
  const std::string policy =
      "run as root, or allow this user to send to org.bluez in /etc/dbus-1/system.d\n";
  facts.user.hasGroup = true;
  EXPECT_EQ(troubles(conclude(facts)), refused + policy);
  facts.user = {.name = "ada"};
  EXPECT_EQ(troubles(conclude(facts)), refused + policy) << "without such a group";
}

TEST(Diagnosis, AnAdapterThatIsOffIsToBeSwitchedOnAndABlockEndedBefore) {
  DiagnosisFacts facts = healthy();
  facts.daemon.adapters["/org/bluez/hci0"] = adapter(false);
  EXPECT_FALSE(conclude(facts).scanWorks);
  const std::string off = "adapter hci0: C0:DE:00:00:00:00 'desk', powered off -> ";
  EXPECT_EQ(troubles(conclude(facts)), off + "'bluetoothctl power on'\n");
  facts.machine.blocks = {{.radio = "hci0"}};
  EXPECT_EQ(troubles(conclude(facts)),
            "radio block: hci0 is blocked -> 'rfkill unblock "
            "bluetooth'\n" +
                off + "end the block, then 'bluetoothctl power on'\n");
  facts.machine.blocks.push_back({.radio = "laptop", .byHardware = true});
  EXPECT_EQ(troubles(conclude(facts)),
            "radio block: hci0, laptop are blocked by a switch or key of the machine -> turn radio "
            "on with the machine's switch or key (flight mode)\n" +
                off + "end the block, then 'bluetoothctl power on'\n");
}

TEST(Diagnosis, TheAdapterInUseIsTheRadiosChoiceAndTheOthersDoNotMatter) {
  DiagnosisFacts facts = healthy();
  facts.daemon.adapters["/org/bluez/hci0"] = adapter(false);
  facts.daemon.adapters["/org/bluez/hci1"] = adapter(true);
  facts.machine.blocks = {{.radio = "hci0"}};
  const Diagnosis second = conclude(facts);
  EXPECT_TRUE(second.scanWorks);
  EXPECT_EQ(troubles(second), "");
  EXPECT_EQ(textOf(second, "adapter hci0"), "C0:DE:00:00:00:00 'desk', powered off, not in use");
  EXPECT_EQ(textOf(second, "radio block"), "hci0 is blocked, the adapter in use is not");
  facts.wantedAdapter = "hci0";
  EXPECT_FALSE(conclude(facts).scanWorks);
  facts.wantedAdapter = "hci7";
  EXPECT_FALSE(conclude(facts).scanWorks);
  EXPECT_EQ(troubles(conclude(facts)),
            "radio block: hci0 is blocked -> 'rfkill unblock bluetooth'\n"
            "adapter hci7: is not there -> use hci0, hci1\n");
}

TEST(Diagnosis, AMachineWithoutAnAdapterIsToldFromOneWhoseDaemonDoesNotShowIt) {
  DiagnosisFacts facts = healthy();
  facts.daemon.adapters.clear();
  EXPECT_FALSE(conclude(facts).scanWorks);
  EXPECT_EQ(troubles(conclude(facts)),
            "adapter: the kernel has hci0, the daemon shows none -> 'systemctl restart bluetooth', "
            "then see 'journalctl -u bluetooth'\n");
  facts.machine.adapters.clear();
  EXPECT_EQ(troubles(conclude(facts)),
            "adapter: the kernel has none -> plug one in; 'dmesg' tells of one that has no driver "
            "or firmware\n");
}

TEST(Diagnosis, AnAdapterThatIsNoCentralCanNotBeUsed) {
  DiagnosisFacts facts = healthy();
  facts.daemon.adapters["/org/bluez/hci0"].isCentral = false;
  EXPECT_FALSE(conclude(facts).scanWorks);
  EXPECT_EQ(troubles(conclude(facts)),
            "adapter hci0: C0:DE:00:00:00:00 'desk', powered on, cannot connect to devices -> use "
            "another adapter\n");
}

TEST(DiagnosisOfTheBus, ABusThatIsNotThereIsATrouble) {
  PrivateBus bus;
  bus.kill();
  const DaemonFacts facts = lookAtDaemon(onBus(bus.address()), kGenerous);
  ASSERT_TRUE(facts.busTrouble);
  EXPECT_EQ(facts.busTrouble->name, "org.freedesktop.DBus.Error.NoServer");
}

/// Takes connections, since the system does that for whoever listens, and says nothing.
class SilentBus {
 public:
  SilentBus() : path_(testing::TempDir() + "kestrin-silent-" + std::to_string(::getpid())) {
    sockaddr_un place{};
    place.sun_family = AF_UNIX;
    std::copy(path_.begin(), path_.end(), std::begin(place.sun_path));
    EXPECT_EQ(::bind(listener_, reinterpret_cast<const sockaddr*>(&place), sizeof place), 0);
    EXPECT_EQ(::listen(listener_, 8), 0);
  }
  ~SilentBus() {
    ::close(listener_);
    std::filesystem::remove(path_);
  }
  SilentBus(const SilentBus&) = delete;
  SilentBus& operator=(const SilentBus&) = delete;
  [[nodiscard]] std::string address() const { return "unix:path=" + path_; }

 private:
  const std::string path_;
  const int listener_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
};

TEST(DiagnosisOfTheBus, ABusThatTakesConnectionsAndSaysNothingIsNotWaitedForLongerThanTheLimit) {
  const SilentBus bus;
  const DaemonFacts facts = lookAtDaemon(onBus(bus.address()), kAtOnce);
  ASSERT_TRUE(facts.busTrouble);
  EXPECT_EQ(facts.busTrouble->name, "org.freedesktop.DBus.Error.Timeout");
}

TEST(DiagnosisOfTheBus, ADaemonThatIsNotThereIsNotStarted) {
  const PrivateBus bus;
  const DaemonFacts facts = lookAtDaemon(onBus(bus.address()), kGenerous);
  EXPECT_FALSE(facts.busTrouble) << facts.busTrouble->message;
  EXPECT_FALSE(facts.isThere);
  EXPECT_FALSE(facts.trouble);
}

TEST(DiagnosisOfTheBus, ADaemonThatNeverAnswersIsNotWaitedForLongerThanTheLimit) {
  const PrivateBus bus;
  StandInDaemon daemon(bus.address());
  std::promise<void> isStuck;
  std::promise<void> wakeUp;
  std::thread stuck([&] {
    daemon.run([&](BusService&) {
      isStuck.set_value();
      wakeUp.get_future().wait();
    });
  });
  isStuck.get_future().wait();
  // On a machine so slow that the bus itself takes longer than this, a longer limit is tried.
  Time limit = std::chrono::milliseconds(50);
  DaemonFacts facts;
  for (; !facts.isThere && limit < kGenerous; limit *= 4) {
    facts = lookAtDaemon(onBus(bus.address()), limit);
  }
  wakeUp.set_value();
  stuck.join();
  EXPECT_TRUE(facts.isThere);
  ASSERT_TRUE(facts.trouble);
  EXPECT_FALSE(isRefusal(*facts.trouble)) << facts.trouble->name;
}

TEST(DiagnosisOfTheBus, ARefusalByTheBussPolicyIsToldFromADaemonThatDoesNotAnswer) {
  const PrivateBus bus(PrivateBus::Policy::daemonRefused);
  const StandInDaemon daemon(bus.address());
  const DaemonFacts facts = lookAtDaemon(onBus(bus.address()), kGenerous);
  EXPECT_FALSE(facts.busTrouble);
  EXPECT_TRUE(facts.isThere);
  ASSERT_TRUE(facts.trouble);
  EXPECT_TRUE(isRefusal(*facts.trouble)) << facts.trouble->name;
}

TEST(DiagnosisOfTheBus, ADaemonThatMayBeListedButNotUsedRefuses) {
  const PrivateBus bus;
  StandInDaemon daemon(bus.address());
  daemon.always("GetDiscoveryFilters",
                StandInDaemon::fails("org.freedesktop.DBus.Error.AccessDenied"));
  const DaemonFacts facts = lookAtDaemon(onBus(bus.address()), kGenerous);
  ASSERT_TRUE(facts.trouble);
  EXPECT_TRUE(isRefusal(*facts.trouble)) << facts.trouble->name;
}

TEST(DiagnosisOfTheBus, TheAdaptersSayWhatTheyAreAndTheDaemonsVersion) {
  const PrivateBus bus;
  const StandInDaemon daemon(bus.address(), [](BusService& service) {
    service.putQuietly("/org/bluez/hci0",
                       {{kAdapterInterface,
                         {{"Powered", Variant(true)},
                          {"Address", Variant(std::string("C0:DE:00:00:00:00"))},
                          {"Alias", Variant(std::string("desk"))},
                          {"Modalias", Variant(std::string("usb:v1D6Bp0246d0542"))},
                          {"Roles", Variant(std::vector<std::string>{"central", "peripheral"})}}}});
    service.putQuietly("/org/bluez/hci1",
                       {{kAdapterInterface,
                         {{"Powered", Variant(std::string("a text"))},
                          {"Modalias", Variant(std::string("usb:v0000p0000d0542"))},
                          {"Roles", Variant(std::vector<std::string>{"peripheral"})}}}});
  });
  const DaemonFacts facts = lookAtDaemon(onBus(bus.address()), kGenerous);
  EXPECT_FALSE(facts.trouble) << facts.trouble->name;
  EXPECT_EQ(facts.version, "5.66");
  ASSERT_EQ(facts.adapters.size(), 2U);
  const AdapterFacts& first = facts.adapters.at("/org/bluez/hci0");
  EXPECT_TRUE(first.object.powered);
  EXPECT_EQ(first.address, "C0:DE:00:00:00:00");
  EXPECT_EQ(first.alias, "desk");
  EXPECT_TRUE(first.isCentral);
  const AdapterFacts& second = facts.adapters.at("/org/bluez/hci1");
  EXPECT_FALSE(second.object.powered);
  EXPECT_FALSE(second.isCentral);
}

TEST(DiagnosisOfTheBus, AWholeDiagnosisOfAStandInDaemonSaysThatAScanWorks) {
  const PrivateBus bus;
  const StandInDaemon daemon(bus.address());
  const Diagnosis diagnosis = diagnose(onBus(bus.address()));
  EXPECT_TRUE(diagnosis.scanWorks) << troubles(diagnosis);
  EXPECT_FALSE(diagnose(onBus(bus.address(), "hci7")).scanWorks);
}

class DiagnosisOfTheMachine : public testing::Test {
 public:
  ~DiagnosisOfTheMachine() override { std::filesystem::remove_all(root_); }
  DiagnosisOfTheMachine(const DiagnosisOfTheMachine&) = delete;
  DiagnosisOfTheMachine& operator=(const DiagnosisOfTheMachine&) = delete;

 protected:
  DiagnosisOfTheMachine() : places_{root_ + "/rfkill", root_ + "/bluetooth"} {
    std::filesystem::remove_all(root_);
  }

  void addRadio(const std::string& entry, const std::string& type, const std::string& name,
                bool soft, bool hard) {
    const std::string folder = places_.blocks + "/" + entry + "/";
    std::filesystem::create_directories(folder);
    std::ofstream(folder + "type") << type << '\n';
    std::ofstream(folder + "name") << name << '\n';
    std::ofstream(folder + "soft") << soft << '\n';
    std::ofstream(folder + "hard") << hard << '\n';
  }

  const std::string root_ = testing::TempDir() + "kestrin-sys-" + std::to_string(::getpid());
  const MachinePlaces places_;
};

TEST_F(DiagnosisOfTheMachine, AKernelThatTellsNothingHasNeitherBlocksNorAdapters) {
  const MachineFacts facts = lookAtMachine(places_);
  EXPECT_TRUE(facts.blocks.empty());
  EXPECT_TRUE(facts.adapters.empty());
}

TEST_F(DiagnosisOfTheMachine, BlocksAreThoseOfBluetoothThatAreInEffect) {
  addRadio("rfkill0", "bluetooth", "hci0", true, false);
  addRadio("rfkill1", "bluetooth", "hci1", false, false);
  addRadio("rfkill2", "bluetooth", "laptop", false, true);
  addRadio("rfkill3", "wlan", "phy0", true, true);
  const MachineFacts facts = lookAtMachine(places_);
  ASSERT_EQ(facts.blocks.size(), 2U);
  EXPECT_EQ(facts.blocks[0].radio, "hci0");
  EXPECT_FALSE(facts.blocks[0].byHardware);
  EXPECT_EQ(facts.blocks[1].radio, "laptop");
  EXPECT_TRUE(facts.blocks[1].byHardware);
}

TEST_F(DiagnosisOfTheMachine, TheKernelsAdaptersAreNotItsLinks) {
  for (const char* entry : {"hci1", "hci0", "hci0:64"}) {
    std::filesystem::create_directories(places_.adapters + "/" + entry);
  }
  EXPECT_EQ(lookAtMachine(places_).adapters, std::vector<std::string>({"hci0", "hci1"}));
}

TEST_F(DiagnosisOfTheMachine, TheUserHasAName) { EXPECT_FALSE(lookAtUser().name.empty()); }

}  // namespace
}  // namespace kestrin::bluez::test
