// What a virtual device advertises, serves and answers, and what orders make it do.
#include "vreader/VirtualDeviceTest.h"

namespace kestrin::vreader {
namespace {

using std::chrono::milliseconds;
using Lines = std::vector<std::string>;

TEST_F(VirtualDeviceTest, AShortNameStandsInTheAdvertisement) {
  EXPECT_EQ(hex(standard->advertisingData()),
            "020106"
            "1107eaad23b198e9fe8554465b3b001082ba"
            "09094b56522d30303031");
  EXPECT_EQ(hex(standard->scanResponseData()), "");
}

TEST_F(VirtualDeviceTest, ALongerNameStandsInTheScanResponse) {
  standard->rename("KVR-00001");
  EXPECT_EQ(standard->advertisingData().size(), 21U);
  EXPECT_EQ(hex(standard->scanResponseData()), "0a094b56522d3030303031");
}

TEST_F(VirtualDeviceTest, ANameThatDoesNotFitIsShortened) {
  standard->rename(std::string(40, 'K'));
  const Bytes response = standard->scanResponseData();
  EXPECT_EQ(response.size(), 31U);
  EXPECT_EQ(response[1], 0x08);
}

TEST_F(VirtualDeviceTest, WithoutANameNeitherCarriesOne) {
  standard->rename(std::nullopt);
  EXPECT_EQ(standard->advertisingData().size(), 21U);
  EXPECT_TRUE(standard->scanResponseData().empty());
}

TEST_F(VirtualDeviceTest, AStandardReaderAnswersGetReaderInfoWithItsReply) {
  connect(*standard);
  subscribe(*standard);
  write(*standard, Bytes{0xBB, 0x00, 0x03, 0x00, 0x01, 0xB1, 0x7E, 0x65, 0x97});
  ASSERT_EQ(link.sent.size(), 1U) << "the answer to the write goes first";
  EXPECT_EQ(link.sent[0], "13");
  runLoop->runFor(milliseconds(0));
  EXPECT_EQ(joinedNotifications(), hex(simulated::readerInfoReply().span()));
}

TEST_F(VirtualDeviceTest, TheKvrFamilyAnswersOnItsOwnCharacteristics) {
  connect(*q62t);
  subscribe(*q62t);
  write(*q62t, Bytes{0xBB, 0x00, 0x03, 0x00, 0x01, 0xB1, 0x7E, 0x65, 0x97});
  runLoop->runFor(milliseconds(0));
  EXPECT_EQ(joinedNotifications(), hex(simulated::readerInfoReply().span()));
  EXPECT_EQ(lineStarting("WRITE"), "WRITE q62t FFF2 9 bb00030001b17e6597");
}

TEST_F(VirtualDeviceTest, ACommandInSlicesIsAnsweredOnceInPiecesOf20Bytes) {
  connect(*standard);
  subscribe(*standard);
  const auto command = buildRcpFrame(0x00, 0x22, Bytes(37, 0x11)).value();
  for (std::size_t at = 0; at < 45; at += 20) {
    write(*standard, command.span().subspan(at, std::min<std::size_t>(20, 45 - at)));
    runLoop->runFor(milliseconds(0));
  }
  EXPECT_EQ(joinedNotifications(), hex(buildRcpFrame(0x01, 0x22, Bytes(37, 0x11)).value().span()));
  EXPECT_EQ(notifications(), 3U);
}

TEST_F(VirtualDeviceTest, RepliesLeaveInPiecesOfTheSizeThatWasGiven) {
  const auto reader = make({.id = "large",
                            .address = {},
                            .advertisedName = "KVR-2",
                            .gapName = std::nullopt,
                            .family = simulated::ReaderFamily::standard,
                            .replySize = 40});
  const auto command = buildRcpFrame(0x00, 0x22, Bytes(37, 0x11)).value();
  const auto answerAgain = [&] {
    link.sent.clear();
    write(*reader, command.span());
    runLoop->runFor(milliseconds(0));
    return notifications();
  };
  connect(*reader);
  subscribe(*reader);
  EXPECT_EQ(answerAgain(), 3U) << "a link with room for 20 bytes";
  reader->received(Bytes{0x02, 0x05, 0x02});
  EXPECT_EQ(answerAgain(), 2U);
  EXPECT_EQ(joinedNotifications(), hex(buildRcpFrame(0x01, 0x22, Bytes(37, 0x11)).value().span()));
}

TEST_F(VirtualDeviceTest, NotificationsAreToldWhereThatIsWanted) {
  const auto reader = make({.id = "telling",
                            .address = {},
                            .advertisedName = "KVR-2",
                            .gapName = std::nullopt,
                            .family = simulated::ReaderFamily::standard,
                            .tellsNotifications = true});
  connect(*standard);
  subscribe(*standard);
  EXPECT_EQ(standard->notify(Bytes{0xBB, 0x01}), std::nullopt);
  EXPECT_EQ(lineStarting("NOTIFY"), "");
  connect(*reader);
  subscribe(*reader);
  EXPECT_EQ(reader->notify(Bytes{0xBB, 0x01}), std::nullopt);
  EXPECT_EQ(lineStarting("NOTIFY"), "NOTIFY telling BA821002-3B5B-4654-85FE-E998B123ADEA 2 bb01");
}

TEST_F(VirtualDeviceTest, ATxThatTakesNoRequestsRefusesAndTellsThem) {
  const auto reader = make({.id = "tx04",
                            .address = {},
                            .advertisedName = "KVR-2",
                            .gapName = std::nullopt,
                            .family = simulated::ReaderFamily::standard,
                            .txProperties = CBCharacteristicPropertyWriteWithoutResponse});
  connect(*reader);
  write(*reader, Bytes{0xBB, 0x01});
  EXPECT_EQ(link.sent.back().substr(8), "03");
  EXPECT_EQ(lineStarting("WRITE"),
            "WRITE-NOT-PERMITTED tx04 BA821001-3B5B-4654-85FE-E998B123ADEA 2 bb01");
  const auto tx = simulated::readerCharacteristics(simulated::ReaderFamily::standard).tx;
  reader->received(ByteWriter().u8(0x52).u16(handleOf(*reader, tx)).u8(0x42).bytes());
  EXPECT_EQ(lineStarting("WRITE-COMMAND"),
            "WRITE-COMMAND tx04 BA821001-3B5B-4654-85FE-E998B123ADEA 1 42");
}

TEST_F(VirtualDeviceTest, AReplyThatNobodySubscribedToIsLostAndTold) {
  connect(*standard);
  write(*standard, Bytes{0xBB, 0x00, 0x03, 0x00, 0x01, 0xB1, 0x7E, 0x65, 0x97});
  runLoop->runFor(milliseconds(0));
  EXPECT_EQ(notifications(), 0U);
  EXPECT_TRUE(lineStarting("REPLY-LOST standard").ends_with("the host has not subscribed"));
}

TEST_F(VirtualDeviceTest, AnEndedLinkTakesSubscriptionsAndHalfCommandsWithIt) {
  connect(*standard);
  subscribe(*standard);
  write(*standard, Bytes(20, 0xBB));
  standard->disconnected(0x08);
  connect(*standard);
  write(*standard, Bytes{0xBB, 0x00, 0x03, 0x00, 0x01, 0xB1, 0x7E, 0x65, 0x97});
  runLoop->runFor(milliseconds(0));
  EXPECT_EQ(notifications(), 0U);
  EXPECT_FALSE(lineStarting("REPLY-LOST").empty());
}

TEST_F(VirtualDeviceTest, AReplyOfALinkThatEndedMeanwhileGoesNowhere) {
  connect(*standard);
  subscribe(*standard);
  write(*standard, Bytes{0xBB, 0x00, 0x03, 0x00, 0x01, 0xB1, 0x7E, 0x65, 0x97});
  standard->disconnected(0x08);
  runLoop->runFor(milliseconds(10));
  EXPECT_EQ(notifications(), 0U);
}

TEST_F(VirtualDeviceTest, ItTellsWhatHappens) {
  connect(*standard);
  standard->received(Bytes{0x02, 0x05, 0x02});
  subscribe(*standard);
  standard->disconnected(0x13);
  EXPECT_EQ(lines,
            (Lines{"CONNECTED standard handle=0x0040", "MTU standard 517",
                   "SUBSCRIBED standard BA821002-3B5B-4654-85FE-E998B123ADEA",
                   "DISCONNECTED standard reason=0x13 (Remote User Terminated Connection)"}));
}

TEST_F(VirtualDeviceTest, ASilentDeviceAnswersAndNotifiesNothing) {
  connect(*standard);
  subscribe(*standard);
  standard->setSilent(true);
  link.sent.clear();
  standard->received(Bytes{0x0A, 0x03, 0x00});
  EXPECT_TRUE(link.sent.empty());
  EXPECT_EQ(standard->notify(Bytes{0x01}), "it is silent");
  standard->setSilent(false);
  standard->received(Bytes{0x0A, 0x03, 0x00});
  EXPECT_EQ(link.sent.size(), 1U);
}

TEST_F(VirtualDeviceTest, ADeviceCanFallSilentAfterSoManyAnswers) {
  connect(*standard);
  link.sent.clear();
  standard->setSilentAfter(2);
  for (int requests = 0; requests < 3; ++requests) standard->received(Bytes{0x0A, 0x03, 0x00});
  EXPECT_EQ(link.sent.size(), 2U);
  EXPECT_EQ(lineStarting("SILENT"), "SILENT standard");
  standard->setSilent(false);
  for (int requests = 0; requests < 3; ++requests) standard->received(Bytes{0x0A, 0x03, 0x00});
  EXPECT_EQ(link.sent.size(), 5U);
}

TEST_F(VirtualDeviceTest, AVanishedDeviceLosesItsLinkAfterTheSupervisionTimeout) {
  connect(*standard);
  standard->vanish();
  standard->received(Bytes{0x0A, 0x03, 0x00});
  runLoop->runFor(milliseconds(419));
  EXPECT_TRUE(link.sent.empty());
  EXPECT_TRUE(link.drops.empty());
  runLoop->runFor(milliseconds(1));
  EXPECT_EQ(link.drops, (std::vector<std::uint8_t>{0x08}));
  EXPECT_FALSE(standard->advertises());
  standard->comeBack();
  EXPECT_TRUE(standard->advertises());
}

TEST_F(VirtualDeviceTest, ComingBackInTimeKeepsTheLink) {
  connect(*standard);
  standard->vanish();
  runLoop->runFor(milliseconds(400));
  standard->comeBack();
  runLoop->runFor(milliseconds(1000));
  EXPECT_TRUE(link.drops.empty());
}

TEST_F(VirtualDeviceTest, ItAdvertisesUnlessItIsConnectedOrToldNotTo) {
  EXPECT_TRUE(standard->advertises());
  connect(*standard);
  EXPECT_FALSE(standard->advertises());
  standard->disconnected(0x08);
  EXPECT_TRUE(standard->advertises());
  standard->setAdvertising(false);
  EXPECT_FALSE(standard->advertises());
}

TEST_F(VirtualDeviceTest, RefusalsAreAnsweredUntilTheyAreTakenBack) {
  connect(*standard);
  standard->refuse(AttServer::Access::write, 0x80);
  write(*standard, Bytes{0x01});
  EXPECT_EQ(link.sent.back().substr(8), "80");
  EXPECT_EQ(lineStarting("REFUSED"), "REFUSED standard writes 0x80");
  standard->refuse(AttServer::Access::write, std::nullopt);
  write(*standard, Bytes{0x01});
  EXPECT_EQ(link.sent.back(), "13");
}

TEST_F(VirtualDeviceTest, ABurstSendsNumberedValuesSoManyAtATime) {
  connect(*standard);
  subscribe(*standard);
  link.sent.clear();
  EXPECT_EQ(standard->burst({.count = 5, .length = 20, .perEvent = 2}), std::nullopt);
  EXPECT_EQ(notifications(), 2U);
  runLoop->runFor(milliseconds(8));
  EXPECT_EQ(notifications(), 4U);
  EXPECT_EQ(standard->burst({.count = 1, .length = 1}), "its last burst is still going on");
  runLoop->runFor(milliseconds(8));
  EXPECT_EQ(notifications(), 5U);
  EXPECT_EQ(lineStarting("BURST-SENT"), "BURST-SENT standard 5");
  EXPECT_EQ(link.sent[4].substr(6), hex(VirtualDevice::burstValue(4, 20)));
}

TEST_F(VirtualDeviceTest, AGreetingFollowsTheAnswerToEachSubscription) {
  standard->greet(Burst{.count = 3, .length = 20, .perEvent = 3});
  for (int links = 0; links < 2; ++links) {
    connect(*standard);
    subscribe(*standard);
    EXPECT_EQ(notifications(), 0U) << "before the answer";
    runLoop->runFor(milliseconds(0));
    EXPECT_EQ(notifications(), 3U);
    standard->disconnected(0x08);
  }
  standard->greet(std::nullopt);
  connect(*standard);
  subscribe(*standard);
  runLoop->runFor(milliseconds(0));
  EXPECT_EQ(notifications(), 0U);
}

TEST_F(VirtualDeviceTest, ABurstEndsWithItsLink) {
  connect(*standard);
  subscribe(*standard);
  standard->burst({.count = 100, .length = 20});
  standard->disconnected(0x08);
  link.sent.clear();
  runLoop->runFor(milliseconds(1000));
  EXPECT_TRUE(link.sent.empty());
}

TEST_F(VirtualDeviceTest, NotificationsNeedAReaderALinkASubscriptionAndRoom) {
  EXPECT_EQ(standard->notify(Bytes{0x01}), "it has no link");
  EXPECT_EQ(lamp->notify(Bytes{0x01}), "it is not a reader");
  connect(*standard);
  EXPECT_EQ(standard->notify(Bytes{0x01}), "the host has not subscribed");
  subscribe(*standard);
  EXPECT_EQ(standard->notify({}), std::nullopt);
  EXPECT_EQ(standard->notify(Bytes(21)),
            "a notification has room for 20 bytes on this link, not 21");
}

TEST(BurstValue, IsAFrameWithItsNumberWhereThatFits) {
  EXPECT_EQ(hex(VirtualDevice::burstValue(0x01020304, 20)).substr(0, 28),
            "bb0200000c"
            "01020304"
            "0000000000");
  EXPECT_EQ(VirtualDevice::burstValue(7, 20).size(), 20U);
  EXPECT_EQ(VirtualDevice::burstValue(7, 12).size(), 12U);
  EXPECT_EQ(hex(VirtualDevice::burstValue(0x0102, 3)), "020100");
  EXPECT_EQ(hex(VirtualDevice::burstValue(0x0102, 0)), "");
}

TEST_F(VirtualDeviceTest, TheNameOverALinkIsTheLayoutsOrTheOneThatWasGiven) {
  connect(*standard);
  standard->received(Bytes{0x0A, 0x03, 0x00});
  EXPECT_EQ(link.sent.back(), "0b" + hex(Bytes{'V', 'i', 'r', 't', 'u', 'a', 'l'}));
  connect(*lamp);
  lamp->received(Bytes{0x0A, 0x03, 0x00});
  EXPECT_EQ(link.sent.back(), "0b" + hex(Bytes{'B', 'u', 'l', 'b'}));
}

}  // namespace
}  // namespace kestrin::vreader
