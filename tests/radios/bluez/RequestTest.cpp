#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "radios/bluez/BluezRadioTest.h"

namespace kestrin::bluez::test {
namespace {

using sdbus::Variant;
using Values = std::vector<NSData>;

class BluezRequest : public BluezRadioTest {
 protected:
  void write(const NSData& value) {
    reader().writeValue_forCharacteristic_type(
        value, tx, CBCharacteristicWriteType::CBCharacteristicWriteWithResponse);
  }
  bool written(std::size_t number) {
    return waitFor([&] { return daemon->writes().size() >= number; });
  }
  std::optional<NSError> lastState() {
    return recorder->events(EventKind::notificationState).back().error;
  }
  /// One of each request that has an answer.
  void askForEverything() {
    reader().discoverServices(std::nullopt);
    reader().discoverCharacteristics_forService(std::nullopt, reader().services()->front());
    reader().readValueForCharacteristic(rx);
    reader().setNotifyValue_forCharacteristic(true, rx);
    reader().setNotifyValue_forCharacteristic(false, rx);
    write(NSData{1});
  }
  /// From here on the kinds of the events, in their order, go to `kinds`, and those of the ones
  /// that had an error to `failures`.
  void followEvents() {
    recorder->onEvent = [this](const Event& event) {
      kinds.push_back(event.kind);
      if (event.error) failures.push_back(event.kind);
    };
  }

