// Reading, writing, subscribing and notifying.
#include "vreader/AttServerTest.h"

namespace kestrin::vreader {
namespace {

using Events = std::vector<std::string>;

TEST_F(AttServerTest, AReadGivesTheValueAndTellsTheApplication) {
  EXPECT_EQ(ask({0x0A, 0x03, 0x00}), "0b4e616d65");
  EXPECT_EQ(application.events, (Events{"read 2A00"}));
  EXPECT_EQ(ask({0x0A, 0x01, 0x00}), "0b0018") << "declarations are read too";
  EXPECT_EQ(application.events.size(), 1U);
}

TEST_F(AttServerTest, ALongValueIsReadInPiecesOfTheMtu) {
  EXPECT_EQ(ask({0x0A, 0x06, 0x00}), "0b" + std::string(44, '5'));
  EXPECT_EQ(ask({0x0C, 0x06, 0x00, 22, 0x00}), "0d" + std::string(44, '5'));
  EXPECT_EQ(ask({0x0C, 0x06, 0x00, 44, 0x00}), "0d" + std::string(32, '5'));
  EXPECT_EQ(ask({0x0C, 0x06, 0x00, 60, 0x00}), "0d") << "the end of the value is not an error";
  EXPECT_EQ(ask({0x0C, 0x06, 0x00, 61, 0x00}), "010c060007");
  EXPECT_EQ(application.events, (Events{"read 2A19"})) << "one read, whatever its pieces";
}

TEST_F(AttServerTest, WithALargerMtuTheSameValueComesAtOnce) {
  exchangeMtu();
  EXPECT_EQ(ask({0x0A, 0x06, 0x00}), "0b" + std::string(120, '5'));
}

TEST_F(AttServerTest, WhatMayNotBeReadIsRefused) {
  EXPECT_EQ(ask({0x0A, 0x0C, 0x00}), "010a0c0002") << "a value without the read property";
  EXPECT_EQ(ask({0x0A, 0x11, 0x00}), "010a110001") << "no such handle";
  EXPECT_EQ(ask({0x0A, 0x00, 0x00}), "010a000001");
  EXPECT_EQ(ask({0x0C, 0x0C, 0x00, 0x00, 0x00}), "010c0c0002");
  EXPECT_EQ(ask({0x08, 0x01, 0x00, 0xFF, 0xFF, 0xF2, 0xFF}), "01080c0002");
}

TEST_F(AttServerTest, AWriteRequestIsAnsweredAndACommandIsNot) {
  EXPECT_EQ(ask({0x12, 0x0C, 0x00, 0xBB, 0x00}), "13");
  EXPECT_EQ(ask({0x52, 0x0C, 0x00, 0xBB, 0x01}), "none");
  EXPECT_EQ(ask({0x12, 0x0C, 0x00}), "13") << "an empty value is a value";
  EXPECT_EQ(application.events, (Events{"write FFF2 bb00", "command FFF2 bb01", "write FFF2 "}));
}

TEST_F(AttServerTest, WhatMayNotBeWrittenIsRefusedOrDropped) {
  EXPECT_EQ(ask({0x12, 0x03, 0x00, 0x41}), "0112030003");
  EXPECT_EQ(ask({0x12, 0x01, 0x00, 0x41}), "0112010003") << "a declaration";
  EXPECT_EQ(ask({0x12, 0x20, 0x00, 0x41}), "0112200001");
  EXPECT_EQ(ask({0x52, 0x03, 0x00, 0x41}), "none");
  EXPECT_EQ(ask({0x52, 0x20, 0x00, 0x41}), "none");
  EXPECT_EQ(ask({0x52, 0x0A, 0x00, 0x01, 0x00}), "none") << "configurations take requests only";
  EXPECT_EQ(ask({0x52, 0x0C}), "none");
  EXPECT_EQ(application.events, (Events{"not permitted 2A00 41"})) << "a value in a request";
}

TEST_F(AttServerTest, AValueOfMoreThan512BytesIsRefused) {
  Bytes request{0x12, 0x0C, 0x00};
  request.resize(3 + 512);
  EXPECT_EQ(ask(request), "13");
  request.push_back(0);
  EXPECT_EQ(ask(request), "01120c000d");
}

TEST_F(AttServerTest, ASubscriptionIsReadBackAndTold) {
  EXPECT_EQ(ask({0x0A, 0x0A, 0x00}), "0b0000");
  EXPECT_EQ(ask({0x12, 0x0A, 0x00, 0x01, 0x00}), "13");
  EXPECT_EQ(ask({0x0A, 0x0A, 0x00}), "0b0100");
  EXPECT_EQ(ask({0x12, 0x0A, 0x00, 0x00, 0x00}), "13");
  EXPECT_EQ(application.events, (Events{"subscribe FFF1 1", "subscribe FFF1 0"}));
}

TEST_F(AttServerTest, AConfigurationTakesTwoBytesAndOnlyWhatTheCharacteristicCan) {
  EXPECT_EQ(ask({0x12, 0x0A, 0x00, 0x01}), "01120a000d");
  EXPECT_EQ(ask({0x12, 0x0A, 0x00, 0x01, 0x00, 0x00}), "01120a000d");
  EXPECT_EQ(ask({0x12, 0x0A, 0x00, 0x02, 0x00}), "01120a00fd") << "it cannot indicate";
  EXPECT_EQ(ask({0x12, 0x10, 0x00, 0x01, 0x00}), "01121000fd") << "it cannot notify";
  EXPECT_EQ(ask({0x12, 0x10, 0x00, 0x02, 0x00}), "13");
  EXPECT_EQ(application.events, (Events{"subscribe BA821002-3B5B-4654-85FE-E998B123ADEA 2"}));
}

TEST_F(AttServerTest, NotificationsNeedASubscription) {
  EXPECT_FALSE(server.notification(9, Bytes{0x01}));
  ask({0x12, 0x0A, 0x00, 0x01, 0x00});
  EXPECT_TRUE(server.notifies(9));
  EXPECT_EQ(hex(server.notification(9, Bytes{0xBB, 0x01}).value()), "1b0900bb01");
  EXPECT_EQ(hex(server.notification(9, {}).value()), "1b0900");
  ask({0x12, 0x0A, 0x00, 0x00, 0x00});
  EXPECT_FALSE(server.notification(9, Bytes{0x01}));
}

TEST_F(AttServerTest, ANotificationIsAtMostThreeBytesShorterThanTheMtu) {
  ask({0x12, 0x0A, 0x00, 0x01, 0x00});
  EXPECT_TRUE(server.notification(9, Bytes(20)));
  EXPECT_FALSE(server.notification(9, Bytes(21)));
  exchangeMtu();
  EXPECT_EQ(server.largestNotification(), 514U);
  EXPECT_TRUE(server.notification(9, Bytes(514)));
  EXPECT_FALSE(server.notification(9, Bytes(515)));
}

TEST_F(AttServerTest, SubscriptionsBelongToOneLink) {
  ask({0x12, 0x0A, 0x00, 0x01, 0x00});
  AttServer other(database, application);
  EXPECT_FALSE(other.notifies(9));
}

TEST_F(AttServerTest, TheApplicationMayRefuseWithAnErrorOfItsOwn) {
  application.refusals = {{AttServer::Access::read, std::uint8_t{0x81}},
                          {AttServer::Access::write, std::uint8_t{0x82}},
                          {AttServer::Access::subscribe, std::uint8_t{0x83}}};
  EXPECT_EQ(ask({0x0A, 0x03, 0x00}), "010a030081");
  EXPECT_EQ(ask({0x12, 0x0C, 0x00, 0x01}), "01120c0082");
  EXPECT_EQ(ask({0x52, 0x0C, 0x00, 0x01}), "none");
  EXPECT_EQ(ask({0x12, 0x0A, 0x00, 0x01, 0x00}), "01120a0083");
  EXPECT_FALSE(server.notifies(9));
  EXPECT_TRUE(application.events.empty());
}

}  // namespace
}  // namespace kestrin::vreader
