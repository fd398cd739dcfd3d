// Bounded reading of packets.
#include <gtest/gtest.h>

#include "tools/vreader/Bytes.h"

namespace kestrin::vreader {
namespace {

TEST(ByteReader, ReadsLittleEndianNumbersInOrder) {
  const Bytes packet{0x01, 0x34, 0x12, 0xAA, 0xBB};
  ByteReader reader(packet);
  EXPECT_EQ(reader.u8(), 0x01);
  EXPECT_EQ(reader.u16(), 0x1234);
  EXPECT_EQ(hex(reader.rest()), "aabb");
  EXPECT_FALSE(reader.overrun());
}

TEST(ByteReader, ReadingPastTheEndGivesZeroAndIsRemembered) {
  const Bytes packet{0xFF};
  ByteReader reader(packet);
  EXPECT_EQ(reader.u16(), 0);
  EXPECT_TRUE(reader.overrun());
  EXPECT_EQ(reader.u8(), 0) << "what is left of a packet that is too short is not read as a field";
  EXPECT_EQ(reader.left(), 0U);
}

TEST(ByteReader, TheRestOfAnEmptyPacketIsEmptyAndNoOverrun) {
  ByteReader reader(ByteView{});
  EXPECT_TRUE(reader.rest().empty());
  EXPECT_FALSE(reader.overrun());
}

TEST(Hex, PrintsBytesAndNumbersInLowerCase) {
  EXPECT_EQ(hex(Bytes{0xBB, 0x00, 0x7E}), "bb007e");
  EXPECT_EQ(hex({}), "");
  EXPECT_EQ(hexByte(0x08), "0x08");
  EXPECT_EQ(hexWord(0x0040), "0x0040");
}

}  // namespace
}  // namespace kestrin::vreader
