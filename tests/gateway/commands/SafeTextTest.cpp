// Text from elsewhere, as it is shown.
#include "tools/gateway/commands/SafeText.h"

#include <gtest/gtest.h>

namespace kestrin::gateway {
namespace {

TEST(SafeText, LeavesWhatCanBePrintedAndEscapesEveryOtherByte) {
  EXPECT_EQ(safeText("KVR-Q62T 0012"), "KVR-Q62T 0012");
  EXPECT_EQ(safeText("a\x1b[2Jb\n\t"), "a\\x1b[2Jb\\x0a\\x09");
  EXPECT_EQ(safeText(std::string("\0\x7f\xc3\xa4", 4)), "\\x00\\x7f\\xc3\\xa4");
  EXPECT_EQ(safeText("a\\x41"), "a\\\\x41");
}

TEST(SafeText, LineTextKeepsWordsOfEveryLanguageAndEscapesControls) {
  EXPECT_EQ(lineText("Lager \xc3\xa4 C:\\x"), "Lager \xc3\xa4 C:\\x");
  EXPECT_EQ(lineText("a\x1b[2J\nb\x7f"), "a\\x1b[2J\\x0ab\\x7f");
  EXPECT_EQ(lineText("a\xc2\x9b"
                     "2J\xc2\xa0"),
            "a\\x9b2J\xc2\xa0");
  EXPECT_EQ(lineText("a\xff"), "a\xef\xbf\xbd");
}

TEST(SafeText, HexTextHasTwoDigitsForEachByte) {
  const std::vector<std::uint8_t> bytes{0x00, 0x0F, 0xBB, 0xFF};
  EXPECT_EQ(hexText(bytes), "000fbbff");
  EXPECT_EQ(hexText({}), "");
}

TEST(SafeText, WhatTurnsALinesDirectionIsShownByItsNumber) {
  EXPECT_EQ(lineText("a\u202Eb\u2066c\u2028d\u200Fe\u061Cf"),
            "a\\u202eb\\u2066c\\u2028d\\u200fe\\u061cf");
  EXPECT_EQ(lineText("\u2013 \u20AC \u2070 \u0618"), "\u2013 \u20AC \u2070 \u0618");
}

TEST(SafeText, JsonSaysTheSameWithoutWhatATerminalObeys) {
  EXPECT_EQ(safeJson("{\"name\":\"\x7F\xC2\x9B"
                     "31m\u202E\u00E9\"}"),
            "{\"name\":\"\\u007f\\u009b31m\\u202e\u00E9\"}");
  EXPECT_EQ(safeJson("\xC2"), "\\u0000");
}

}  // namespace
}  // namespace kestrin::gateway