  using Kinds = std::vector<EventKind>;
  Kinds kinds;
  Kinds failures;
};

TEST_F(BluezRequest, ServicesAreAnsweredOnlyWhenTheyAreResolved) {
  ASSERT_NO_FATAL_FAILURE(connect());
  peripheral->discoverServices(std::nullopt);
  daemon->putServices();
  settle();
  EXPECT_EQ(count(EventKind::services), 0U);
  daemon->changeDevice({{"ServicesResolved", Variant(true)}});
  ASSERT_TRUE(waitForCount(EventKind::services, 1));
  EXPECT_FALSE(recorder->events(EventKind::services)[0].error);
  EXPECT_EQ(peripheral->services()->size(), 1U);
}

TEST_F(BluezRequest, ServicesThatWereNeverAnnouncedAreFoundByAsking) {
  ASSERT_NO_FATAL_FAILURE(connect());
  daemon->run([](BusService& service) {
    service.putQuietly(kServicePath,
                       {{kServiceInterface, {{"UUID", Variant(std::string("fff0"))}}}});
  });
  daemon->changeDevice({{"ServicesResolved", Variant(true)}});
  peripheral->discoverServices(std::nullopt);
  ASSERT_TRUE(waitForCount(EventKind::services, 1));
  ASSERT_EQ(peripheral->services()->size(), 1U);
  EXPECT_EQ(peripheral->services()->front()->UUID().UUIDString(), "FFF0");
}

TEST_F(BluezRequest, ResolvedWithoutObjectsIsAnError) {
  ASSERT_NO_FATAL_FAILURE(connect());
  daemon->changeDevice({{"ServicesResolved", Variant(true)}});
  peripheral->discoverServices(std::nullopt);
  ASSERT_TRUE(waitForCount(EventKind::services, 1));
  ASSERT_TRUE(recorder->events(EventKind::services)[0].error);
  EXPECT_FALSE(recorder->events(EventKind::services)[0].error->localizedDescription().empty());
  EXPECT_FALSE(peripheral->services());
}

TEST_F(BluezRequest, AnUnansweredDiscoveryEndsWithItsLink) {
  ASSERT_NO_FATAL_FAILURE(connect());
  peripheral->discoverServices(std::nullopt);
  settle();
  daemon->dropLink();
  ASSERT_TRUE(waitForCount(EventKind::disconnected, 1));
  ASSERT_EQ(count(EventKind::services), 1U);
  EXPECT_TRUE(recorder->events(EventKind::services)[0].error);
}

TEST_F(BluezRequest, NotifiedValuesComeInOrderEmptyOnesToo) {
  ASSERT_NO_FATAL_FAILURE(linkUp());
  subscribe();
  EXPECT_FALSE(lastState());
  const Values sent{NSData{1}, NSData(), NSData{2, 3}, NSData(), NSData{1}, NSData{1}};
  for (const auto& value : sent) daemon->notify(value);
  ASSERT_TRUE(waitForCount(EventKind::value, sent.size()));
  settle();
  EXPECT_EQ(values(), sent);
  EXPECT_EQ(count(EventKind::disconnected), 0U) << "an empty value is not a hang-up";
}

class BluezNoDescriptor : public BluezRequest, public testing::WithParamInterface<const char*> {};

TEST_P(BluezNoDescriptor, LetsValuesComeBySignal) {
  ASSERT_NO_FATAL_FAILURE(linkUp());
  daemon->next("AcquireNotify", StandInDaemon::fails(std::string("org.bluez.Error.") + GetParam()));
  subscribe();
  EXPECT_FALSE(lastState());
  ASSERT_EQ(daemon->count("StartNotify"), 1U);
  const Values sent{NSData{1}, NSData(), NSData{1}, NSData{1}};
  for (const auto& value : sent) daemon->notify(value);
  ASSERT_TRUE(waitForCount(EventKind::value, sent.size()));
  settle();
  EXPECT_EQ(values(), sent);
}

INSTANTIATE_TEST_SUITE_P(Because, BluezNoDescriptor,
                         testing::Values("NotSupported", "NotPermitted", "InProgress"),
                         [](const auto& one) { return std::string(one.param); });

TEST_F(BluezRequest, ASubscriptionOfAnotherProgramIsSharedAndTakenOverWhenItEnds) {
  ASSERT_NO_FATAL_FAILURE(linkUp());
  const auto notifying = [this](bool on) {
    daemon->run([&](BusService& service) {
      service.change(kRxPath, kCharacteristicInterface, {{"Notifying", Variant(on)}});
    });
  };
  notifying(true);
  daemon->next("AcquireNotify", StandInDaemon::fails("org.bluez.Error.InProgress"));
  subscribe();
  EXPECT_FALSE(lastState());
  EXPECT_EQ(daemon->count("StartNotify"), 0U) << "asking too would double every value";
  notifying(false);
  ASSERT_TRUE(waitFor([&] { return daemon->count("AcquireNotify") == 2; }));
  daemon->notify(NSData{5});
  ASSERT_TRUE(waitForCount(EventKind::value, 1));
  EXPECT_EQ(count(EventKind::notificationState), 1U) << "nobody asked for the second one";
}

TEST_F(BluezRequest, ARefusedSubscriptionIsAnsweredWithTheError) {
  ASSERT_NO_FATAL_FAILURE(linkUp());
  daemon->next("AcquireNotify", StandInDaemon::fails("org.bluez.Error.NotSupported"));
  daemon->next("StartNotify", StandInDaemon::fails("org.bluez.Error.Failed",
                                                   "Operation failed with ATT error: 0x05"));
  subscribe();
  ASSERT_TRUE(lastState());
  EXPECT_EQ(lastState()->domain, CBATTErrorDomain);
  EXPECT_EQ(lastState()->code, 5);
  daemon->next("AcquireNotify", StandInDaemon::fails("org.bluez.Error.Failed", "Not connected"));
  subscribe();
  ASSERT_TRUE(lastState());
  EXPECT_EQ(daemon->count("StartNotify"), 1U);
  subscribe();
  EXPECT_FALSE(lastState()) << "a later try may work";
  EXPECT_EQ(count(EventKind::notificationState), 3U);
}

TEST_F(BluezRequest, AnAnswerWithoutADescriptorIsAnError) {
  ASSERT_NO_FATAL_FAILURE(linkUp());
  daemon->next("AcquireNotify", [](const sdbus::MethodCall& call) { call.createReply().send(); });
  subscribe();
  EXPECT_TRUE(lastState());
}

TEST_F(BluezRequest, SubscribingTwiceAsksTheDaemonOnceAndIsAnsweredTwice) {
  ASSERT_NO_FATAL_FAILURE(linkUp());
  subscribe();
  subscribe();
  EXPECT_EQ(daemon->count("AcquireNotify"), 1U);
  EXPECT_EQ(count(EventKind::notificationState), 2U);
}

TEST_F(BluezRequest, WritesGoOutOneAfterAnother) {
  ASSERT_NO_FATAL_FAILURE(linkUp());
  daemon->next("WriteValue", StandInDaemon::silence());
  for (std::uint8_t number = 1; number <= 3; ++number) write(NSData{number});
  write(NSData());
  ASSERT_TRUE(waitFor([&] { return daemon->count("WriteValue") == 1; }));
  settle();
  EXPECT_EQ(daemon->count("WriteValue"), 1U) << "the first one has not been answered";
  daemon->answerHeld("WriteValue");
  ASSERT_TRUE(written(4));
  EXPECT_EQ(daemon->writes(), Values({NSData{1}, NSData{2}, NSData{3}, NSData()}));
  EXPECT_EQ(daemon->options(), "type=request ");
}

TEST_F(BluezRequest, AnAbsentValueSendsNothing) {
  ASSERT_NO_FATAL_FAILURE(linkUp());
  reader().writeValue_forCharacteristic_type(
      std::nullopt, tx, CBCharacteristicWriteType::CBCharacteristicWriteWithResponse);
  write(NSData{1});
  ASSERT_TRUE(written(1));
  EXPECT_EQ(daemon->writes(), Values({NSData{1}}));
}

TEST_F(BluezRequest, AWriteThatTheReaderRefusesIsTakenQuietlyAndTheNextGoesOut) {
  ASSERT_NO_FATAL_FAILURE(linkUp());
  daemon->next("WriteValue", StandInDaemon::fails("org.bluez.Error.Failed",
                                                  "Operation failed with ATT error: 0x80"));
  const auto before = recorder->count();
  write(NSData{1});
  write(NSData{2});
  ASSERT_TRUE(written(1));
  settle();
  EXPECT_EQ(daemon->writes(), Values({NSData{2}}));
  EXPECT_EQ(recorder->count(), before) << "nobody is told";
}

TEST_F(BluezRequest, AWriteThatIsNeverAnsweredHoldsTheOthersUpForALimitedTime) {
  ASSERT_NO_FATAL_FAILURE(linkUp());
  daemon->next("WriteValue", StandInDaemon::silence());
  write(NSData{1});
  write(NSData{2});
  ASSERT_TRUE(waitFor([&] { return daemon->count("WriteValue") == 1; }));
  ASSERT_NO_FATAL_FAILURE(pass(64s));
  EXPECT_TRUE(daemon->writes().empty());
  ASSERT_NO_FATAL_FAILURE(pass(1s));
  EXPECT_EQ(daemon->writes(), Values({NSData{2}}));
}

TEST_F(BluezRequest, AReadGivesOneValueAlthoughTheDaemonSignalsItToo) {
  ASSERT_NO_FATAL_FAILURE(linkUp());
  reader().readValueForCharacteristic(rx);
  ASSERT_TRUE(waitForCount(EventKind::value, 1));
  settle();
  EXPECT_EQ(values(), Values({NSData{0xab, 0xcd}}));
}

TEST_F(BluezRequest, AReadBesidesSignalledValuesGivesEachOnce) {
  ASSERT_NO_FATAL_FAILURE(linkUp());
  daemon->next("AcquireNotify", StandInDaemon::fails("org.bluez.Error.NotSupported"));
  subscribe();
  daemon->next("ReadValue", StandInDaemon::silence());
  reader().readValueForCharacteristic(rx);
  ASSERT_TRUE(waitFor([&] { return daemon->count("ReadValue") == 1; }));
  daemon->notify(NSData{1});
  daemon->answerHeld("ReadValue");
  ASSERT_TRUE(waitForCount(EventKind::value, 2));
  settle();
  EXPECT_EQ(values(), Values({NSData{1}, NSData{0xab, 0xcd}}));
}

TEST_F(BluezRequest, AFailedReadIsOneEventWithAnError) {
  ASSERT_NO_FATAL_FAILURE(linkUp());
  daemon->next("ReadValue", StandInDaemon::fails("org.bluez.Error.Failed",
                                                 "Operation failed with ATT error: 0x02"));
  reader().readValueForCharacteristic(rx);
  ASSERT_TRUE(waitForCount(EventKind::value, 1));
  ASSERT_TRUE(recorder->events(EventKind::value)[0].error);
  EXPECT_EQ(recorder->events(EventKind::value)[0].error->code, 2);
}

TEST_F(BluezRequest, WhatIsUnansweredWhenTheLinkEndsIsAnsweredWithAnError) {
  ASSERT_NO_FATAL_FAILURE(linkUp());
  daemon->always("ReadValue", StandInDaemon::silence());
  reader().readValueForCharacteristic(rx);
  reader().setNotifyValue_forCharacteristic(true, rx);
  reader().readValueForCharacteristic(rx);
  ASSERT_TRUE(waitFor([&] { return daemon->count("ReadValue") == 1; }));
  daemon->dropLink();
  ASSERT_TRUE(waitForCount(EventKind::disconnected, 1));
  settle();
  EXPECT_EQ(count(EventKind::value), 2U);
  EXPECT_EQ(count(EventKind::notificationState), 1U);
  EXPECT_TRUE(lastState());
}

TEST_F(BluezRequest, WhatIsAskedForAfterTheLinksEndIsAnsweredOnceBeforeThatEndIsTold) {
  ASSERT_NO_FATAL_FAILURE(linkUp());
  followEvents();
  daemon->dropLink();
  // The radio knows that the link has ended, the application does not.
  ASSERT_NO_FATAL_FAILURE(exchange());
  askForEverything();
  ASSERT_NO_FATAL_FAILURE(exchange());
  ASSERT_TRUE(waitForCount(EventKind::disconnected, 1));
  settle();
  const Kinds expected{
      EventKind::services,          EventKind::characteristics,   EventKind::value,
      EventKind::notificationState, EventKind::notificationState, EventKind::disconnected};
  EXPECT_EQ(kinds, expected);
  EXPECT_EQ(failures, expected) << "each with the reason of the link's end";
  EXPECT_TRUE(daemon->writes().empty());
}

TEST_F(BluezRequest, WhatIsAskedForOnALinkThatWasGivenUpIsAnsweredOnceBeforeItsEndIsTold) {
  ASSERT_NO_FATAL_FAILURE(linkUp());
  followEvents();
  daemon->next("Disconnect", StandInDaemon::silence());
  central->cancelPeripheralConnection(peripheral);
  ASSERT_NO_FATAL_FAILURE(exchange());
  askForEverything();
  settle();
  EXPECT_EQ(kinds, Kinds());
  daemon->dropLink();
  ASSERT_TRUE(waitForCount(EventKind::disconnected, 1));
  settle();
  Kinds expected{EventKind::services, EventKind::characteristics, EventKind::value,
                 EventKind::notificationState, EventKind::notificationState};
  EXPECT_EQ(failures, expected);
  expected.push_back(EventKind::disconnected);
  EXPECT_EQ(kinds, expected);
}

TEST_F(BluezRequest, AnAnswerAtTheLinksEndThatAsksAgainIsTheLastOne) {
  ASSERT_NO_FATAL_FAILURE(linkUp());
  daemon->dropLink();
  ASSERT_NO_FATAL_FAILURE(exchange());
  recorder->onEvent = [this](const Event& event) {
    if (event.kind == EventKind::value) reader().readValueForCharacteristic(rx);
  };
  reader().readValueForCharacteristic(rx);
  ASSERT_TRUE(waitForCount(EventKind::disconnected, 1));
  settle();
  EXPECT_EQ(count(EventKind::value), 1U);
}

TEST_F(BluezRequest, TwoThousandValuesWaitForAReceiverThatIsBusy) {
  constexpr std::size_t kValues = 2000;
  ASSERT_NO_FATAL_FAILURE(linkUp());
  subscribe();
  // The main loop does not turn while all of them are sent, more than the descriptor holds.
  for (std::size_t number = 0; number < kValues; ++number) {
    daemon->notify(
        NSData{static_cast<std::uint8_t>(number >> 8), static_cast<std::uint8_t>(number)});
  }
  ASSERT_TRUE(waitForCount(EventKind::value, kValues));
  settle();
  const auto all = values();
  ASSERT_EQ(all.size(), kValues);
  for (std::size_t number = 0; number < kValues; ++number) {
    ASSERT_EQ(std::size_t{all[number].bytes()[0]} << 8 | all[number].bytes()[1], number);
  }
}

}  // namespace
}  // namespace kestrin::bluez::test
