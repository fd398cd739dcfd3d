// Device addresses as text and in packets.
#include <gtest/gtest.h>

#include "tools/vreader/DeviceAddress.h"

namespace kestrin::vreader {
namespace {

using Type = DeviceAddress::Type;

TEST(DeviceAddress, TextIsMostSignificantByteFirstAndPacketsLeastSignificantFirst) {
  const auto address = DeviceAddress::fromText("c0:DE:00:00:12:01", Type::randomDevice);
  ASSERT_TRUE(address);
  EXPECT_EQ(address->text(), "C0:DE:00:00:12:01");
  ByteWriter packet;
  address->write(packet);
  EXPECT_EQ(hex(packet.bytes()), "0101120000dec0");
  ByteReader reader(packet.bytes());
  EXPECT_EQ(DeviceAddress::read(reader), *address);
}

TEST(DeviceAddress, TextThatIsNoAddressGivesNone) {
  for (const char* text : {"", "C0:DE:00:00:00", "C0:DE:00:00:00:1", "C0-DE-00-00-00-01",
                           "G0:DE:00:00:00:01", "C0:DE:00:00:00:01 ", "C0:DE:00:00:00:-1"}) {
    EXPECT_FALSE(DeviceAddress::fromText(text, Type::publicDevice)) << text;
  }
}

TEST(DeviceAddress, GivenAddressesAreStaticRandomOnesAndDiffer) {
  const auto first = DeviceAddress::staticRandom(1);
  EXPECT_EQ(first.text(), "C0:DE:00:00:00:01");
  EXPECT_EQ(first.type, Type::randomDevice);
  EXPECT_EQ(first.bytes[5] & 0xC0, 0xC0) << "the two top bits mark a static address";
  EXPECT_NE(first, DeviceAddress::staticRandom(0x101));
}

}  // namespace
}  // namespace kestrin::vreader
