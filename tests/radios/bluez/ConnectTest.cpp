#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "radios/bluez/BluezRadioTest.h"

namespace kestrin::bluez::test {
namespace {

using sdbus::Variant;

class BluezConnect : public BluezRadioTest {
 protected:
  void ask() { central->connectPeripheral_options(peripheral, std::nullopt); }
  void cancel() { central->cancelPeripheralConnection(peripheral); }
  bool connectCalls(std::size_t number) {
    return waitFor([&] { return daemon->count("Connect") >= number; });
  }
  void expectOneDisconnection() {
    ASSERT_TRUE(waitForCount(EventKind::disconnected, 1));
    settle();
    pass(40s);
    EXPECT_EQ(count(EventKind::disconnected), 1U);
  }
  /// The attempt is under way in the daemon, which does not answer.
  void beginAttempt() {
    ASSERT_NO_FATAL_FAILURE(findReader());
    daemon->next("Connect", StandInDaemon::silence());
    ask();
    ASSERT_TRUE(connectCalls(1));
    settle();
    ASSERT_EQ(count(EventKind::connected), 0U);
  }
};

StandInDaemon::Reaction abortedAttempt() {
  return StandInDaemon::fails("org.bluez.Error.Failed", "le-connection-abort-by-local");
}

/// Answers without having signalled anything.
StandInDaemon::Reaction worksWithoutASignal() {
  return [](const sdbus::MethodCall& call) { call.createReply().send(); };
}

TEST_F(BluezConnect, TheAnswerToTheCallIsEvidenceWhenTheSignalIsSwallowed) {
  ASSERT_NO_FATAL_FAILURE(findReader());
  daemon->next("Connect", worksWithoutASignal());
  ask();
  ASSERT_TRUE(waitForCount(EventKind::connected, 1));
  settle();
  EXPECT_EQ(count(EventKind::connected), 1U);
}

TEST_F(BluezConnect, ResolvedServicesAreEvidenceBeforeTheCallIsAnswered) {
  ASSERT_NO_FATAL_FAILURE(beginAttempt());
  resolveServices();
  ASSERT_TRUE(waitForCount(EventKind::connected, 1));
  ASSERT_NO_FATAL_FAILURE(discoverCharacteristics());
  daemon->answerHeld("Connect");
  settle();
  EXPECT_EQ(count(EventKind::connected), 1U);
}

TEST_F(BluezConnect, AnObjectOfTheLinkIsEvidence) {
  ASSERT_NO_FATAL_FAILURE(beginAttempt());
  daemon->putServices();
  EXPECT_TRUE(waitForCount(EventKind::connected, 1));
}

TEST_F(BluezConnect, AFailedAttemptIsRepeatedWithAGrowingPauseUntilItSucceeds) {
  ASSERT_NO_FATAL_FAILURE(findReader());
  for (int times = 0; times < 3; ++times) daemon->next("Connect", abortedAttempt());
  ask();
  ASSERT_TRUE(connectCalls(1));
  settle();
  std::size_t calls = 1;
  for (const Time pause : {Time(500ms), Time(1s), Time(2s)}) {
    ASSERT_NO_FATAL_FAILURE(pass(pause - 1ms));
    EXPECT_EQ(daemon->count("Connect"), calls);
    EXPECT_EQ(count(EventKind::connected), 0U);
    ASSERT_NO_FATAL_FAILURE(pass(1ms));
    EXPECT_EQ(daemon->count("Connect"), ++calls);
  }
  EXPECT_TRUE(waitForCount(EventKind::connected, 1));
  EXPECT_EQ(count(EventKind::disconnected), 0U) << "a failed attempt is not a report";
}

TEST_F(BluezConnect, CancellingAPausedAttemptGivesOneReportAndEndsTheAttempts) {
  ASSERT_NO_FATAL_FAILURE(findReader());
  daemon->always("Connect", abortedAttempt());
  ask();
  ASSERT_TRUE(connectCalls(1));
  settle();
  cancel();
  ASSERT_NO_FATAL_FAILURE(expectOneDisconnection());
  EXPECT_FALSE(recorder->events(EventKind::disconnected)[0].error);
  EXPECT_EQ(daemon->count("Connect"), 1U);
}

TEST_F(BluezConnect, CancellingAnAttemptInTheDaemonGivesOneReport) {
  ASSERT_NO_FATAL_FAILURE(beginAttempt());
  cancel();
  ASSERT_TRUE(waitFor([&] { return daemon->count("Disconnect") == 1; }));
  daemon->answerHeld("Connect");  // It comes too late to count.
  ASSERT_NO_FATAL_FAILURE(expectOneDisconnection());
  EXPECT_EQ(count(EventKind::connected), 0U);
}

TEST_F(BluezConnect, CancellingTwiceOrWithoutAnAttemptGivesNoSecondReport) {
  ASSERT_NO_FATAL_FAILURE(findReader());
  cancel();
  settle();
  EXPECT_EQ(count(EventKind::disconnected), 0U);
  ask();
  ASSERT_TRUE(waitForCount(EventKind::connected, 1));
  cancel();
  cancel();
  ASSERT_NO_FATAL_FAILURE(expectOneDisconnection());
}

TEST_F(BluezConnect, ACallThatIsNeverAnsweredIsGivenUpAndRepeated) {
  ASSERT_NO_FATAL_FAILURE(beginAttempt());
  ASSERT_NO_FATAL_FAILURE(pass(59s));
  EXPECT_EQ(daemon->count("Connect"), 1U) << "the daemon itself takes 42 s to fail";
  ASSERT_NO_FATAL_FAILURE(pass(1s));
  ASSERT_NO_FATAL_FAILURE(pass(500ms));
  EXPECT_EQ(daemon->count("Connect"), 2U);
  EXPECT_TRUE(waitForCount(EventKind::connected, 1));
}

TEST_F(BluezConnect, ADisconnectionThatIsNeverAnsweredIsReportedAllTheSame) {
  ASSERT_NO_FATAL_FAILURE(connect());
  daemon->next("Disconnect", StandInDaemon::silence());
  cancel();
  settle();
  EXPECT_EQ(count(EventKind::disconnected), 0U) << "the link is still up";
  ASSERT_NO_FATAL_FAILURE(pass(35s));
  EXPECT_EQ(count(EventKind::disconnected), 1U);
}

TEST_F(BluezConnect, AnAttemptWaitsOutAnAdapterThatIsOff) {
  ASSERT_NO_FATAL_FAILURE(findReader());
  daemon->changeAdapter({{"Powered", Variant(false)}});
  ASSERT_TRUE(waitForCount(EventKind::state, 2));
  ask();
  settle();
  EXPECT_EQ(daemon->count("Connect"), 0U);
  daemon->changeAdapter({{"Powered", Variant(true)}});
  EXPECT_TRUE(waitForCount(EventKind::connected, 1));
}

TEST_F(BluezConnect, ACallThatSucceedsWhileTheAdapterIsOffMakesNoLink) {
  ASSERT_NO_FATAL_FAILURE(findReader());
  std::optional<sdbus::MethodCall> held;
  daemon->next("Connect", [&held](const sdbus::MethodCall& call) { held = call; });
  ask();
  ASSERT_TRUE(connectCalls(1));
  settle();
  daemon->changeAdapter({{"Powered", Variant(false)}});
  settle();
  daemon->run([&held](BusService&) { held->createReply().send(); });
  settle();
  EXPECT_EQ(count(EventKind::connected), 0U);
  EXPECT_EQ(count(EventKind::disconnected), 0U);
  daemon->changeAdapter({{"Powered", Variant(true)}});
  ASSERT_TRUE(waitForCount(EventKind::connected, 1));
  EXPECT_EQ(daemon->count("Connect"), 2U);
}

TEST_F(BluezConnect, NothingIsEvidenceWhileTheAdapterIsOff) {
  ASSERT_NO_FATAL_FAILURE(beginAttempt());
  daemon->changeAdapter({{"Powered", Variant(false)}});
  settle();
  daemon->putServices();
  settle();
  EXPECT_EQ(count(EventKind::connected), 0U);
  daemon->changeDevice({{"Connected", Variant(true)}});
  settle();
  EXPECT_EQ(count(EventKind::connected), 0U);
}

TEST_F(BluezConnect, AReaderThatTheDaemonHasForgottenIsSearchedForWithoutASighting) {
  ASSERT_NO_FATAL_FAILURE(findReader());
  daemon->removeReader();
  settle();
  const auto before = daemon->count("StartDiscovery");
  ask();
  ASSERT_TRUE(waitFor([&] { return daemon->count("StartDiscovery") == before + 1; }));
  settle();
  EXPECT_EQ(daemon->count("Connect"), 0U);
  daemon->showReader();
  ASSERT_TRUE(waitForCount(EventKind::connected, 1));
  settle();
  EXPECT_EQ(count(EventKind::sighting), 1U) << "only that of the scan";
  EXPECT_EQ(daemon->count("StopDiscovery"), daemon->count("StartDiscovery"));
}

TEST_F(BluezConnect, CancellingASearchGivesOneReportAndEndsIt) {
  ASSERT_NO_FATAL_FAILURE(findReader());
  daemon->removeReader();
  settle();
  ask();
  ASSERT_TRUE(waitFor([&] { return daemon->count("StartDiscovery") == 2; }));
  settle();
  cancel();
  ASSERT_NO_FATAL_FAILURE(expectOneDisconnection());
  EXPECT_EQ(daemon->count("StopDiscovery"), 2U);
}

TEST_F(BluezConnect, ALostLinkIsReportedOnceWhicheverSignalsTellOfIt) {
  ASSERT_NO_FATAL_FAILURE(linkUp());
  subscribe();
  daemon->dropLink();
  daemon->removeReader();
  ASSERT_NO_FATAL_FAILURE(expectOneDisconnection());
  EXPECT_TRUE(recorder->events(EventKind::disconnected)[0].error);
}

TEST_F(BluezConnect, ADescriptorThatHangsUpEndsTheLinkThatTheDaemonStillShows) {
  ASSERT_NO_FATAL_FAILURE(linkUp());
  subscribe();
  daemon->hangUpNotifications();
  ASSERT_NO_FATAL_FAILURE(expectOneDisconnection());
  EXPECT_EQ(daemon->count("Disconnect"), 1U) << "the next attempt would find a dead link";
}

TEST_F(BluezConnect, ServicesThatGoEndTheLink) {
  ASSERT_NO_FATAL_FAILURE(linkUp());
  daemon->run([](BusService& service) { service.remove(kServicePath); });
  ASSERT_NO_FATAL_FAILURE(expectOneDisconnection());
}

TEST_F(BluezConnect, ADeviceThatGoesEndsTheLink) {
  ASSERT_NO_FATAL_FAILURE(connect());
  daemon->removeReader();
  ASSERT_NO_FATAL_FAILURE(expectOneDisconnection());
}

TEST_F(BluezConnect, AnAdapterThatIsSwitchedOffEndsTheLink) {
  ASSERT_NO_FATAL_FAILURE(connect());
  daemon->changeAdapter({{"Powered", Variant(false)}});
  ASSERT_NO_FATAL_FAILURE(expectOneDisconnection());
}

TEST_F(BluezConnect, AfterALostLinkTheNextOneHasObjectsOfItsOwn) {
  ASSERT_NO_FATAL_FAILURE(linkUp());
  subscribe();
  const auto oldTx = tx;
  daemon->dropLink();
  ASSERT_TRUE(waitForCount(EventKind::disconnected, 1));
  EXPECT_FALSE(peripheral->services());
  ask();
  ASSERT_TRUE(waitForCount(EventKind::connected, 2));
  resolveServices();
  ASSERT_NO_FATAL_FAILURE(discoverCharacteristics());
  EXPECT_NE(tx, oldTx);
  EXPECT_FALSE(rx->value());
  reader().writeValue_forCharacteristic_type(NSData{1}, oldTx, {});
  subscribe();
  daemon->notify(NSData{9});
  ASSERT_TRUE(waitForCount(EventKind::value, 1));
  EXPECT_TRUE(daemon->writes().empty()) << "an earlier link's objects reached the reader";
  EXPECT_EQ(rx->value(), NSData{9});
}

TEST_F(BluezConnect, ARadioThatIsMadeAnewWorksADeviceWhoseLinkDiedWithTheEarlierOne) {
  ASSERT_NO_FATAL_FAILURE(linkUp());
  central.reset();
  radio.reset();
  session.reset();
  killDaemon();
  recorder->clear();
  const auto before = peripheral;
  ASSERT_NO_FATAL_FAILURE(linkUp());
  EXPECT_EQ(peripheral, before) << "one object per device for the life of the process";
}

TEST_F(BluezConnect, TheNameStaysThatOfTheAdvertisementForTheLengthOfALink) {
  ASSERT_NO_FATAL_FAILURE(connect());
  daemon->changeDevice({{"Name", Variant(std::string("GAP name"))}});
  settle();
  EXPECT_EQ(peripheral->name(), "KVR-0001");
}

TEST_F(BluezConnect, AConnectedSignalOutOfNowhereConnectsNobody) {
  ASSERT_NO_FATAL_FAILURE(findReader());
  daemon->changeDevice({{"Connected", Variant(true)}, {"ServicesResolved", Variant(true)}});
  settle();
  EXPECT_EQ(count(EventKind::connected), 0U);
}

}  // namespace
}  // namespace kestrin::bluez::test
