// A look into frames, and times in words.
#include "tools/kestrin/text/Frames.h"

#include <KestrinBLESDK/RcpFrame.h>
#include <gtest/gtest.h>

#include <vector>

#include "tools/kestrin/text/Hex.h"
#include "tools/kestrin/text/Seconds.h"

namespace kestrin::app {
namespace {

std::string why(std::string_view hex) {
  std::vector<std::uint8_t> bytes;
  EXPECT_FALSE(appendHex(hex, bytes));
  return whyNoFrame(bytes);
}

TEST(Frames, AWholeFrameHasNothingAgainstIt) {
  EXPECT_EQ(why("BB 00 03 00 01 B1 7E 65 97"), "");
  const std::vector<std::uint8_t> payload(1021, 0xBB);
  EXPECT_EQ(whyNoFrame(buildRcpFrame(0x01, 0x22, payload)->span()), "");
  EXPECT_EQ(whyNoFrame(buildRcpFrame(0x01, 0x22, {})->span()), "");
}

TEST(Frames, EachFaultIsNamed) {
  EXPECT_EQ(why(""), "it is empty");
  EXPECT_EQ(why("00"), "it does not begin with BB");
  EXPECT_EQ(why("BB"), "it has 1 byte, the shortest frame has 8");
  EXPECT_EQ(why("BB 00 03 00 00 7E 65"), "it has 7 bytes, the shortest frame has 8");
  EXPECT_EQ(why("BB 00 03 00 02 B1 7E 65 97"),
            "its length field says 2 bytes of payload, it has 1");
  EXPECT_EQ(why("BB 00 03 00 01 B1 7F 65 97"), "its end mark is 7F, not 7E");
  EXPECT_EQ(why("BB 00 03 00 01 B1 7E 97 65"), "its CRC is 97 65, right would be 65 97");
}

TEST(Frames, AreDescribed) {
  const std::uint8_t payload[] = {0xB1};
  EXPECT_EQ(describeFrame(buildRcpFrame(0x02, 0xA3, payload)->span()),
            "type 02, code A3, 1 byte of payload");
  EXPECT_EQ(describeFrame(payload), "no whole frame: it does not begin with BB");
}

TEST(Seconds, AreShortOrWithThousandths) {
  using std::chrono::milliseconds;
  EXPECT_EQ(secondsText(milliseconds(30000)), "30");
  EXPECT_EQ(secondsText(milliseconds(500)), "0.5");
  EXPECT_EQ(secondsText(milliseconds(0)), "0");
  EXPECT_EQ(secondsText(milliseconds(100)), "0.1");
  EXPECT_EQ(millisecondsText(milliseconds(12050)), "12.050");
  EXPECT_EQ(millisecondsText(std::chrono::microseconds(1999600)), "2.000");
  EXPECT_EQ(millisecondsText(milliseconds(7)), "0.007");
}

}  // namespace
}  // namespace kestrin::app
