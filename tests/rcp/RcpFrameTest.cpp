// Frames that applications build.
#include "KestrinBLESDK/RcpFrame.h"

#include <gtest/gtest.h>

#include "support/ReferenceFrame.h"

namespace kestrin::test {
namespace {

Bytes bytesOf(const std::optional<NSData>& frame) {
  if (!frame) {
    ADD_FAILURE() << "no frame was built";
    return {};
  }
  return Bytes(frame->begin(), frame->end());
}

TEST(BuildRcpFrame, MakesTheGetReaderInfoCommand) {
  const Bytes expected = {0xBB, 0x00, 0x03, 0x00, 0x01, 0xB1, 0x7E, 0x65, 0x97};
  EXPECT_EQ(bytesOf(buildRcpFrame(0x00, 0x03, Bytes{0xB1})), expected);
}

TEST(BuildRcpFrame, MakesEightBytesOfAnEmptyPayload) {
  const Bytes expected = {0xBB, 0x02, 0x11, 0x00, 0x00, 0x7E, 0xA7, 0xC5};
  EXPECT_EQ(bytesOf(buildRcpFrame(0x02, 0x11, {})), expected);
}

TEST(BuildRcpFrame, PutsPreambleAndEndMarkValuesIntoThePayloadUnescaped) {
  const Bytes expected = {0xBB, 0x01, 0x22, 0x00, 0x03, 0xBB, 0x7E, 0xBB, 0x7E, 0xE7, 0x43};
  EXPECT_EQ(bytesOf(buildRcpFrame(0x01, 0x22, Bytes{0xBB, 0x7E, 0xBB})), expected);
}

TEST(BuildRcpFrame, WritesTheLengthHighByteFirst) {
  const Bytes frame = bytesOf(buildRcpFrame(0x01, 0x22, Bytes(0x0102, 0x55)));
  ASSERT_EQ(frame.size(), 0x0102U + 8);
  EXPECT_EQ(frame[3], 0x01);
  EXPECT_EQ(frame[4], 0x02);
  EXPECT_EQ(frame, referenceFrame(0x01, 0x22, Bytes(0x0102, 0x55)));
}

TEST(BuildRcpFrame, TakesAPayloadOf65535Bytes) {
  const Bytes payload(65535, 0xA5);
  NSError error{"untouched", 7, "untouched"};
  const Bytes frame = bytesOf(buildRcpFrame(0x03, 0xFF, payload, &error));
  EXPECT_EQ(frame, referenceFrame(0x03, 0xFF, payload));
  EXPECT_EQ(error, (NSError{"untouched", 7, "untouched"}));
}

TEST(BuildRcpFrame, RefusesAPayloadOf65536BytesAndSaysWhy) {
  NSError error;
  EXPECT_EQ(buildRcpFrame(0x03, 0xFF, Bytes(65536, 0xA5), &error), std::nullopt);
  EXPECT_EQ(error.domain, "KestrinErrorDomain");
  EXPECT_EQ(error.code, 2);
  EXPECT_EQ(error.localizedDescription(),
            "a payload of 65536 bytes does not fit a frame; it may have at most 65535");
}

TEST(BuildRcpFrame, RefusesWithoutSayingWhyWhenNobodyAsks) {
  EXPECT_EQ(buildRcpFrame(0x03, 0xFF, Bytes(65536, 0xA5)), std::nullopt);
}

TEST(BuildRcpFrame, LeavesNoResidue) {
  const Bytes frame = bytesOf(buildRcpFrame(0x02, 0x5A, Bytes{0x00, 0xFF, 0xBB}));
  EXPECT_EQ(rcpFrameCrc(std::span(frame).subspan(1)), 0x0000);
}

/// The same fault whether or not somebody asks for it.
RcpFrameError faultOf(const Bytes& bytes) {
  RcpFrameError error;
  EXPECT_FALSE(parseRcpFrame(bytes, &error));
  EXPECT_FALSE(parseRcpFrame(bytes));
  return error;
}

void expectFault(const Bytes& bytes, RcpFrameField field, std::size_t offset, bool incomplete,
                 const char* text) {
  SCOPED_TRACE(text);
  const RcpFrameError error = faultOf(bytes);
  EXPECT_EQ(error.field, field);
  EXPECT_EQ(error.offset, offset);
  EXPECT_EQ(error.incomplete, incomplete);
  EXPECT_EQ(error.text, text);
}

TEST(ParseRcpFrame, GivesTypeCodeAndPayloadAsTheyLieInTheBytes) {
  const Bytes bytes = referenceFrame(0x02, 0x5A, Bytes{0xBB, 0x7E, 0x00});
  const auto frame = parseRcpFrame(bytes);
  ASSERT_TRUE(frame);
  EXPECT_EQ(frame->type, 0x02);
  EXPECT_EQ(frame->code, 0x5A);
  EXPECT_EQ(frame->payload.data(), bytes.data() + 5);
  EXPECT_EQ(frame->payload.size(), 3U);
  EXPECT_EQ(frame->bytes.data(), bytes.data());
  EXPECT_EQ(frame->bytes.size(), bytes.size());
}

TEST(ParseRcpFrame, TakesCommandsAndEmptyPayloadsAndTheLongest) {
  for (const std::size_t length : {0UL, 1UL, 1021UL, 1022UL, 65535UL}) {
    const Bytes bytes = referenceFrame(0x00, 0x03, Bytes(length, 0xA5));
    const auto frame = parseRcpFrame(bytes);
    ASSERT_TRUE(frame) << length;
    EXPECT_EQ(frame->type, 0x00);
    EXPECT_EQ(frame->payload.size(), length);
  }
}

TEST(ParseRcpFrame, LeavesTheErrorAloneWhenThereIsNone) {
  RcpFrameError error{.field = RcpFrameField::crc, .offset = 7, .text = "untouched"};
  EXPECT_TRUE(parseRcpFrame(referenceFrame(0x01, 0x22, {}), &error));
  EXPECT_EQ(error.text, "untouched");
  EXPECT_EQ(error.offset, 7U);
}

TEST(ParseRcpFrame, NamesTheFieldThatIsMissingAtEveryLength) {
  const Bytes bytes = referenceFrame(0x01, 0x22, Bytes{1, 2});
  constexpr RcpFrameField kFields[] = {RcpFrameField::preamble,      RcpFrameField::type,
                                       RcpFrameField::code,          RcpFrameField::payloadLength,
                                       RcpFrameField::payloadLength, RcpFrameField::payload,
                                       RcpFrameField::payload,       RcpFrameField::endMark,
                                       RcpFrameField::crc,           RcpFrameField::crc};
  ASSERT_EQ(bytes.size(), std::size(kFields));
  for (std::size_t length = 0; length < bytes.size(); ++length) {
    const RcpFrameError error =
        faultOf(Bytes(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(length)));
    EXPECT_EQ(error.field, kFields[length]) << length;
    EXPECT_EQ(error.offset, length);
    EXPECT_TRUE(error.incomplete) << length;
    EXPECT_FALSE(error.text.empty());
  }
}

TEST(ParseRcpFrame, SaysWhatIsWrongAndWhatWouldBeRight) {
  expectFault({}, RcpFrameField::preamble, 0, true, "it is empty");
  expectFault({0x00, 0xBB}, RcpFrameField::preamble, 0, false, "it does not begin with BB");
  expectFault({0x00}, RcpFrameField::preamble, 0, false, "it does not begin with BB");
  expectFault({0xBB}, RcpFrameField::type, 1, true, "it has 1 byte, the shortest frame has 8");
  expectFault({0xBB, 0x00, 0x03, 0x00, 0x00, 0x7E, 0x65}, RcpFrameField::crc, 7, true,
              "it has 7 bytes, the shortest frame has 8");
  expectFault({0xBB, 0x00, 0x03, 0x00, 0x01, 0xB1, 0x7F, 0x65, 0x97}, RcpFrameField::endMark, 6,
              false, "its end mark is 7F, not 7E");
  expectFault({0xBB, 0x00, 0x03, 0x00, 0x01, 0xB1, 0x7E, 0x97, 0x65}, RcpFrameField::crc, 7, false,
              "its CRC is 97 65, right would be 65 97");
}

TEST(ParseRcpFrame, NamesTheLengthWhenItDisagreesWithTheBytes) {
  // Longer than it says, shorter than it says, and shorter with something else at the end mark.
  expectFault({0xBB, 0x00, 0x03, 0x00, 0x00, 0xB1, 0x7E, 0x65, 0x97}, RcpFrameField::payloadLength,
              3, false, "its length field says 0 bytes of payload, it has 1");
  expectFault({0xBB, 0x00, 0x03, 0x01, 0x01, 0xB1, 0x7E, 0x65, 0x97}, RcpFrameField::payload, 9,
              true, "its length field says 257 bytes of payload, it has 1");
  expectFault({0xBB, 0x00, 0x03, 0x00, 0x02, 0xB1, 0x7E, 0x65, 0x97}, RcpFrameField::payloadLength,
              3, false, "its length field says 2 bytes of payload, it has 1");
  // As long as the shortest frame, which is long enough for its length to be compared.
  expectFault({0xBB, 0x00, 0x03, 0x00, 0x03, 0xB1, 0x7E, 0x65}, RcpFrameField::endMark, 8, true,
              "its length field says 3 bytes of payload, it has 0");
}

TEST(ParseRcpFrame, TellsEveryFlippedBit) {
  const Bytes right = referenceFrame(0x01, 0x22, Bytes{1, 2, 3});
  for (std::size_t bit = 0; bit < right.size() * 8; ++bit) {
    Bytes wrong = right;
    wrong[bit / 8] = static_cast<std::uint8_t>(wrong[bit / 8] ^ 1U << (bit % 8));
    EXPECT_FALSE(parseRcpFrame(wrong)) << bit;
  }
}

TEST(RcpFrameLength, IsWhatThePayloadLengthSays) {
  EXPECT_EQ(rcpFrameLength(Bytes{0xBB, 0x00, 0x03, 0x01, 0x02}), 5U + 0x0102 + 3);
  EXPECT_EQ(rcpFrameLength(Bytes{0xBB, 0x00, 0x03, 0x00, 0x00, 0x55}), 8U);
  EXPECT_EQ(rcpFrameLength(Bytes{0xBB, 0x00, 0x03, 0x01}), std::nullopt);
  EXPECT_EQ(rcpFrameLength(Bytes{0xBC, 0x00, 0x03, 0x01, 0x02}), std::nullopt);
  EXPECT_EQ(rcpFrameLength(Bytes{}), std::nullopt);
}

}  // namespace
}  // namespace kestrin::test
