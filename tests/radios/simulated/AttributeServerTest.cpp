// What a virtual device answers, receives and notifies.
#include "KestrinBLESDK/RcpFrame.h"
#include "radios/simulated/SimulatedRadioTest.h"

namespace kestrin::simulated {
namespace {

using AttributeServerTest = LinkedReaderTest;

TEST_F(AttributeServerTest, ServiceDiscoveryErrorsAreAnsweredUntilTheyAreTakenBack) {
  reader->simulateServiceDiscoveryError(anError());
  peripheral->discoverServices(std::nullopt);
  peripheral->discoverServices(std::nullopt);
  run();
  reader->simulateServiceDiscoveryError(std::nullopt);
  EXPECT_EQ(peripheral->services(), std::nullopt);
  peripheral->discoverServices(std::nullopt);
  run();
  const auto answers = events(EventKind::services);
  ASSERT_EQ(answers.size(), 3U);
  EXPECT_EQ(answers[0].error, anError());
  EXPECT_EQ(answers[1].error, anError());
  EXPECT_EQ(answers[2].error, std::nullopt);
  EXPECT_EQ(peripheral->services()->size(), 3U);
}

TEST_F(AttributeServerTest, CharacteristicDiscoveryErrorsAreAnswered) {
  peripheral->discoverServices({{readerService(ReaderFamily::standard)}});
  run();
  const auto service = peripheral->services()->front();
  reader->simulateCharacteristicDiscoveryError(anError());
  peripheral->discoverCharacteristics_forService(std::nullopt, service);
  run();
  ASSERT_EQ(count(EventKind::characteristics), 1U);
  EXPECT_EQ(events(EventKind::characteristics)[0].error, anError());
  EXPECT_EQ(service->characteristics(), std::nullopt);
}

TEST_F(AttributeServerTest, AMissingServiceIsMissingFromTheNextLinkOn) {
  reader->simulateMissingService(readerService(ReaderFamily::standard));
  EXPECT_NE(discovered(peripheral, rx), nullptr) << "this link has been made already";
  reader->simulateLinkLoss();
  link();
  EXPECT_EQ(discovered(peripheral, rx), nullptr);
  EXPECT_EQ(peripheral->services()->size(), 2U);
  reader->simulateMissingService(readerService(ReaderFamily::standard), false);
  reader->simulateLinkLoss();
  link();
  EXPECT_NE(discovered(peripheral, rx), nullptr);
}

TEST_F(AttributeServerTest, AMissingCharacteristicIsMissingFromTheNextLinkOn) {
  reader->simulateMissingCharacteristic(tx);
  reader->simulateLinkLoss();
  link();
  EXPECT_EQ(discovered(peripheral, tx), nullptr);
  EXPECT_NE(discovered(peripheral, rx), nullptr);
  reader->simulateMissingCharacteristic(tx, false);
  reader->simulateLinkLoss();
  link();
  EXPECT_NE(discovered(peripheral, tx), nullptr);
}

TEST_F(AttributeServerTest, PropertyMasksHoldFromTheNextLinkOn) {
  reader->simulateProperties(tx, 0x12);
  reader->simulateLinkLoss();
  link();
  EXPECT_EQ(discovered(peripheral, tx)->properties(), 0x12U);
}

TEST_F(AttributeServerTest, AWriteNeedsOneOfTheWriteBits) {
  for (const CBCharacteristicProperties mask : {0x04U, 0x08U, 0x0CU, 0x12U, 0x00U}) {
    SCOPED_TRACE(mask);
    reader->simulateProperties(tx, mask);
    reader->simulateLinkLoss();
    link();
    const std::size_t received = reader->writes().size();
    const std::size_t refused = reader->refusedWrites();
    write(*peripheral, discovered(peripheral, tx), NSData{1});
    run();
    const bool writable = (mask & 0x0C) != 0;
    EXPECT_EQ(reader->writes().size() - received, writable ? 1U : 0U);
    EXPECT_EQ(reader->refusedWrites() - refused, writable ? 0U : 1U);
  }
}

TEST_F(AttributeServerTest, AWriteErrorKeepsWritesFromTheReader) {
  const auto command = discovered(peripheral, tx);
  reader->simulateWriteError(anError());
  write(*peripheral, command, kGetReaderInfo);
  run();
  EXPECT_EQ(reader->writes().size(), 0U);
  EXPECT_EQ(reader->refusedWrites(), 1U);
  reader->simulateWriteError(std::nullopt);
  write(*peripheral, command, kGetReaderInfo);
  run();
  ASSERT_EQ(reader->writes().size(), 1U);
  const ReceivedWrite received = reader->writes()[0];
  EXPECT_EQ(received.characteristic, tx);
  EXPECT_EQ(received.value, kGetReaderInfo);
  EXPECT_EQ(received.type, CBCharacteristicWriteType::CBCharacteristicWriteWithResponse);
  EXPECT_GT(received.at, Time::zero());
  EXPECT_LE(received.at, loop->now());
}

TEST_F(AttributeServerTest, ReadsAreAnsweredWithTheValueOrTheError) {
  const auto name = discovered(peripheral, CBUUID(0x2A00));
  recorder->clear();
  reader->simulateValue(CBUUID(0x2A00), NSData{'X'});
  peripheral->readValueForCharacteristic(name);
  run();
  reader->simulateReadError(anError());
  peripheral->readValueForCharacteristic(name);
  run();
  const auto answers = events(EventKind::value);
  ASSERT_EQ(answers.size(), 2U);
  EXPECT_EQ(answers[0].value, NSData{'X'});
  EXPECT_EQ(answers[0].error, std::nullopt);
  EXPECT_EQ(answers[1].error, anError());
  EXPECT_EQ(name->value(), NSData{'X'}) << "the value persists";
}

TEST_F(AttributeServerTest, TheNameReadFromTheDeviceIsNotTheAdvertisedOne) {
  scan(*central);
  reader->simulateLinkLoss();
  run();
  link();
  const auto name = discovered(peripheral, CBUUID(0x2A00));
  peripheral->readValueForCharacteristic(name);
  run();
  ASSERT_TRUE(name->value());
  EXPECT_EQ(peripheral->name(), "KVR-1");
}

TEST_F(AttributeServerTest, SubscriptionsAreSeenByTheDeviceAndEndWithTheLink) {
  const auto reply = discovered(peripheral, rx);
  EXPECT_FALSE(reader->simulateNotification(rx, NSData{1}));
  peripheral->setNotifyValue_forCharacteristic(true, reply);
  run();
  EXPECT_EQ(reader->subscriptions(), std::vector<CBUUID>{rx});
  EXPECT_TRUE(reader->simulateNotification(rx, NSData{1}));
  EXPECT_FALSE(reader->simulateNotification(tx, NSData{1}));
  reader->simulateLinkLoss();
  EXPECT_EQ(reader->subscriptions(), std::vector<CBUUID>());
  link();
  EXPECT_EQ(reader->subscriptions(), std::vector<CBUUID>());
}

TEST_F(AttributeServerTest, ValuesOnTheirWayWhenTheSubscriptionEndsStillComeBeforeTheAnswer) {
  const auto reply = discovered(peripheral, rx);
  peripheral->setNotifyValue_forCharacteristic(true, reply);
  run();
  recorder->clear();
  reader->simulateNotification(rx, NSData{1});
  peripheral->setNotifyValue_forCharacteristic(false, reply);
  run();
  EXPECT_EQ(count(EventKind::value), 1U);
  ASSERT_EQ(count(EventKind::notificationState), 1U);
  EXPECT_EQ(events(EventKind::notificationState)[0].value, NSData{1});
}

/// A read of a link that two central managers have, asked for between its end and the reports of
/// that.
class LateReadTest : public LinkedReaderTest {
 protected:
  void SetUp() override {
    LinkedReaderTest::SetUp();
    other = makeCentral();
    connect(*other, reader);
    run();
    const auto name = discovered(peripheral, CBUUID(0x2A29));
    ASSERT_NE(name, nullptr);
    recorder->clear();
    recorder->onEvent = [this](const Event& event) {
      if (event.kind == EventKind::disconnected) answered.push_back(count(EventKind::value));
    };
    reader->simulateLinkLoss();
    peripheral->readValueForCharacteristic(name);
  }

