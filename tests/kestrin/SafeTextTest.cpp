// Text from elsewhere: what of it is shown, how wide it is, where it is cut.
#include "tools/kestrin/text/SafeText.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>
#include <string_view>

namespace kestrin::app {
namespace {

TEST(Printable, LeavesOrdinaryTextAlone) {
  EXPECT_EQ(printable("KVR-0417 ~!"), "KVR-0417 ~!");
  EXPECT_EQ(printable(""), "");
  EXPECT_EQ(printable("L\xC3\xA4sare \xE2\x82\xAC \xF0\x9F\x98\x80"),
            "L\xC3\xA4sare \xE2\x82\xAC \xF0\x9F\x98\x80");
}

TEST(Printable, EscapesWhatCouldSteerATerminal) {
  EXPECT_EQ(printable("a\x1b[2Jb\n\r\t\x7f"), "a\\x1b[2Jb\\x0a\\x0d\\x09\\x7f");
  EXPECT_EQ(printable(std::string_view("\0", 1)), "\\x00");
  EXPECT_EQ(printable("\xC2\x9B"), "\\xc2\\x9b");           // The 8-bit form of ESC [.
  EXPECT_EQ(printable("\xE2\x80\xAE"), "\\xe2\\x80\\xae");  // Right-to-left override.
  EXPECT_EQ(printable("\xE2\x81\xA6"), "\\xe2\\x81\\xa6");
  EXPECT_EQ(printable("\u061c"), "\\xd8\\x9c");  // A mark of the direction.
  EXPECT_EQ(printable("\u2028\u2029"), "\\xe2\\x80\\xa8\\xe2\\x80\\xa9");  // Ends of lines.
}

TEST(Printable, CanBeToldFromAnEscape) { EXPECT_EQ(printable("\\x1b"), "\\\\x1b"); }

TEST(Printable, EscapesBytesThatAreNoText) {
  EXPECT_EQ(printable("\xFF"), "\\xff");
  EXPECT_EQ(printable("\xC3"), "\\xc3");           // Cut short.
  EXPECT_EQ(printable("\xC3("), "\\xc3(");         // Not continued.
  EXPECT_EQ(printable("\xC0\x8A"), "\\xc0\\x8a");  // A line feed in two bytes.
  EXPECT_EQ(printable("\xE0\x80\x8A"), "\\xe0\\x80\\x8a");
  EXPECT_EQ(printable("\xED\xA0\x80"), "\\xed\\xa0\\x80");  // A surrogate.
  EXPECT_EQ(printable("\xF4\x90\x80\x80"), "\\xf4\\x90\\x80\\x80");
}

TEST(Printable, EscapesWhatNobodyCouldSee) {
  EXPECT_EQ(printable("KVR\u200b-1"), "KVR\\xe2\\x80\\x8b-1");
  EXPECT_EQ(printable("\ufeff"), "\\xef\\xbb\\xbf");
  EXPECT_EQ(printable("\U000E0041"), "\\xf3\\xa0\\x81\\x81");
  EXPECT_EQ(printable("\uffff\ufdd0\U0001fffe"),
            "\\xef\\xbf\\xbf\\xef\\xb7\\x90\\xf0\\x9f\\xbf\\xbe");
}

TEST(Printable, LeavesMarksOnTheirLetter) { EXPECT_EQ(printable("e\u0301"), "e\u0301"); }

TEST(XmlText, EscapesEverythingThatXmlCanNotHold) {
  EXPECT_EQ(xmlText("a<b>&\"c'"), "a&lt;b&gt;&amp;&quot;c&apos;");
  EXPECT_EQ(xmlText("\x1b[2J\n\x7f"), "\\x1b[2J\\x0a\\x7f");
  EXPECT_EQ(xmlText("\xFF \xC3"), "\\xff \\xc3");
  EXPECT_EQ(xmlText("\xEF\xBF\xBE\xEF\xBF\xBF\xEF\xBF\xBD"),
            "\\xef\\xbf\\xbe\\xef\\xbf\\xbf\xEF\xBF\xBD");
  EXPECT_EQ(xmlText("\xC3\xA4"), "\xC3\xA4");
}

TEST(Cells, TextIsCutBetweenLettersAndWideOnesCountTwice) {
  EXPECT_EQ(fitted("abcdef", 6), "abcdef");
  EXPECT_EQ(fitted("abcdef", 5), "ab...");
  EXPECT_EQ(fitted("abcdef", 2), "ab");
  EXPECT_EQ(fitted("abcdef", 0), "");
  EXPECT_EQ(cellsOf("\u4e2d\u6587"), 4U);
  EXPECT_EQ(fitted("\u4e2d\u6587\u4e2d", 5), "\u4e2d...");
  EXPECT_EQ(fitted("\u00e4\u00e4\u00e4\u00e4\u00e4", 4), "\u00e4...");
  EXPECT_EQ(padded("\u4e2d", 4), "\u4e2d  ");
}

TEST(Cells, TextIsShortenedBetweenCharacters) {
  EXPECT_EQ(shortened("12345", 5), "12345");
  EXPECT_EQ(shortened("123456", 5), "12345...");
  EXPECT_EQ(shortened("\xC3\xA4\xC3\xA4\xC3\xA4", 2), "\xC3\xA4\xC3\xA4...");
  EXPECT_EQ(shortened("\x01\x02", 4), "\x01...");  // Four characters each where they are seen.
}

TEST(Cells, AMarkTakesNoneAndStaysWithItsLetter) {
  EXPECT_EQ(cellsOf("e\u0301"), 1U);
  EXPECT_EQ(fitted("e\u0301e\u0301e\u0301e\u0301e\u0301", 4), "e\u0301...");
  EXPECT_EQ(shortened("e\u0301ab", 1), "e\u0301...");
  EXPECT_EQ(padded("e\u0301", 3), "e\u0301  ");
}

TEST(Cells, AnEmojiTakesTwoAndALetterBesideItsMarkItsOwn) {
  EXPECT_EQ(cellsOf("\U0001F600"), 2U);
  EXPECT_EQ(cellsOf("\u0915\u093e"), 2U);
  EXPECT_EQ(cellsOf("\u20ac\uff21"), 3U);
}

TEST(Cells, WhatIsEscapedCountsAsItIsShown) {
  EXPECT_EQ(cellsOf("\x1b[2J"), printable("\x1b[2J").size());
  EXPECT_EQ(cellsOf("\u202e"), printable("\u202e").size());
  EXPECT_EQ(cellsOf("\xff"), 4U);
}

TEST(SafeText, NoBytesSteerATerminalHoweverTheyAreShown) {
  constexpr std::uint32_t kSeed = 417;
  std::mt19937 random(kSeed);
  const auto isPlain = [](std::string_view text) {
    // Every control character of either set, DEL, and the marks that turn the direction around.
    for (std::size_t i = 0; i < text.size(); ++i) {
      const auto byte = static_cast<unsigned char>(text[i]);
      if (byte < 0x20 || byte == 0x7F) return false;
      const std::string_view rest = text.substr(i);
      if (byte == 0xC2 && rest.size() > 1 && static_cast<unsigned char>(rest[1]) < 0xA0)
        return false;
      for (const char* const mark : {"\u200e", "\u200f", "\u202a", "\u202e", "\u2066", "\u2069"}) {
        if (rest.starts_with(mark)) return false;
      }
    }
    // What is safe is left as it is, but for a backslash.
    std::string rest(text);
    std::erase(rest, '\\');
    return printable(rest) == rest;
  };
  static constexpr std::string_view kPieces[] = {
      "\x1b[2J",          "\xC2\x9B", "\xE2\x80\xAE", "\xE2\x80", "\x9B", "\n",
      "\xF0\x9F\x98\x80", "\xC3\xA4", "\xE4\xB8\xAD", "A",        "\\",   "\xFF",
      "\xCC\x81",         "<&>",      "\x7f"};
  for (int round = 0; round < 2000; ++round) {
    std::string text;
    for (int i = 0; i < 8; ++i) text += kPieces[random() % std::size(kPieces)];
    for (int i = 0; i < 4; ++i) text[random() % text.size()] = static_cast<char>(random());
    ASSERT_TRUE(isPlain(printable(text))) << "seed " << kSeed << ", round " << round;
    ASSERT_TRUE(isPlain(xmlText(text))) << "seed " << kSeed << ", round " << round;
    const std::size_t cells = random() % 20;
    ASSERT_LE(cellsOf(fitted(printable(text), cells)), cells);
    ASSERT_EQ(cellsOf(padded(printable(text), cells)), cells);
    ASSERT_TRUE(isPlain(fitted(printable(text), cells))) << "seed " << kSeed << ", round " << round;
  }
}

}  // namespace
}  // namespace kestrin::app
