// Bytes as hexadecimal text.
#include "tools/kestrin/text/Hex.h"

#include <gtest/gtest.h>

namespace kestrin::app {
namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes bytesOf(std::string_view text) {
  Bytes bytes;
  const auto error = appendHex(text, bytes);
  EXPECT_FALSE(error) << text << ": " << error->text;
  return bytes;
}

HexError errorOf(std::string_view text) {
  Bytes bytes;
  const auto error = appendHex(text, bytes);
  EXPECT_TRUE(error) << text;
  return error.value_or(HexError{});
}

TEST(Hex, TakesBothCasesWithAndWithoutBlanks) {
  EXPECT_EQ(bytesOf("BB00fE"), (Bytes{0xBB, 0x00, 0xFE}));
  EXPECT_EQ(bytesOf("  bb 00\tFe  "), (Bytes{0xBB, 0x00, 0xFE}));
  EXPECT_EQ(bytesOf("0123456789abcdefABCDEF"),
            (Bytes{0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF, 0xAB, 0xCD, 0xEF}));
}

TEST(Hex, TextWithoutDigitsIsNoBytes) {
  EXPECT_TRUE(bytesOf("").empty());
  EXPECT_TRUE(bytesOf(" \t ").empty());
}

TEST(Hex, AddsToWhatIsThere) {
  Bytes bytes{0x01};
  EXPECT_FALSE(appendHex("02", bytes));
  EXPECT_EQ(bytes, (Bytes{0x01, 0x02}));
}

TEST(Hex, TellsWhichCharacterIsWrong) {
  EXPECT_EQ(errorOf("BB 0G").column, 5U);
  EXPECT_EQ(errorOf("BB 0G").text, "'G' is not a hexadecimal digit");
  EXPECT_EQ(errorOf("/0").column, 1U);
  EXPECT_EQ(errorOf("0:").column, 2U);
  EXPECT_EQ(errorOf("0@").column, 2U);
  EXPECT_EQ(errorOf("0`").column, 2U);
  EXPECT_EQ(errorOf("g0").column, 1U);
  EXPECT_EQ(errorOf("00\r").text, "'\\x0d' is not a hexadecimal digit");
}

TEST(Hex, AByteHasTwoDigits) {
  EXPECT_EQ(errorOf("BB 0").column, 4U);
  EXPECT_EQ(errorOf("B B").column, 1U);
  EXPECT_EQ(errorOf("BB0").column, 3U);
  EXPECT_EQ(errorOf("BB0").text, "a byte is two hexadecimal digits, here is one");
}

TEST(Hex, SaysWhatIsRightInPlaceOfAPrefix) {
  EXPECT_EQ(errorOf("0xBB").column, 2U);
  EXPECT_EQ(errorOf("00 0XBB").text, "bytes are written without 0x, as in BB 00 03");
  EXPECT_EQ(errorOf("xBB").text, "'x' is not a hexadecimal digit");
}

TEST(Hex, PrintsBytes) {
  const Bytes bytes{0xBB, 0x00, 0x7E};
  EXPECT_EQ(upperHex(bytes), "BB 00 7E");
  EXPECT_EQ(lowerHex(bytes), "bb007e");
  EXPECT_EQ(upperHex({}), "");
  EXPECT_EQ(lowerHex({}), "");
}

}  // namespace
}  // namespace kestrin::app
