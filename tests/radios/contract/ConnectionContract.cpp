// How links and attempts begin and end.
#include "radios/contract/RadioContract.h"

namespace kestrin::test {
namespace {

/// A peripheral that no radio made.
class ForeignPeripheral final : public CBPeripheral {
 public:
  [[nodiscard]] std::string identifier() const override { return "foreign"; }
  [[nodiscard]] std::optional<std::string> name() const override { return std::nullopt; }
  void setDelegate(std::weak_ptr<CBPeripheralDelegate>) override {}
  void discoverServices(const std::optional<std::vector<CBUUID>>&) override {}
  [[nodiscard]] std::optional<std::vector<std::shared_ptr<CBService>>> services() const override {
    return std::nullopt;
  }
  void discoverCharacteristics_forService(const std::optional<std::vector<CBUUID>>&,
                                          const std::shared_ptr<CBService>&) override {}
  void readValueForCharacteristic(const std::shared_ptr<CBCharacteristic>&) override {}
  void setNotifyValue_forCharacteristic(bool, const std::shared_ptr<CBCharacteristic>&) override {}
  void writeValue_forCharacteristic_type(const std::optional<NSData>&,
                                         const std::shared_ptr<CBCharacteristic>&,
                                         CBCharacteristicWriteType) override {}
};

TEST_P(RadioContract, AConnectionIsReportedOnce) {
  const auto central = makePoweredCentral();
  const auto reader = findReader(*central);
  ASSERT_NE(reader, nullptr);
  ASSERT_TRUE(connectAndWait(*central, reader));
  EXPECT_TRUE(bed().readerIsLinked());
  bed().settle();
  ASSERT_EQ(count(EventKind::connected), 1U);
  EXPECT_EQ(events(EventKind::connected)[0].peripheral, reader);
  EXPECT_EQ(events(EventKind::connected)[0].central, central.get());
  EXPECT_EQ(count(EventKind::disconnected), 0U);
}

TEST_P(LinkedRadioContract, ALostLinkIsReportedOnceWithAnError) {
  bed().dropLink();
  ASSERT_TRUE(waitFor(EventKind::disconnected));
  bed().settle();
  const auto reports = events(EventKind::disconnected);
  ASSERT_EQ(reports.size(), 1U);
  EXPECT_EQ(reports[0].peripheral, reader);
  ASSERT_TRUE(reports[0].error);
  EXPECT_NE(reports[0].error->localizedDescription(), "");
  EXPECT_EQ(count(EventKind::connected), 0U) << "nobody asked for another link";
}

TEST_P(LinkedRadioContract, AVanishedReadersLinkIsReportedLostOnce) {
  bed().vanish();
  ASSERT_TRUE(waitFor(EventKind::disconnected));
  bed().settle();
  ASSERT_EQ(count(EventKind::disconnected), 1U);
  EXPECT_TRUE(events(EventKind::disconnected)[0].error);
}

TEST_P(LinkedRadioContract, CancellingALinkIsReportedOnceWithoutAnError) {
  cancel(*central, reader);
  cancel(*central, reader);
  ASSERT_TRUE(waitFor(EventKind::disconnected));
  cancel(*central, reader);
  bed().settle();
  ASSERT_EQ(count(EventKind::disconnected), 1U);
  EXPECT_EQ(events(EventKind::disconnected)[0].error, std::nullopt);
  EXPECT_FALSE(bed().readerIsLinked());
}

TEST_P(RadioContract, CancellingAPendingAttemptIsReportedOnceWithoutAnError) {
  const auto central = makePoweredCentral();
  const auto reader = findReader(*central);
  ASSERT_NE(reader, nullptr);
  bed().vanish();
  connect(*central, reader);
  bed().settle();
  EXPECT_EQ(recorder().count(), 0U) << "an attempt never fails by itself";
  cancel(*central, reader);
  cancel(*central, reader);
  ASSERT_TRUE(waitFor(EventKind::disconnected));
  bed().appear();
  bed().settle();
  ASSERT_EQ(recorder().count(), 1U);
  EXPECT_EQ(events(EventKind::disconnected)[0].error, std::nullopt);
  EXPECT_FALSE(bed().readerIsLinked());
}

TEST_P(RadioContract, CancellingRightAfterConnectingGivesNoLink) {
  const auto central = makePoweredCentral();
  const auto reader = findReader(*central);
  ASSERT_NE(reader, nullptr);
  connect(*central, reader);
  cancel(*central, reader);
  ASSERT_TRUE(waitFor(EventKind::disconnected));
  bed().settle();
  EXPECT_EQ(recorder().count(), 1U);
  EXPECT_FALSE(bed().readerIsLinked());
}

TEST_P(RadioContract, CancellingNeitherLinkNorAttemptIsNotReported) {
  const auto central = makePoweredCentral();
  const auto reader = findReader(*central);
  ASSERT_NE(reader, nullptr);
  cancel(*central, reader);
  bed().settle();
  EXPECT_EQ(recorder().count(), 0U);
}

TEST_P(RadioContract, AnAttemptFindsAReaderThatAppearsLater) {
  const auto central = makePoweredCentral();
  const auto reader = findReader(*central);
  ASSERT_NE(reader, nullptr);
  bed().vanish();
  connect(*central, reader);
  bed().settle();
  ASSERT_EQ(count(EventKind::connected), 0U);
  bed().appear();
  ASSERT_TRUE(waitFor(EventKind::connected));
  EXPECT_TRUE(bed().readerIsLinked());
  EXPECT_EQ(count(EventKind::sighting), 0U) << "what the radio discovers for itself is private";
}

TEST_P(RadioContract, AnAttemptIsMadeAgainForAsLongAsItTakes) {
  const auto central = makePoweredCentral();
  const auto reader = findReader(*central);
  ASSERT_NE(reader, nullptr);
  bed().vanish();
  connect(*central, reader);
  // Longer than any one attempt lasts.
  for (int i = 0; i < 12; ++i) bed().settle();
  EXPECT_EQ(recorder().count(), 0U);
  bed().appear();
  ASSERT_TRUE(waitFor(EventKind::connected));
  bed().settle();
  EXPECT_EQ(recorder().count(), 1U);
}

TEST_P(RadioContract, APendingAttemptDoesNotHoldUpAScan) {
  const auto central = makePoweredCentral();
  const auto reader = findReader(*central);
  ASSERT_NE(reader, nullptr);
  bed().vanish();
  connect(*central, reader);
  bed().settle();
  scan(*central);
  // Another peripheral than the one that is waited for.
  ASSERT_TRUE(waitFor(EventKind::sighting));
  EXPECT_NE(events(EventKind::sighting)[0].peripheral, reader);
}

TEST_P(RadioContract, AnAttemptWaitsOutARadioThatIsSwitchedOff) {
  const auto central = makePoweredCentral();
  const auto reader = findReader(*central);
  ASSERT_NE(reader, nullptr);
  bed().vanish();
  connect(*central, reader);
  bed().switchOff();
  bed().appear();
  bed().settle();
  EXPECT_EQ(count(EventKind::connected), 0U);
  EXPECT_EQ(count(EventKind::disconnected), 0U);
  bed().switchOn();
  ASSERT_TRUE(waitFor(EventKind::connected));
  EXPECT_EQ(count(EventKind::disconnected), 0U);
}

TEST_P(RadioContract, AnAttemptMadeWhileSwitchedOffGoesOnWhenSwitchedOn) {
  const auto central = makePoweredCentral();
  const auto reader = findReader(*central);
  ASSERT_NE(reader, nullptr);
  bed().switchOff();
  ASSERT_TRUE(waitFor(EventKind::state));
  connect(*central, reader);
  bed().settle();
  EXPECT_EQ(count(EventKind::connected), 0U);
  bed().switchOn();
  EXPECT_TRUE(waitFor(EventKind::connected));
}

TEST_P(LinkedRadioContract, SwitchingOffEndsALinkWithOneReportAndItStaysEnded) {
  bed().switchOff();
  ASSERT_TRUE(waitFor(EventKind::disconnected));
  ASSERT_TRUE(waitFor(EventKind::state));
  bed().switchOn();
  ASSERT_TRUE(waitFor(EventKind::state, 2));
  bed().settle();
  ASSERT_EQ(count(EventKind::disconnected), 1U);
  EXPECT_TRUE(events(EventKind::disconnected)[0].error);
  EXPECT_EQ(count(EventKind::connected), 0U);
  EXPECT_FALSE(bed().readerIsLinked());
}

TEST_P(LinkedRadioContract, ALinkCanBeMadeAgainAfterEachEnd) {
  bed().dropLink();
  ASSERT_TRUE(waitFor(EventKind::disconnected, 1));
  ASSERT_TRUE(connectAndWait(*central, reader));
  cancel(*central, reader);
  ASSERT_TRUE(waitFor(EventKind::disconnected, 2));
  ASSERT_TRUE(connectAndWait(*central, reader));
  EXPECT_TRUE(bed().readerIsLinked());
}

TEST_P(LinkedRadioContract, ConnectingFromInsideTheDisconnectionReportMakesANewLink) {
  recorder().onEvent = [&](const Event& event) {
    if (event.kind == EventKind::disconnected) connect(*central, reader);
  };
  bed().dropLink();
  ASSERT_TRUE(waitFor(EventKind::connected));
  EXPECT_EQ(count(EventKind::disconnected), 1U);
}

TEST_P(LinkedRadioContract, CancellingAndConnectingAtOnceGivesOneReportAndThenANewLink) {
  cancel(*central, reader);
  connect(*central, reader);
  ASSERT_TRUE(waitFor(EventKind::connected));
  bed().settle();
  EXPECT_EQ(count(EventKind::connected), 1U);
  EXPECT_EQ(count(EventKind::disconnected), 1U);
  EXPECT_TRUE(bed().readerIsLinked());
}

TEST_P(LinkedRadioContract, AnotherCentralManagerSharesTheLinkAndEachHearsOfItsEndOnce) {
  const auto other = makePoweredCentral();
  ASSERT_TRUE(connectAndWait(*other, reader));
  EXPECT_EQ(events(EventKind::connected)[0].central, other.get());
  bed().dropLink();
  ASSERT_TRUE(waitFor(EventKind::disconnected, 2));
  bed().settle();
  const auto reports = events(EventKind::disconnected);
  ASSERT_EQ(reports.size(), 2U);
  EXPECT_NE(reports[0].central, reports[1].central);
}

TEST_P(LinkedRadioContract, AskingAgainForASharedLinkIsReportedOnlyAfterTheEndOfTheFirstRequest) {
  const auto other = makePoweredCentral();
  std::vector<EventKind> order;
  recorder().onEvent = [&](const Event& event) { order.push_back(event.kind); };
  connect(*other, reader);
  cancel(*other, reader);
  connect(*other, reader);
  bed().settle();
  ASSERT_FALSE(order.empty());
  EXPECT_EQ(order.back(), EventKind::connected);
  // The first request may have been told of the link before it was given up.
  if (order.front() == EventKind::connected) order.erase(order.begin());
  EXPECT_EQ(order, (std::vector<EventKind>{EventKind::disconnected, EventKind::connected}));
}

TEST_P(RadioContract, AbsentAndForeignPeripheralsAreIgnored) {
  const auto central = makePoweredCentral();
  const auto foreign = std::make_shared<ForeignPeripheral>();
  connect(*central, nullptr);
  cancel(*central, nullptr);
  connect(*central, foreign);
  cancel(*central, foreign);
  bed().settle();
  EXPECT_EQ(recorder().count(), 0U);
}

}  // namespace
}  // namespace kestrin::test
