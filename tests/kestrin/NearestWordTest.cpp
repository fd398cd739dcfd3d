// What a mistyped word was probably meant to be.
#include "tools/NearestWord.h"

#include <gtest/gtest.h>

namespace kestrin::tools {
namespace {

TEST(LettersApart, CountsLettersLeftOutAddedChangedAndExchanged) {
  EXPECT_EQ(lettersApart("scan", "scan"), 0U);
  EXPECT_EQ(lettersApart("scn", "scan"), 1U);
  EXPECT_EQ(lettersApart("scaan", "scan"), 1U);
  EXPECT_EQ(lettersApart("scon", "scan"), 1U);
  EXPECT_EQ(lettersApart("sacn", "scan"), 1U);
  EXPECT_EQ(lettersApart("", "scan"), 4U);
  EXPECT_EQ(lettersApart("scan", ""), 4U);
  EXPECT_EQ(lettersApart("nacs", "scan"), 3U) << "two changed, two exchanged";
  EXPECT_EQ(lettersApart("demo", "scan"), 4U);
}

TEST(NearestWord, IsTheNearestAndNoneWhenNoneIsNear) {
  const std::vector<std::string> commands{"demo", "scan", "monitor", "send", "frame"};
  EXPECT_EQ(nearestWord("sned", commands), "send");
  EXPECT_EQ(nearestWord("frames", commands), "frame");
  EXPECT_EQ(nearestWord("moniter", commands), "monitor");
  EXPECT_EQ(nearestWord("mon", commands), "monitor") << "the beginning of a word";
  EXPECT_EQ(nearestWord("m", commands), "");
  EXPECT_EQ(nearestWord("record", commands), "");
  EXPECT_EQ(nearestWord("", commands), "");
  EXPECT_EQ(nearestWord("scan", {}), "");
  EXPECT_EQ(nearestWord(std::string(100000, 's'), {std::string(100000, 's')}), "");
}

TEST(NearestWord, MinusSignsInFrontDoNotCount) {
  EXPECT_EQ(nearestWord("-timeout", {"--for", "--timeout"}), "--timeout");
  EXPECT_EQ(nearestWord("---", {"--for"}), "");
}

}  // namespace
}  // namespace kestrin::tools
