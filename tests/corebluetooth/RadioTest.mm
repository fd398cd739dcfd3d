// What the radio on CoreBluetooth does beyond the contract: what it asks of the system and when,
// and what it makes of the system's refusals.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Devices.h"
#include "KestrinBLESDK/platform/MainRunLoop.h"
#include "StandIn.h"
#include "StateReason.h"
#include "Values.h"
#include "kestrin/corebluetooth/CoreBluetooth.h"
#include "kestrin/simulated/SimulatedPlatform.h"
#include "radios/contract/EventRecorder.h"
#include "support/RecordingLog.h"

namespace kestrin::corebluetooth {
namespace {

using namespace std::chrono_literals;
using standin::FirstAttempts;
using standin::Habits;
using test::EventKind;
using test::EventRecorder;
using test::RecordingLog;

const CBUUID kDataService = *CBUUID::UUIDWithString("BA821000-3B5B-4654-85FE-E998B123ADEA");
const CBUUID kCommand = *CBUUID::UUIDWithString("BA821001-3B5B-4654-85FE-E998B123ADEA");

class CoreBluetoothRadioTest : public testing::Test {
 protected:
  CoreBluetoothRadioTest()
      : pool_([[::NSAutoreleasePool alloc] init]),
        loop_(std::make_shared<MainRunLoop>(std::make_shared<simulated::VirtualClock>())),
        air_(std::make_shared<simulated::SimulatedRadio>(loop_, simulated::Options())),
        reader_(air_->addReader("KVR-1", simulated::ReaderFamily::standard)),
        recorder_(std::make_shared<EventRecorder>()),
        log_(std::make_shared<RecordingLog>()) {
    setDefaultLogSink(log_);
    use({});
  }
  ~CoreBluetoothRadioTest() override {
    setDefaultLogSink(std::make_shared<StandardErrorLogSink>());
    EXPECT_EQ(standin::misuses(), std::vector<std::string>());
    EXPECT_EQ(recorder_->violations(), std::vector<std::string>());
    [pool_ release];
  }

  void use(const Habits& habits, Options options = {}) {
    standin::use(air_, loop_, habits);
    radio_ = makeRadio(loop_, options);
  }
  std::shared_ptr<CBCentralManager> makeCentral() {
    auto central = radio_->initWithDelegate_queue(recorder_, nullptr);
    loop_->runFor(100ms);
    recorder_->clear();
    return central;
  }
  std::shared_ptr<CBPeripheral> find(CBCentralManager& central) {
    central.scanForPeripheralsWithServices_options(std::nullopt, std::nullopt);
    waitFor(EventKind::sighting);
    central.stopScan();
    const auto seen = recorder_->events(EventKind::sighting);
    recorder_->clear();
    return seen.empty() ? nullptr : seen.front().peripheral;
  }
  bool waitFor(EventKind kind, std::size_t number = 1) {
    return loop_->runUntil(loop_->now() + 2min, [&] { return recorder_->count(kind) >= number; });
  }
  void connect(CBCentralManager& central, const std::shared_ptr<CBPeripheral>& peripheral) {
    peripheral->setDelegate(recorder_);
    central.connectPeripheral_options(peripheral, std::nullopt);
  }
  static std::ptrdiff_t asked(const std::string& selector) {
    const auto all = standin::requests();
    return std::count(all.begin(), all.end(), selector);
  }
  std::ptrdiff_t refusals() {
    const auto lines = log_->lines();
    return std::count_if(lines.begin(), lines.end(), [](const std::string& line) {
      return line.find("is refused") != std::string::npos;
    });
  }
  std::shared_ptr<CBCharacteristic> findCommand(CBPeripheral& peripheral) {
    peripheral.discoverServices({{kDataService}});
    if (!waitFor(EventKind::services)) return nullptr;
    const auto service = peripheral.services()->front();
    peripheral.discoverCharacteristics_forService({{kCommand}}, service);
    if (!waitFor(EventKind::characteristics)) return nullptr;
    return service->characteristics()->front();
  }