  std::shared_ptr<CBCentralManager> other;
  std::vector<std::size_t> answered;  // Up to each report.
};

TEST_F(LateReadTest, IsAnsweredBeforeTheLastReport) {
  run();
  EXPECT_EQ(answered, (std::vector<std::size_t>{0, 1}));
  ASSERT_EQ(count(EventKind::value), 1U);
  EXPECT_EQ(events(EventKind::value)[0].error, events(EventKind::disconnected)[0].error);
}

TEST_F(LateReadTest, IsAnsweredBeforeTheLastReportThatIsMade) {
  other.reset();
  run();
  EXPECT_EQ(answered, std::vector<std::size_t>{1});
  EXPECT_EQ(count(EventKind::value), 1U);
}

TEST_F(LateReadTest, IsAnsweredToNobodyWhenBothAreGone) {
  other.reset();
  central.reset();
  run();
  EXPECT_EQ(recorder->count(), 0U);
}

TEST_F(AttributeServerTest, AReaderAnswersCommandsAndASilentOneDoesNot) {
  const auto reply = discovered(peripheral, rx);
  const auto command = discovered(peripheral, tx);
  peripheral->setNotifyValue_forCharacteristic(true, reply);
  run();
  recorder->clear();
  reader->simulateSilence();
  write(*peripheral, command, kGetReaderInfo);
  run();
  EXPECT_EQ(recorder->count(), 0U);
  EXPECT_EQ(reader->writes().size(), 1U);
  reader->simulateSilence(false);
  write(*peripheral, command, kGetReaderInfo);
  run();
  EXPECT_GT(count(EventKind::value), 0U);
}

TEST_F(AttributeServerTest, AScriptCanBeReplacedAndMayEndTheLink) {
  const auto command = discovered(peripheral, tx);
  peripheral->setNotifyValue_forCharacteristic(true, discovered(peripheral, rx));
  run();
  recorder->clear();
  reader->setScript([this](const NSData&) {
    reader->simulateLinkLoss();
    return std::vector<NSData>{NSData{1}};
  });
  write(*peripheral, command, kGetReaderInfo);
  run();
  EXPECT_EQ(count(EventKind::value), 0U);
  EXPECT_EQ(count(EventKind::disconnected), 1U);
}

TEST_F(AttributeServerTest, AnIncompleteCommandEndsWithItsLink) {
  const NSData command = buildRcpFrame(0, 0x22, std::vector<std::uint8_t>(20, 7)).value();
  const auto slices = cutIntoPieces(command, 20);
  write(*peripheral, discovered(peripheral, tx), slices[0]);
  run();
  reader->simulateLinkLoss();
  link();
  peripheral->setNotifyValue_forCharacteristic(true, discovered(peripheral, rx));
  run();
  recorder->clear();
  write(*peripheral, discovered(peripheral, tx), slices[1]);
  run();
  EXPECT_EQ(count(EventKind::value), 0U);
}

class PieceTest : public LinkedReaderTest {
 protected:
  static Options smallPieces() {
    Options options;
    options.pieceSize = {3, 7};
    options.latency = {1ms, 50ms};
    return options;
  }
  PieceTest() : LinkedReaderTest(smallPieces()) {}
};

TEST_F(PieceTest, RepliesAreCutIntoPiecesOfTheChosenSizesAndStayInOrder) {
  const auto command = discovered(peripheral, tx);
  peripheral->setNotifyValue_forCharacteristic(true, discovered(peripheral, rx));
  run();
  recorder->clear();
  std::vector<std::uint8_t> payload;
  payload.reserve(200);
  for (int i = 0; i < 200; ++i) payload.push_back(static_cast<std::uint8_t>(i));
  for (const auto& slice : cutIntoPieces(buildRcpFrame(0, 0x22, payload).value(), 20)) {
    write(*peripheral, command, slice);
  }
  run();
  NSMutableData received;
  const auto pieces = events(EventKind::value);
  for (std::size_t i = 0; i < pieces.size(); ++i) {
    const NSData piece = pieces[i].value.value();
    received.appendData(piece);
    EXPECT_LE(piece.length(), 7U);
    if (i + 1 < pieces.size()) {
      EXPECT_GE(piece.length(), 3U);
    }
  }
  EXPECT_EQ(received.copy(), buildRcpFrame(1, 0x22, payload).value());
}

}  // namespace
}  // namespace kestrin::simulated
