// The requests by which a client finds services, characteristics and descriptors.
#include "vreader/AttServerTest.h"

namespace kestrin::vreader {
namespace {

TEST_F(AttServerTest, TheMtuIsTheSmallerOfBothAndAtLeastTheDefault) {
  EXPECT_EQ(server.mtu(), 23U);
  EXPECT_EQ(ask({0x02, 0xB9, 0x00}), "030502") << "the answer tells this server's own limit";
  EXPECT_EQ(server.mtu(), 185U);
  ask({0x02, 0xFF, 0xFF});
  EXPECT_EQ(server.mtu(), 517U);
  ask({0x02, 0x05, 0x00});
  EXPECT_EQ(server.mtu(), 23U);
  EXPECT_EQ(application.events.back(), "mtu 23");
}

TEST_F(AttServerTest, ServicesComeInHandleOrderWithTheEndOfTheirGroups) {
  EXPECT_EQ(ask({0x10, 0x01, 0x00, 0xFF, 0xFF, 0x00, 0x28}),
            "1106"
            "010003000018"
            "040006000f18"
            "07000c00f0ff");
}

TEST_F(AttServerTest, AServiceOfAnotherUuidLengthComesInAnAnswerOfItsOwn) {
  EXPECT_EQ(ask({0x10, 0x0D, 0x00, 0xFF, 0xFF, 0x00, 0x28}),
            "1114"
            "0d00ffff"
            "eaad23b198e9fe8554465b3b001082ba");
}

TEST_F(AttServerTest, TheGroupTypeMayBeGivenInFull) {
  EXPECT_EQ(ask({0x10, 0x01, 0x00, 0x03, 0x00, 0xFB, 0x34, 0x9B, 0x5F, 0x80, 0x00,
                 0x00, 0x80, 0x00, 0x10, 0x00, 0x00, 0x00, 0x28, 0x00, 0x00}),
            "1106"
            "010003000018");
}

TEST_F(AttServerTest, OnlyServicesCanBeReadByGroup) {
  EXPECT_EQ(ask({0x10, 0x01, 0x00, 0xFF, 0xFF, 0x03, 0x28}), "0110010010");
  EXPECT_EQ(ask({0x10, 0x01, 0x00, 0xFF, 0xFF, 0x01, 0x28}), "011001000a")
      << "there are no secondary services, which is another thing";
}

TEST_F(AttServerTest, CharacteristicDeclarationsCarryPropertiesHandleAndUuid) {
  EXPECT_EQ(ask({0x08, 0x07, 0x00, 0x0C, 0x00, 0x03, 0x28}),
            "0907"
            "0800100900f1ff"
            "0b000c0c00f2ff");
  exchangeMtu();
  EXPECT_EQ(ask({0x08, 0x0D, 0x00, 0xFF, 0xFF, 0x03, 0x28}),
            "0915"
            "0e00200f00"
            "eaad23b198e9fe8554465b3b021082ba");
}

TEST_F(AttServerTest, ReadByTypeCutsAValueToWhatFits) {
  EXPECT_EQ(ask({0x08, 0x01, 0x00, 0xFF, 0xFF, 0x19, 0x2A}),
            "0915"
            "0600" +
                std::string(38, '5'));
}

TEST_F(AttServerTest, AnswersStopBeforeTheMtu) {
  for (int i = 0; i < 10; ++i) database.addService(CBUUID(0xAA00));
  const std::string answer = ask({0x10, 0x0E, 0x00, 0xFF, 0xFF, 0x00, 0x28});
  EXPECT_EQ(answer.size() / 2, 2U + 3U * 6U) << "a fourth entry would make 26 bytes, over 23";
}

TEST_F(AttServerTest, FindInformationTellsTypesOfOneLengthAtATime) {
  EXPECT_EQ(ask({0x04, 0x0A, 0x00, 0x0A, 0x00}), "05010a000229");
  EXPECT_EQ(ask({0x04, 0x0F, 0x00, 0xFF, 0xFF}),
            "0502"
            "0f00"
            "eaad23b198e9fe8554465b3b021082ba");
  exchangeMtu();
  EXPECT_EQ(ask({0x04, 0x08, 0x00, 0x0E, 0x00}),
            "0501"
            "08000328"
            "0900f1ff"
            "0a000229"
            "0b000328"
            "0c00f2ff"
            "0d000028"
            "0e000328");
}

TEST_F(AttServerTest, FindByTypeValueTellsTheGroupsOfThatService) {
  EXPECT_EQ(ask({0x06, 0x01, 0x00, 0xFF, 0xFF, 0x00, 0x28, 0xF0, 0xFF}),
            "07"
            "07000c00");
  EXPECT_EQ(ask({0x06, 0x01, 0x00, 0xFF, 0xFF, 0x00, 0x28, 0xF7, 0xFF}), "010601000a");
}

TEST_F(AttServerTest, RangesThatHoldNothingGiveAttributeNotFound) {
  EXPECT_EQ(ask({0x04, 0x11, 0x00, 0xFF, 0xFF}), "010411000a");
  EXPECT_EQ(ask({0x08, 0x01, 0x00, 0x06, 0x00, 0xF1, 0xFF}), "010801000a");
  EXPECT_EQ(ask({0x10, 0x0E, 0x00, 0xFF, 0xFF, 0x00, 0x28}), "01100e000a");
}

TEST_F(AttServerTest, RangesThatAreNoneGiveInvalidHandle) {
  EXPECT_EQ(ask({0x04, 0x00, 0x00, 0xFF, 0xFF}), "0104000001");
  EXPECT_EQ(ask({0x06, 0x05, 0x00, 0x04, 0x00, 0x00, 0x28}), "0106050001");
  EXPECT_EQ(ask({0x08, 0x05, 0x00, 0x04, 0x00, 0x03, 0x28}), "0108050001");
  EXPECT_EQ(ask({0x10, 0x00, 0x00, 0x00, 0x00, 0x00, 0x28}), "0110000001");
}

TEST_F(AttServerTest, RequestsOfTheWrongLengthGiveInvalidPdu) {
  const std::vector<Bytes> requests{
      {0x02},
      {0x02, 0x17},
      {0x02, 0x17, 0x00, 0x00},
      {0x04, 0x01, 0x00, 0xFF},
      {0x04, 0x01, 0x00, 0xFF, 0xFF, 0x00},
      {0x06, 0x01, 0x00, 0xFF, 0xFF, 0x00},
      {0x08, 0x01, 0x00, 0xFF, 0xFF},
      {0x08, 0x01, 0x00, 0xFF, 0xFF, 0x00, 0x28, 0x00},
      {0x0A, 0x01},
      {0x0A, 0x01, 0x00, 0x00},
      {0x0C, 0x01, 0x00, 0x00},
      {0x10, 0x01, 0x00, 0xFF, 0xFF, 0x00},
      {0x12, 0x01},
  };
  for (const Bytes& request : requests) {
    EXPECT_EQ(ask(request), "01" + hex({request.data(), 1}) + "000004") << hex(request);
  }
}

TEST_F(AttServerTest, RequestsThatItDoesNotKnowAreRefusedByName) {
  EXPECT_EQ(ask({0x16, 0x0C, 0x00, 0x00, 0x00, 0xAA}), "0116000006") << "prepare write";
  EXPECT_EQ(ask({0x18, 0x01}), "0118000006") << "execute write";
  EXPECT_EQ(ask({0x0E, 0x03, 0x00, 0x06, 0x00}), "010e000006") << "read multiple";
  EXPECT_EQ(ask({0x20, 0x03, 0x00, 0x06, 0x00}), "0120000006");
}

TEST_F(AttServerTest, CommandsConfirmationsAndResponsesAreNotAnswered) {
  EXPECT_EQ(ask({}), "none");
  EXPECT_EQ(ask({0x1E}), "none");
  EXPECT_EQ(ask({0x01, 0x0A, 0x03, 0x00, 0x01}), "none");
  EXPECT_EQ(ask({0x0B, 0x55}), "none");
  EXPECT_EQ(ask({0xD2, 0x0C, 0x00, 0x01}), "none") << "a signed write";
  EXPECT_TRUE(application.events.empty());
}

}  // namespace
}  // namespace kestrin::vreader
