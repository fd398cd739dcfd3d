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

}  // namespace
}  // namespace kestrin::test