  ::NSAutoreleasePool* const pool_;
  const std::shared_ptr<MainRunLoop> loop_;
  const std::shared_ptr<simulated::SimulatedRadio> air_;
  const std::shared_ptr<simulated::VirtualPeripheral> reader_;
  const std::shared_ptr<EventRecorder> recorder_;
  const std::shared_ptr<RecordingLog> log_;
  std::shared_ptr<Radio> radio_;
};

TEST_F(CoreBluetoothRadioTest, EveryStateButPoweredOnSaysInOneLineWhatToDo) {
  EXPECT_EQ(stateReason(CBManagerState::poweredOn), "");
  std::vector<std::string> texts;
  for (const auto state :
       {CBManagerState::unknown, CBManagerState::resetting, CBManagerState::unsupported,
        CBManagerState::unauthorized, CBManagerState::poweredOff}) {
    texts.push_back(stateReason(state));
    EXPECT_NE(texts.back(), "");
    EXPECT_EQ(texts.back().find('\n'), std::string::npos);
  }
  std::sort(texts.begin(), texts.end());
  EXPECT_EQ(std::unique(texts.begin(), texts.end()), texts.end()) << "each has words of its own";
  EXPECT_NE(stateReason(CBManagerState::poweredOff).find("Settings"), std::string::npos);
  EXPECT_NE(stateReason(CBManagerState::unauthorized).find("Settings"), std::string::npos);
}

TEST_F(CoreBluetoothRadioTest, TheReasonFollowsTheState) {
  const auto central = makeCentral();
  EXPECT_EQ(radio_->stateReason(), "");
  for (const auto state : {CBManagerState::unauthorized, CBManagerState::resetting}) {
    air_->simulateState(state);
    loop_->runFor(100ms);
    EXPECT_EQ(radio_->stateReason(), stateReason(state));
  }
}

TEST_F(CoreBluetoothRadioTest, AnAttemptThatFailsIsMadeAgainAfterAGrowingPause) {
  use({.firstAttempts = FirstAttempts::fail, .manyFirst = 9});
  const auto central = makeCentral();
  const auto peripheral = find(*central);
  ASSERT_NE(peripheral, nullptr);
  connect(*central, peripheral);
  std::vector<Time> pauses;
  auto last = loop_->now();
  for (int attempt = 2; attempt <= 10; ++attempt) {
    const auto soon = loop_->now() + 5min;
    ASSERT_TRUE(
        loop_->runUntil(soon, [&] { return asked("connectPeripheral:options:") == attempt; }));
    pauses.push_back(loop_->now() - last);
    last = loop_->now();
  }
  EXPECT_EQ(pauses,
            (std::vector<Time>{500ms, 1000ms, 2000ms, 4000ms, 8000ms, 16000ms, 30s, 30s, 30s}));
  ASSERT_TRUE(waitFor(EventKind::connected));
  EXPECT_EQ(recorder_->count(), 1U) << "a failure is nothing to report";
}

TEST_F(CoreBluetoothRadioTest, TheFirstPauseIsShortAgainAfterALink) {
  use({.firstAttempts = FirstAttempts::fail, .manyFirst = 2});
  const auto central = makeCentral();
  const auto peripheral = find(*central);
  ASSERT_NE(peripheral, nullptr);
  connect(*central, peripheral);
  ASSERT_TRUE(waitFor(EventKind::connected));
  central->cancelPeripheralConnection(peripheral);
  ASSERT_TRUE(waitFor(EventKind::disconnected));
  standin::raiseAt("connectPeripheral:options:");
  connect(*central, peripheral);
  standin::raiseAt(std::nullopt);
  const auto begun = loop_->now();
  ASSERT_TRUE(waitFor(EventKind::connected, 2));
  EXPECT_LT(loop_->now() - begun, 1s);
}

TEST_F(CoreBluetoothRadioTest, ADeviceThatTheSystemDoesNotKnowIsAskedForAgain) {
  const auto first = makeCentral();
  const auto peripheral = find(*first);
  ASSERT_NE(peripheral, nullptr);
  const auto second = makeCentral();
  standin::forgetDevices();
  connect(*second, peripheral);
  loop_->runFor(3s);
  EXPECT_EQ(asked("connectPeripheral:options:"), 0);
  first->scanForPeripheralsWithServices_options(std::nullopt, std::nullopt);
  EXPECT_TRUE(waitFor(EventKind::connected));
}

TEST_F(CoreBluetoothRadioTest, AnEndThatWasAskedForIsReportedWhenTheSystemDoes) {
  use({.lingers = 5s});
  const auto central = makeCentral();
  const auto peripheral = find(*central);
  ASSERT_NE(peripheral, nullptr);
  connect(*central, peripheral);
  ASSERT_TRUE(waitFor(EventKind::connected));
  central->cancelPeripheralConnection(peripheral);
  loop_->runFor(4s);
  EXPECT_EQ(recorder_->count(EventKind::disconnected), 0U);
  loop_->runFor(2s);
  EXPECT_EQ(recorder_->count(EventKind::disconnected), 1U);
}

TEST_F(CoreBluetoothRadioTest, AnEndThatTheSystemNeverReportsIsTakenForGranted) {
  use({.lingers = 1h});
  const auto central = makeCentral();
  const auto peripheral = find(*central);
  ASSERT_NE(peripheral, nullptr);
  connect(*central, peripheral);
  ASSERT_TRUE(waitFor(EventKind::connected));
  central->cancelPeripheralConnection(peripheral);
  loop_->runFor(9s);
  EXPECT_EQ(recorder_->count(EventKind::disconnected), 0U);
  loop_->runFor(5s);
  ASSERT_EQ(recorder_->count(EventKind::disconnected), 1U);
  EXPECT_EQ(recorder_->events(EventKind::disconnected)[0].error, std::nullopt);
}

TEST_F(CoreBluetoothRadioTest, ALinkThatComesAfterItsEndWasTakenForGrantedIsCancelled) {
  const auto central = makeCentral();
  const auto peripheral = find(*central);
  ASSERT_NE(peripheral, nullptr);
  reader_->simulateVanishing();
  connect(*central, peripheral);
  standin::raiseAt("cancelPeripheralConnection:");
  central->cancelPeripheralConnection(peripheral);
  standin::raiseAt(std::nullopt);
  ASSERT_TRUE(waitFor(EventKind::disconnected));
  reader_->simulateAppearing();
  ASSERT_TRUE(loop_->runUntil(loop_->now() + 1min, [&] { return reader_->connected(); }));
  loop_->runFor(1s);
  EXPECT_FALSE(reader_->connected());
  EXPECT_EQ(recorder_->count(EventKind::connected), 0U);
}

TEST_F(CoreBluetoothRadioTest, ACancellationUnderWayWhenThePowerGoesIsReportedThen) {
  use({.reportsLinksAtPowerOff = false, .lingers = 1h});
  const auto central = makeCentral();
  const auto peripheral = find(*central);
  ASSERT_NE(peripheral, nullptr);
  connect(*central, peripheral);
  ASSERT_TRUE(waitFor(EventKind::connected));
  central->cancelPeripheralConnection(peripheral);
  air_->simulateState(CBManagerState::poweredOff);
  loop_->runFor(1s);
  ASSERT_EQ(recorder_->count(EventKind::disconnected), 1U);
  EXPECT_EQ(recorder_->events(EventKind::disconnected)[0].error, std::nullopt);
}

TEST_F(CoreBluetoothRadioTest, AnAttemptThatIsCancelledWithoutPowerIsReportedSoon) {
  const auto central = makeCentral();
  const auto peripheral = find(*central);
  ASSERT_NE(peripheral, nullptr);
  air_->simulateState(CBManagerState::poweredOff);
  loop_->runFor(1s);
  connect(*central, peripheral);
  central->cancelPeripheralConnection(peripheral);
  EXPECT_EQ(recorder_->count(EventKind::disconnected), 0U);
  loop_->runFor(1s);
  EXPECT_EQ(recorder_->count(EventKind::disconnected), 1U);
}

TEST_F(CoreBluetoothRadioTest, ASecondCancellationTakesTheWishForANewLinkBack) {
  const auto central = makeCentral();
  const auto peripheral = find(*central);
  ASSERT_NE(peripheral, nullptr);
  connect(*central, peripheral);
  ASSERT_TRUE(waitFor(EventKind::connected));
  central->cancelPeripheralConnection(peripheral);
  connect(*central, peripheral);
  central->cancelPeripheralConnection(peripheral);
  loop_->runFor(1min);
  EXPECT_EQ(recorder_->count(EventKind::connected), 1U);
  EXPECT_EQ(recorder_->count(EventKind::disconnected), 1U);
  EXPECT_FALSE(reader_->connected());
}

TEST_F(CoreBluetoothRadioTest, ALinkThatComesWhileItIsCancelledIsNotReported) {
  const auto central = makeCentral();
  const auto peripheral = find(*central);
  ASSERT_NE(peripheral, nullptr);
  connect(*central, peripheral);
  standin::raiseAt("cancelPeripheralConnection:");
  central->cancelPeripheralConnection(peripheral);
  standin::raiseAt(std::nullopt);
  ASSERT_TRUE(waitFor(EventKind::disconnected));
  EXPECT_EQ(recorder_->count(EventKind::connected), 0U);
  EXPECT_EQ(recorder_->count(EventKind::disconnected), 1U);
  loop_->runFor(1s);
  EXPECT_FALSE(reader_->connected());
}

TEST_F(CoreBluetoothRadioTest, ACentralManagerThatGoesAwayStopsItsScan) {
  auto central = makeCentral();
  central->scanForPeripheralsWithServices_options(std::nullopt, std::nullopt);
  central.reset();
  EXPECT_EQ(asked("stopScan"), 1);
  central = makeCentral();
  central.reset();
  EXPECT_EQ(asked("stopScan"), 1) << "there was no scan";
}

TEST_F(CoreBluetoothRadioTest, WhatAnotherThreadHasAskedIsCarriedOutBeforeACentralManagerGoesAway) {
  auto central = makeCentral();
  const auto peripheral = find(*central);
  ASSERT_NE(peripheral, nullptr);
  connect(*central, peripheral);
  ASSERT_TRUE(waitFor(EventKind::connected));
  const auto command = findCommand(*peripheral);
  ASSERT_NE(command, nullptr);
  std::thread([&] {
    peripheral->writeValue_forCharacteristic_type(
        NSData{1}, command, CBCharacteristicWriteType::CBCharacteristicWriteWithResponse);
  }).join();
  EXPECT_EQ(asked("writeValue:forCharacteristic:type:"), 0);
  central.reset();
  EXPECT_EQ(asked("writeValue:forCharacteristic:type:"), 1);
}

TEST_F(CoreBluetoothRadioTest, WhatIsOnItsWayAtTheEndOfAScanIsNoSighting) {
  const auto central = makeCentral();
  const auto peripheral = find(*central);
  ASSERT_NE(peripheral, nullptr);
  standin::sightAgain("KVR-2");
  EXPECT_EQ(recorder_->count(), 0U);
  EXPECT_EQ(peripheral->name(), "KVR-1");
  central->scanForPeripheralsWithServices_options(std::nullopt, std::nullopt);
  standin::sightAgain("KVR-3");
  EXPECT_EQ(recorder_->count(EventKind::sighting), 1U);
  air_->simulateState(CBManagerState::poweredOff);
  loop_->runFor(1s);
  recorder_->clear();
  standin::sightAgain("KVR-4");
  EXPECT_EQ(recorder_->count(), 0U) << "the power's end is a scan's, too";
}

TEST_F(CoreBluetoothRadioTest, ANewNameIsASightingInAScanForAServiceToo) {
  const auto central = makeCentral();
  central->scanForPeripheralsWithServices_options({{kDataService}}, std::nullopt);
  ASSERT_TRUE(waitFor(EventKind::sighting));
  reader_->simulateName("KVR-2");
  ASSERT_TRUE(waitFor(EventKind::sighting, 2));
  EXPECT_EQ(recorder_->events(EventKind::sighting)[1].name, "KVR-2");
  EXPECT_EQ(recorder_->count(EventKind::sighting), 2U);
}

TEST_F(CoreBluetoothRadioTest, ANameOnTheAirWaitsForTheEndOfALink) {
  const auto central = makeCentral();
  const auto peripheral = find(*central);
  ASSERT_NE(peripheral, nullptr);
  connect(*central, peripheral);
  ASSERT_TRUE(waitFor(EventKind::connected));
  central->scanForPeripheralsWithServices_options(std::nullopt, std::nullopt);
  standin::sightAgain("KVR-2");
  EXPECT_EQ(peripheral->name(), "KVR-1");
  central->cancelPeripheralConnection(peripheral);
  ASSERT_TRUE(waitFor(EventKind::disconnected));
  standin::sightAgain("KVR-2");
  EXPECT_EQ(peripheral->name(), "KVR-2");
}

TEST_F(CoreBluetoothRadioTest, TheSystemReportsNothingOfALinkFromItsEndOn) {
  use({.answersAtLinkEnd = false});
  const auto central = makeCentral();
  const auto peripheral = find(*central);
  ASSERT_NE(peripheral, nullptr);
  connect(*central, peripheral);
  ASSERT_TRUE(waitFor(EventKind::connected));
  ::CBPeripheral* const device = deviceOf(peripheral);
  EXPECT_NE([device delegate], nil);
  int answers = 0;
  recorder_->onEvent = [&](const test::Event& event) {
    if (event.kind != EventKind::services) return;
    ++answers;
    EXPECT_EQ([device delegate], nil);
  };
  reader_->simulateSilence();
  peripheral->discoverServices(std::nullopt);
  reader_->simulateLinkLoss();
  ASSERT_TRUE(waitFor(EventKind::disconnected));
  EXPECT_EQ(answers, 1);
}

TEST_F(CoreBluetoothRadioTest, ASecondCentralManagersLinkGoesOnWhenTheFirstOnesEnds) {
  const auto first = makeCentral();
  const auto second = makeCentral();
  const auto peripheral = find(*first);
  ASSERT_NE(peripheral, nullptr);
  connect(*first, peripheral);
  ASSERT_TRUE(waitFor(EventKind::connected));
  connect(*second, peripheral);
  ASSERT_TRUE(waitFor(EventKind::connected, 2));
  first->cancelPeripheralConnection(peripheral);
  ASSERT_TRUE(waitFor(EventKind::disconnected));
  EXPECT_TRUE(reader_->connected());
  EXPECT_NE(findCommand(*peripheral), nullptr);
}

TEST_F(CoreBluetoothRadioTest, TheFirstCentralManagersLinkStaysWhenASecondOnesEnds) {
  const auto first = makeCentral();
  const auto second = makeCentral();
  const auto peripheral = find(*first);
  ASSERT_NE(peripheral, nullptr);
  connect(*first, peripheral);
  ASSERT_TRUE(waitFor(EventKind::connected));
  const auto command = findCommand(*peripheral);
  ASSERT_NE(command, nullptr);
  connect(*second, peripheral);
  ASSERT_TRUE(waitFor(EventKind::connected, 2));
  second->cancelPeripheralConnection(peripheral);
  ASSERT_TRUE(waitFor(EventKind::disconnected));
  peripheral->writeValue_forCharacteristic_type(
      NSData{7}, command, CBCharacteristicWriteType::CBCharacteristicWriteWithResponse);
  loop_->runFor(1s);
  ASSERT_EQ(reader_->writes().size(), 1U);
  EXPECT_EQ(reader_->writes()[0].value, NSData{7});
}

TEST_F(CoreBluetoothRadioTest, NothingIsAskedOfTheSystemWithoutPower) {
  const auto central = makeCentral();
  central->scanForPeripheralsWithServices_options(std::nullopt, std::nullopt);
  air_->simulateState(CBManagerState::poweredOff);
  loop_->runFor(1s);
  const auto before = standin::requests().size();
  central->stopScan();
  central->scanForPeripheralsWithServices_options(std::nullopt, std::nullopt);
  central->stopScan();
  EXPECT_EQ(standin::requests().size(), before);
}

TEST_F(CoreBluetoothRadioTest, WhatTheSystemRefusesByAnExceptionIsALineInTheLog) {
  const auto central = makeCentral();
  standin::raiseAt("scanForPeripheralsWithServices:options:");
  central->scanForPeripheralsWithServices_options(std::nullopt, std::nullopt);
  EXPECT_EQ(refusals(), 1);
  standin::raiseAt("stopScan");
  central->stopScan();
  EXPECT_EQ(refusals(), 2);
  standin::raiseAt("connectPeripheral:options:");
  const auto peripheral = find(*central);
  ASSERT_NE(peripheral, nullptr);
  connect(*central, peripheral);
  EXPECT_EQ(refusals(), 3);
  standin::raiseAt(std::nullopt);
  ASSERT_TRUE(waitFor(EventKind::connected)) << "it is tried again";
  standin::raiseAt("discoverServices:");
  peripheral->discoverServices(std::nullopt);
  EXPECT_EQ(refusals(), 4);
  standin::raiseAt(std::nullopt);
  const auto command = findCommand(*peripheral);
  ASSERT_NE(command, nullptr);
  for (const char* selector :
       {"readValueForCharacteristic:", "setNotifyValue:forCharacteristic:",
        "writeValue:forCharacteristic:type:", "discoverCharacteristics:forService:"}) {
    standin::raiseAt(selector);
    peripheral->readValueForCharacteristic(command);
    peripheral->setNotifyValue_forCharacteristic(true, command);
    peripheral->writeValue_forCharacteristic_type(
        NSData{1}, command, CBCharacteristicWriteType::CBCharacteristicWriteWithResponse);
    peripheral->discoverCharacteristics_forService(std::nullopt, peripheral->services()->front());
  }
  EXPECT_EQ(refusals(), 8);
  standin::raiseAt("cancelPeripheralConnection:");
  central->cancelPeripheralConnection(peripheral);
  EXPECT_EQ(refusals(), 9);
  standin::raiseAt(std::nullopt);
}

TEST_F(CoreBluetoothRadioTest, ARequestThatTheSystemRefusesIsAnsweredAtTheEndOfItsLink) {
  const auto central = makeCentral();
  const auto peripheral = find(*central);
  ASSERT_NE(peripheral, nullptr);
  connect(*central, peripheral);
  ASSERT_TRUE(waitFor(EventKind::connected));
  const auto command = findCommand(*peripheral);
  ASSERT_NE(command, nullptr);
  recorder_->clear();
  standin::raiseAt("readValueForCharacteristic:");
  peripheral->readValueForCharacteristic(command);
  standin::raiseAt(std::nullopt);
  reader_->simulateLinkLoss();
  ASSERT_TRUE(waitFor(EventKind::disconnected));
  ASSERT_EQ(recorder_->count(EventKind::value), 1U);
  EXPECT_TRUE(recorder_->events(EventKind::value)[0].error);
}

TEST_F(CoreBluetoothRadioTest, ValuesAreWrittenInTheWayThatIsAskedFor) {
  const auto central = makeCentral();
  const auto peripheral = find(*central);
  ASSERT_NE(peripheral, nullptr);
  connect(*central, peripheral);
  ASSERT_TRUE(waitFor(EventKind::connected));
  const auto command = findCommand(*peripheral);
  ASSERT_NE(command, nullptr);
  for (const auto type : {CBCharacteristicWriteType::CBCharacteristicWriteWithResponse,
                          CBCharacteristicWriteType::CBCharacteristicWriteWithoutResponse}) {
    peripheral->writeValue_forCharacteristic_type(NSData{1}, command, type);
  }
  loop_->runFor(1s);
  const auto writes = reader_->writes();
  ASSERT_EQ(writes.size(), 2U);
  EXPECT_EQ(writes[0].type, CBCharacteristicWriteType::CBCharacteristicWriteWithResponse);
  EXPECT_EQ(writes[1].type, CBCharacteristicWriteType::CBCharacteristicWriteWithoutResponse);
}

TEST_F(CoreBluetoothRadioTest, TheSystemAsksForBluetoothOnlyWhereThatIsWanted) {
  makeCentral();
  EXPECT_EQ(standin::managerOptions().find("ShowPowerAlert"), std::string::npos);
  use({}, {.showsPowerAlert = true});
  makeCentral();
  EXPECT_NE(standin::managerOptions().find("ShowPowerAlert"), std::string::npos);
}

TEST_F(CoreBluetoothRadioTest, NothingOfTheSystemIsKeptBeyondTheRadio) {
  {
    ::NSAutoreleasePool* const pool = [[::NSAutoreleasePool alloc] init];
    const auto first = makeCentral();
    const auto second = makeCentral();
    const auto peripheral = find(*first);
    ASSERT_NE(peripheral, nullptr);
    connect(*first, peripheral);
    connect(*second, peripheral);
    EXPECT_TRUE(waitFor(EventKind::connected, 2));
    EXPECT_NE(findCommand(*peripheral), nullptr);
    EXPECT_EQ(standin::liveManagers(), 2);
    EXPECT_GE(standin::livePeripherals(), 2);
    radio_.reset();
    [pool release];
  }
  recorder_->clear();
  EXPECT_EQ(standin::liveManagers(), 0);
  EXPECT_EQ(standin::livePeripherals(), 0);
}

TEST_F(CoreBluetoothRadioTest, EachDeviceHasTwoObjectsThatStandForEachOther) {
  const auto central = makeCentral();
  const auto peripheral = find(*central);
  ASSERT_NE(peripheral, nullptr);
  ::CBPeripheral* const device = deviceOf(peripheral);
  ASSERT_NE(device, nil);
  EXPECT_EQ(peripheralOf(*radio_, device), peripheral);
  EXPECT_EQ(text([[device identifier] UUIDString]), peripheral->identifier());
  EXPECT_EQ(peripheralOf(*radio_, nil), nullptr);
  EXPECT_EQ(peripheralOf(*air_, device), nullptr) << "another radio's";
  EXPECT_EQ(deviceOf(nullptr), nil);
}

TEST_F(CoreBluetoothRadioTest, ADeviceOfAnotherRadioOfThisKindIsIgnored) {
  const auto central = makeCentral();
  const auto peripheral = find(*central);
  ASSERT_NE(peripheral, nullptr);
  const auto other = makeRadio(loop_)->initWithDelegate_queue(recorder_, nullptr);
  loop_->runFor(100ms);
  recorder_->clear();
  connect(*other, peripheral);
  loop_->runFor(5s);
  EXPECT_EQ(asked("connectPeripheral:options:"), 0);
  EXPECT_EQ(recorder_->count(), 0U);
  EXPECT_FALSE(reader_->connected());
}

TEST_F(CoreBluetoothRadioTest, TextIsTakenWholeAndAnythingButTextIsShownAsItsBytes) {
  const std::string zero("a\0b", 3);
  EXPECT_EQ(text(string(zero)), zero);
  EXPECT_EQ(text(string("Lesegerät")), "Lesegerät");
  EXPECT_EQ(text(string("a\xFF")), "a\\xFF");
  EXPECT_EQ(text(nil), "");
  const unichar half = 0xD800;
  EXPECT_EQ(text([::NSString stringWithCharacters:&half length:1]), "");
}

TEST_F(CoreBluetoothRadioTest, BytesAndErrorsStayWhatTheyAre) {
  EXPECT_EQ(data(data(NSData{1, 2, 3})), (NSData{1, 2, 3}));
  EXPECT_EQ(data(data(NSData())), NSData());
  EXPECT_EQ(data(static_cast<::NSData*>(nil)), std::nullopt);
  EXPECT_EQ(error(nil), std::nullopt);
  ::NSError* const failure = [::NSError errorWithDomain:@"D"
                                                   code:-3
                                               userInfo:@{NSLocalizedDescriptionKey : @"why"}];
  EXPECT_EQ(error(failure), (NSError{"D", -3, "why"}));
}

}  // namespace
}  // namespace kestrin::corebluetooth
