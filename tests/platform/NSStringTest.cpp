// Text from bytes, and the text tests of the link logic.
#include "KestrinBLESDK/platform/NSString.h"

#include <gtest/gtest.h>

namespace kestrin::test {
namespace {

constexpr auto kAscii = NSStringEncoding::NSASCIIStringEncoding;

TEST(AsciiText, IsMadeOfBytesBelow80) {
  EXPECT_EQ(initWithData_encoding(NSData{'N', 'o', 'v', 'a', 0x00, 0x7F}, kAscii),
            std::string("Nova\0\x7F", 6));
}

TEST(AsciiText, IsEmptyWithoutBytes) { EXPECT_EQ(initWithData_encoding(NSData(), kAscii), ""); }

TEST(AsciiText, IsAbsentWithAByteOf80OrMore) {
  EXPECT_EQ(initWithData_encoding(NSData{'N', 0x80}, kAscii), std::nullopt);
  EXPECT_EQ(initWithData_encoding(NSData{0xFF, 'N'}, kAscii), std::nullopt);
}

TEST(AsciiText, IsAbsentWithoutData) {
  EXPECT_EQ(initWithData_encoding(std::nullopt, kAscii), std::nullopt);
}

TEST(AnotherEncoding, GivesNoText) {
  EXPECT_EQ(initWithData_encoding(NSData{'N'}, static_cast<NSStringEncoding>(4)), std::nullopt);
}

TEST(TextTests, AreCaseSensitive) {
  EXPECT_TRUE(containsString("my KVR-1", "KVR"));
  EXPECT_FALSE(containsString("my kvr-1", "KVR"));
  EXPECT_TRUE(hasPrefix(std::string("KVR-Q62T-007"), "KVR-Q62T"));
  EXPECT_FALSE(hasPrefix(std::string("kvr-q62t-007"), "KVR-Q62T"));
  EXPECT_TRUE(isEqualToString("2A29", "2A29"));
  EXPECT_FALSE(isEqualToString("2a29", "2A29"));
}

TEST(TextTests, FindAPrefixOnlyAtTheBeginning) {
  EXPECT_FALSE(hasPrefix(std::string("my KVR-Q62T"), "KVR-Q62T"));
  EXPECT_FALSE(hasPrefix(std::string("KVR"), "KVR-Q62T"));
}

TEST(TextTests, FindNoPrefixInAnAbsentText) {
  EXPECT_FALSE(hasPrefix(std::nullopt, "KVR-Q62T"));
  EXPECT_FALSE(hasPrefix(std::nullopt, ""));
}

}  // namespace
}  // namespace kestrin::test
