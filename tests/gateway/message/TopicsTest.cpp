// Topics, and readers and consumers as parts of them.
#include <gtest/gtest.h>

#include "gateway/message/Records.h"

namespace kestrin::gateway {
namespace {

using Names = std::vector<std::string>;

const Topics kTopics("dock");

TEST(Topics, AreAsTheyAreWrittenDown) {
  const std::string reader = "C0:00:00:00:00:01";
  EXPECT_EQ(kTopics.state(), "kestrin/v1/dock/state");
  EXPECT_EQ(kTopics.info(), "kestrin/v1/dock/info");
  EXPECT_EQ(kTopics.gap(), "kestrin/v1/dock/gap");
  EXPECT_EQ(kTopics.health(), "kestrin/v1/dock/health");
  EXPECT_EQ(kTopics.replay(), "kestrin/v1/dock/replay");
  EXPECT_EQ(kTopics.readerState(reader), "kestrin/v1/dock/reader/C0:00:00:00:00:01/state");
  EXPECT_EQ(kTopics.readerFrame(reader), "kestrin/v1/dock/reader/C0:00:00:00:00:01/frame");
  EXPECT_EQ(kTopics.readerCommand(reader), "kestrin/v1/dock/reader/C0:00:00:00:00:01/command");
  EXPECT_EQ(kTopics.commit("stock"), "kestrin/v1/dock/commit/stock");
  EXPECT_EQ(kTopics.filters(), (Names{"kestrin/v1/dock/reader/+/command",
                                      "kestrin/v1/dock/commit/+", "kestrin/v1/dock/replay"}));
  EXPECT_EQ(kTopics.deliveryFilters(),
            (Names{"kestrin/v1/dock/reader/+/frame", "kestrin/v1/dock/gap"}));
}

TEST(Topics, AReaderComesBackFromTheTopicOfItsCommands) {
  for (const std::string reader : {"C0:00:00:00:00:01", "KVR 0417/a+b#", "", "%", "Süd", "%2F"}) {
    EXPECT_EQ(kTopics.commandedReader(kTopics.readerCommand(reader)), reader);
  }
}

TEST(Topics, OtherTopicsHaveNoReader) {
  for (const std::string topic :
       {"", "kestrin/v1/dock/reader//command", "kestrin/v1/dock/reader/a/frame",
        "kestrin/v1/dock/reader/a/b/command", "kestrin/v1/other/reader/a/command",
        "kestrin/v1/dock/reader/command", "kestrin/v1/dock/reader/a/command/",
        "x/kestrin/v1/dock/reader/a/command", "kestrin/v1/dock/reader/%2f/command",
        "kestrin/v1/dock/reader/%41/command", "kestrin/v1/dock/reader/%4/command",
        "kestrin/v1/dock/reader/a b/command"}) {
    EXPECT_FALSE(kTopics.commandedReader(topic)) << topic;
  }
}

TEST(Topics, AConsumerComesBackFromTheTopicOfItsCommits) {
  EXPECT_EQ(kTopics.committingConsumer("kestrin/v1/dock/commit/stock-2"), "stock-2");
  for (const std::string topic :
       {"", "kestrin/v1/dock/commit/", "kestrin/v1/dock/commit", "kestrin/v1/dock/commit/a/b",
        "kestrin/v1/dock/commit/a.b", "kestrin/v1/dick/commit/a", "kestrin/v1/dock/commit/%41"}) {
    EXPECT_FALSE(kTopics.committingConsumer(topic)) << topic;
  }
}

TEST(Topics, AnythingBecomesOneLevelThatIsNotAFilterAndComesBack) {
  std::vector<std::string> parts;
  for (int first = -1; first < 256; ++first) {
    for (int second = -1; second < 256; ++second) {
      std::string reader;
      if (first >= 0) reader += static_cast<char>(first);
      if (second >= 0) reader += static_cast<char>(second);
      const std::string part = topicPart(reader);
      ASSERT_FALSE(part.empty());
      for (const char c : part)
        ASSERT_TRUE(c > 0x20 && c < 0x7F && c != '+' && c != '#' && c != '/');
      ASSERT_EQ(readerOfTopicPart(part), reader);
    }
  }
}

TEST(Topics, AReaderHasOnePartOnly) {
  for (const std::string part : {"%2f", "%41", "%", "%%", "%4", "a%", "a/b", "+", "", "%G0"}) {
    const auto reader = readerOfTopicPart(part);
    if (part == "%") {
      EXPECT_EQ(reader, "");
    } else {
      EXPECT_FALSE(reader) << part;
    }
  }
}

}  // namespace
}  // namespace kestrin::gateway
