// Hexadecimal text, and text from the air.
#include "tools/gateway/message/Bytes.h"

#include <gtest/gtest.h>

namespace kestrin::gateway {
namespace {

using Its = std::vector<std::uint8_t>;

std::string bytesErrorOf(std::string_view text) {
  std::string error;
  EXPECT_FALSE(bytesOfHex(text, error)) << text;
  return error;
}

TEST(Bytes, HexadecimalTextIsWrittenInLowerCase) {
  EXPECT_EQ(hexOf({}), "");
  EXPECT_EQ(hexOf(Its{0x00, 0xBB, 0x7F, 0xF0}), "00bb7ff0");
}

TEST(Bytes, HexadecimalTextIsReadInEitherCaseWithAndWithoutBlanks) {
  std::string error;
  EXPECT_EQ(bytesOfHex("BBf00a", error), (Its{0xBB, 0xF0, 0x0A}));
  EXPECT_EQ(bytesOfHex(" bb  F0 0a ", error), (Its{0xBB, 0xF0, 0x0A}));
  EXPECT_EQ(bytesOfHex("", error), Its());
}

TEST(Bytes, WhatIsNotHexadecimalIsNamedWithItsPlace) {
  EXPECT_EQ(bytesErrorOf("bbx0"),
            "its character 3 is not a hexadecimal digit; two of them for each byte would be right");
  EXPECT_EQ(bytesErrorOf("b b0"),
            "its character 2 is not a hexadecimal digit; two of them for each byte would be right");
  EXPECT_EQ(bytesErrorOf("bb0"), "its last byte has one hexadecimal digit; two would be right");
}

TEST(Bytes, Utf8NeedsNoMending) {
  for (const char* const text : {"", "KVR-0417", "Lager Süd", "€", "\xF0\x9F\x93\xA6",
                                 "\xED\x9F\xBF", "\xEE\x80\x80", "\xF4\x8F\xBF\xBF"}) {
    EXPECT_FALSE(mendedUtf8(text)) << text;
  }
  EXPECT_FALSE(mendedUtf8(std::string_view("a\0b", 3)));
}

TEST(Bytes, EachByteThatIsNotUtf8IsReplaced) {
  const std::string mark = "\xEF\xBF\xBD";
  EXPECT_EQ(mendedUtf8("a\xFFz"), "a" + mark + "z");
  EXPECT_EQ(mendedUtf8("\x80"), mark);
  EXPECT_EQ(mendedUtf8("\xC3"), mark);
  EXPECT_EQ(mendedUtf8("\xC3(x"), mark + "(x");
  EXPECT_EQ(mendedUtf8("\xC0\xAF"), mark + mark);
  EXPECT_EQ(mendedUtf8("\xE0\x9F\xBF"), mark + mark + mark);
  EXPECT_EQ(mendedUtf8("\xED\xA0\x80"), mark + mark + mark);
  EXPECT_EQ(mendedUtf8("\xE2\x82"), mark + mark);
  EXPECT_EQ(mendedUtf8("\xF0\x8F\xBF\xBF"), mark + mark + mark + mark);
  EXPECT_EQ(mendedUtf8("\xF4\x90\x80\x80"), mark + mark + mark + mark);
  EXPECT_EQ(mendedUtf8("\xF5"), mark);
}

TEST(Bytes, ATextOfSomebodyElsesIsShownOnOneLine) {
  EXPECT_EQ(shown("Süd"), "Süd");
  EXPECT_EQ(shown("a\n\x1B[2J\xFF\x7F\xC2\x9F"), "a??[2J???");
  EXPECT_EQ(shown(std::string(70, 'x')), std::string(60, 'x') + "...");
}

}  // namespace
}  // namespace kestrin::gateway
