// What a consumer hands out, commits and asks for, message by message.
#include "tools/gateway/consumer/Consumer.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace kestrin::gateway {
namespace {

const LogIdentity kLog(32, 'a');
const LogIdentity kOtherLog(32, 'b');

Record frame(RecordNumber number) {
  Record record;
  record.number = number;
  record.kind = RecordKind::frame;
  record.reader = "C0:00:00:00:00:01";
  record.name = "KVR-0417";
  record.bytes = {0xBB, 0x01, 0xA2, 0x00, 0x00, 0x7E, 0x23, 0x1A};
  return record;
}

Record gapRecord(RecordNumber number, RecordNumber from, RecordNumber to,
                 const LogIdentity& log = kLog, GapReason reason = GapReason::budget) {
  Record record;
  record.number = number;
  record.kind = RecordKind::gap;
  record.gap = Gap{log, from, to, reason};
  return record;
}

/// A consumer whose gateway and broker are this test.
class ConsumerTest : public testing::Test {
 protected:
  Consumer::Handlers handlers() {
    Consumer::Handlers handlers;
    handlers.onRecord = [this](const LogIdentity& log, const Record& record) {
      if (refusing) return false;
      out.push_back(log.substr(0, 1) + std::to_string(record.number));
      return true;
    };
    handlers.onGap = [this](const LogIdentity& log, const Gap& gap) {
      gaps.push_back(log.substr(0, 1) + std::to_string(gap.from) + "-" + std::to_string(gap.to));
    };
    handlers.onTrouble = [this](const std::string& text) { troubles.push_back(text); };
    handlers.publish = [this](const Message& message) { published.push_back(message); };
    return handlers;
  }

  void deliver(const Record& record, const LogIdentity& log = kLog) {
    const bool gap = record.kind == RecordKind::gap;
    take(gap ? topics.gap() : topics.readerFrame(record.reader),
         payloadOf(record, log, FrameFormat::json));
  }
  void deliver(std::initializer_list<RecordNumber> numbers, const LogIdentity& log = kLog) {
    for (const RecordNumber number : numbers) deliver(frame(number), log);
  }
  void info(RecordNumber first, RecordNumber next, const LogIdentity& log = kLog) {
    GatewayInfo info;
    info.log = log;
    info.first = first;
    info.next = next;
    take(topics.info(), textOf(info));
  }
  void health(RecordNumber first, RecordNumber last, const LogIdentity& log = kLog) {
    Health health;
    health.log = log;
    health.first = first;
    health.last = health.synced = health.published = last;
    take(topics.health(), textOf(health));
  }
  void take(const std::string& topic, const std::string& payload) {
    Message message;
    message.topic = topic;
    message.payload = payload;
    consumer.take(message);
  }

  /// What was published since the last call: `commit a5`, `replay a3`.
  std::vector<std::string> said() {
    std::vector<std::string> texts;
    for (const Message& message : published) {
      std::string error;
      if (message.topic == topics.commit("wms")) {
        EXPECT_TRUE(message.retain);
        const auto commit = commitOf(message.payload, error);
        EXPECT_TRUE(commit) << error;
        texts.push_back("commit " + commit->log.substr(0, 1) + std::to_string(commit->number));
      } else {
        EXPECT_EQ(message.topic, topics.replay());
        EXPECT_FALSE(message.retain);
        const auto replay = replayOf(message.payload, error);
        EXPECT_TRUE(replay) << error;
        EXPECT_EQ(replay->consumer, "wms");
        texts.push_back("replay " + replay->log.substr(0, 1) + std::to_string(replay->from));
      }
      EXPECT_EQ(message.qos, 1);
    }
    published.clear();
    return texts;
  }
  std::vector<std::string> tick() {
    consumer.tick();
    return said();
  }

  using Texts = std::vector<std::string>;
  const Topics topics{"hall-1"};
  bool refusing = false;
  Texts out, gaps, troubles;
  std::vector<Message> published;
  Consumer consumer{"hall-1", "wms", handlers()};
};

TEST_F(ConsumerTest, SubscribesToFramesGapsInformationAndHealthOfItsGateway) {
  EXPECT_EQ(consumer.filters(), (Texts{"kestrin/v1/hall-1/reader/+/frame", "kestrin/v1/hall-1/gap",
                                       "kestrin/v1/hall-1/info", "kestrin/v1/hall-1/health"}));
}

TEST_F(ConsumerTest, EachRecordComesOnceAndIsCommittedByTheNextTick) {
  deliver({1, 2, 3});
  EXPECT_EQ(out, (Texts{"a1", "a2", "a3"}));
  EXPECT_EQ(said(), Texts());
  EXPECT_EQ(tick(), Texts{"commit a3"});
  EXPECT_EQ(tick(), Texts());
}

TEST_F(ConsumerTest, RepeatsAreCountedAndNotHandedOut) {
  deliver({1, 2, 1, 2, 3, 2});
  EXPECT_EQ(out, (Texts{"a1", "a2", "a3"}));
  EXPECT_EQ(consumer.repeats(), 3U);
  EXPECT_EQ(consumer.taken(), 3U);
}

TEST_F(ConsumerTest, AfterRepeatsItCommitsAgainSinceTheGatewayMayHaveLostTheCommit) {
  deliver({1, 2});
  EXPECT_EQ(tick(), Texts{"commit a2"});
  deliver({1, 2});
  EXPECT_EQ(tick(), Texts{"commit a2"});
  EXPECT_EQ(tick(), Texts());
}

TEST_F(ConsumerTest, ARepeatOfWhatWaitsForItsTurnIsARepeatToo) {
  deliver({1, 3, 3, 2});
  EXPECT_EQ(out, (Texts{"a1", "a2", "a3"}));
  EXPECT_EQ(consumer.repeats(), 1U);
}

TEST_F(ConsumerTest, WhatComesBeforeItsTurnWaits) {
  deliver({1, 4, 3});
  EXPECT_EQ(out, Texts{"a1"});
  deliver({2});
  EXPECT_EQ(out, (Texts{"a1", "a2", "a3", "a4"}));
}

TEST_F(ConsumerTest, WhatIsStillMissingAtTheSecondTickIsAskedForAndLessAndLessOften) {
  deliver({1, 4, 5, 6});
  EXPECT_EQ(tick(), Texts{"commit a1"});
  EXPECT_EQ(tick(), Texts{"replay a2"});
  std::vector<int> pauses;
  for (int pause = 1; pauses.size() < 7; ++pause) {
    if (tick().empty()) continue;
    pauses.push_back(pause);
    pause = 0;
  }
  EXPECT_EQ(pauses, (std::vector<int>{2, 4, 8, 16, 32, 32, 32}));
}

TEST_F(ConsumerTest, WhatCameInTheMeantimeIsNotAskedFor) {
  deliver({1, 3});
  tick();
  deliver({2, 5});
  EXPECT_EQ(tick(), Texts{"commit a3"});
  deliver({4});
  EXPECT_EQ(tick(), Texts{"commit a5"});
}

TEST_F(ConsumerTest, ManyMessagesBehindAGapAskOnce) {
  deliver({1});
  for (RecordNumber number = 3; number < 300; ++number) deliver({number});
  tick();
  EXPECT_EQ(said(), Texts());
  EXPECT_EQ(tick(), Texts{"replay a2"});
}

TEST_F(ConsumerTest, AnEndThatTheBrokerDroppedIsNoticedByTheGatewaysHealth) {
  deliver({1, 2});
  tick();
  health(1, 5);
  tick();
  EXPECT_EQ(tick(), Texts{"replay a3"});
}

TEST_F(ConsumerTest, AfterEachConnectionItCommitsAndAsksOnceTheLogIsKnown) {
  consumer.connected();
  EXPECT_EQ(said(), Texts());
  info(1, 1);
  EXPECT_EQ(said(), Texts{"replay a1"});
  deliver({1, 2});
  tick();
  said();
  consumer.connected();
  EXPECT_EQ(said(), Texts{"commit a2"});
  info(1, 3);
  EXPECT_EQ(said(), Texts{"replay a3"});
  info(1, 3);
  EXPECT_EQ(said(), Texts());
}

TEST_F(ConsumerTest, WithoutInformationTheNextTickAsks) {
  deliver({1});
  consumer.connected();
  said();
  EXPECT_EQ(tick(), Texts{"replay a2"});
  EXPECT_EQ(tick(), Texts());
}

TEST_F(ConsumerTest, ANewConsumerBeginsWhereTheLogBegins) {
  info(41, 60);
  deliver({41, 42});
  EXPECT_EQ(out, (Texts{"a41", "a42"}));
  EXPECT_EQ(consumer.lost(), 0U);
}

TEST_F(ConsumerTest, ANewConsumerThatGetsTheEndFirstIsGivenTheBeginningAllTheSame) {
  deliver({42});
  EXPECT_EQ(out, Texts());
  info(40, 43);
  EXPECT_EQ(out, Texts());
  deliver({40, 41});
  EXPECT_EQ(out, (Texts{"a40", "a41", "a42"}));
}

TEST_F(ConsumerTest, WhatTheGatewayNoLongerKeepsIsReportedAsLost) {
  deliver({1, 2, 5});
  health(7, 9);
  EXPECT_EQ(out, (Texts{"a1", "a2", "a5"}));
  EXPECT_EQ(gaps, (Texts{"a3-4", "a6-6"}));
  EXPECT_EQ(consumer.lost(), 3U);
  deliver({7});
  EXPECT_EQ(out.back(), "a7");
}

TEST_F(ConsumerTest, AGapRecordBehindWhatIsMissingEndsTheWaiting) {
  deliver({1});
  deliver(gapRecord(6, 2, 5));
  EXPECT_EQ(out, (Texts{"a1", "a6"}));
  EXPECT_EQ(gaps, Texts{"a2-5"});
  deliver({7});
  EXPECT_EQ(tick(), Texts{"commit a7"});
}

TEST_F(ConsumerTest, OfALostRangeOnlyWhatDidNotComeIsLost) {
  deliver({1, 2, 3});
  deliver({5});
  deliver(gapRecord(8, 2, 6));
  EXPECT_EQ(gaps, (Texts{"a4-4", "a6-6"}));
  EXPECT_EQ(consumer.lost(), 2U);
  deliver({7});
  EXPECT_EQ(out, (Texts{"a1", "a2", "a3", "a5", "a7", "a8"}));
}

TEST_F(ConsumerTest, AGapInFrontOfANewConsumersBeginningIsReported) {
  info(11, 13);
  deliver({11});
  deliver(gapRecord(12, 3, 10));
  EXPECT_EQ(gaps, Texts{"a3-10"});
  EXPECT_EQ(consumer.lost(), 8U);
}

TEST_F(ConsumerTest, ARepeatedGapRecordCountsOnce) {
  deliver({1});
  deliver(gapRecord(3, 2, 2));
  deliver(gapRecord(3, 2, 2));
  EXPECT_EQ(consumer.lost(), 1U);
}

TEST_F(ConsumerTest, AnotherLogBeginsAtOneAndIsTheOneThatIsCommitted) {
  info(1, 3);
  deliver({1, 2});
  tick();
  said();
  info(1, 2, kOtherLog);
  deliver({1}, kOtherLog);
  EXPECT_EQ(out, (Texts{"a1", "a2", "b1"}));
  EXPECT_EQ(consumer.repeats(), 0U);
  EXPECT_EQ(tick(), Texts{"commit b1"});
}

TEST_F(ConsumerTest, WhatIsMissingOfAnEarlierLogIsNotAskedFor) {
  info(1, 3);
  deliver({1, 3});
  info(1, 1, kOtherLog);
  said();
  for (int i = 0; i < 5; ++i) EXPECT_EQ(tick(), Texts());
}

TEST_F(ConsumerTest, AGapAboutAnEarlierLogSaysWhatOfThatIsLost) {
  deliver({1, 2, 4});
  info(1, 2, kOtherLog);
  deliver(gapRecord(1, 2, 6, kLog, GapReason::damaged), kOtherLog);
  EXPECT_EQ(out, (Texts{"a1", "a2", "b1", "a4"}));
  EXPECT_EQ(gaps, (Texts{"a3-3", "a5-6"}));
}

TEST_F(ConsumerTest, AGapAboutAnUnknownLogIsReportedWhole) {
  deliver(gapRecord(1, 2, 6, kOtherLog, GapReason::damaged));
  EXPECT_EQ(gaps, Texts{"b2-6"});
  EXPECT_EQ(consumer.lost(), 5U);
}

TEST_F(ConsumerTest, AGapAboutAnotherLogTakesNothingFromThisOne) {
  deliver({1});
  deliver(gapRecord(3, 2, 2, kOtherLog, GapReason::damaged));
  EXPECT_EQ(out, Texts{"a1"});
  deliver({2});
  EXPECT_EQ(out, (Texts{"a1", "a2", "a3"}));
}

TEST_F(ConsumerTest, WhatIsNotKeptSafeIsNotCommittedAndOfferedAgainByTheNextTick) {
  deliver({1});
  refusing = true;
  deliver({2, 3});
  EXPECT_EQ(tick(), Texts{"commit a1"});
  EXPECT_EQ(consumer.saved().at(kLog), 2U);
  refusing = false;
  EXPECT_EQ(tick(), Texts{"commit a3"});
  EXPECT_EQ(out, (Texts{"a1", "a2", "a3"}));
}

TEST_F(ConsumerTest, ARestartedConsumerTakesUpWhereItWas) {
  deliver({1, 2, 3});
  Consumer later("hall-1", "wms", handlers());
  later.restore(consumer.saved());
  later.connected();
  Message message;
  message.topic = topics.info();
  GatewayInfo info;
  info.log = kLog;
  info.first = 1;
  info.next = 5;
  message.payload = textOf(info);
  later.take(message);
  EXPECT_EQ(said(), Texts{"replay a4"});
  for (const RecordNumber number : {3U, 4U}) {
    message.topic = topics.readerFrame("C0:00:00:00:00:01");
    message.payload = payloadOf(frame(number), kLog, FrameFormat::json);
    later.take(message);
  }
  EXPECT_EQ(out, (Texts{"a1", "a2", "a3", "a4"}));
  EXPECT_EQ(later.repeats(), 1U);
  later.tick();
  EXPECT_EQ(said(), Texts{"commit a4"});
}

TEST_F(ConsumerTest, ARestartedConsumerCommitsAgainWhatItSaved) {
  consumer.restore({{kLog, 8}});
  consumer.connected();
  info(1, 8);
  EXPECT_EQ(said(), Texts{"replay a8"});
  EXPECT_EQ(tick(), Texts{"commit a7"});
}

TEST_F(ConsumerTest, WhatCannotWaitForLackOfRoomIsTakenWhenItComesAgain) {
  Consumer::Limits limits;
  limits.waiting = 3;
  Consumer small("hall-1", "wms", handlers(), limits);
  const auto give = [&](RecordNumber number) {
    Message message;
    message.topic = topics.readerFrame("C0:00:00:00:00:01");
    message.payload = payloadOf(frame(number), kLog, FrameFormat::json);
    small.take(message);
  };
  for (const RecordNumber number : {9U, 8U, 7U, 6U, 2U, 3U}) give(number);
  EXPECT_EQ(small.repeats(), 0U);
  give(1);  // Of the others 2, 3 and 6 have room.
  EXPECT_EQ(out, (Texts{"a1", "a2", "a3"}));
  small.tick();
  small.tick();
  EXPECT_EQ(said(), (Texts{"commit a3", "replay a4"}));
  for (RecordNumber number = 4; number < 10; ++number) give(number);
  EXPECT_EQ(out.size(), 9U);
  EXPECT_EQ(out.back(), "a9");
}

TEST_F(ConsumerTest, OfManyLogsTheOneNotUsedLongestIsForgotten) {
  Consumer::Limits limits;
  limits.logs = 2;
  Consumer small("hall-1", "wms", handlers(), limits);
  for (const char digit : {'a', 'b', 'c'}) {
    Message message;
    message.topic = topics.readerFrame("C0:00:00:00:00:01");
    message.payload = payloadOf(frame(1), LogIdentity(32, digit), FrameFormat::json);
    small.take(message);
  }
  const auto saved = small.saved();
  EXPECT_EQ(saved.size(), 2U);
  EXPECT_FALSE(saved.contains(kLog));
}

TEST_F(ConsumerTest, WhatCannotBeReadIsSaidWithItsTopicAndChangesNothing) {
  deliver({1});
  for (const std::string payload :
       {"", "{", "[]", "{\"v\":1}", "{\"log\":1,\"first\":1}", "\xff\xfe"}) {
    for (const std::string topic : {"kestrin/v1/hall-1/reader/X/frame", "kestrin/v1/hall-1/gap",
                                    "kestrin/v1/hall-1/info", "kestrin/v1/hall-1/health"}) {
      const std::size_t before = troubles.size();
      take(topic, payload);
      ASSERT_EQ(troubles.size(), before + 1) << topic << " " << payload;
      EXPECT_EQ(troubles.back().find(topic + ": "), 0U) << troubles.back();
    }
  }
  deliver({2});
  EXPECT_EQ(out, (Texts{"a1", "a2"}));
  EXPECT_EQ(tick(), Texts{"commit a2"});
}

TEST_F(ConsumerTest, NumbersThatCannotBeAreRefused) {
  std::string payload = payloadOf(frame(7777), kLog, FrameFormat::json);
  const auto with = [&](const std::string& number) {
    std::string changed = payload;
    return changed.replace(changed.find("7777"), 4, number);
  };
  for (const std::string number : {"0", "18446744073709551615", "-1"}) {
    take("kestrin/v1/hall-1/reader/X/frame", with(number));
  }
  EXPECT_EQ(troubles.size(), 3U);
  EXPECT_EQ(consumer.saved().size(), 0U);
  take("kestrin/v1/hall-1/reader/X/frame", with("9223372036854775807"));
  EXPECT_EQ(troubles.size(), 3U);
}

TEST(NameComplaint, KnowsTheAlphabetAndTheLength) {
  EXPECT_FALSE(nameComplaint("wms"));
  EXPECT_FALSE(nameComplaint("A-Z_09"));
  EXPECT_FALSE(nameComplaint(std::string(64, 'a')));
  for (const std::string& wrong : {std::string(), std::string(65, 'a'), std::string("a/b"),
                                   std::string("a+"), std::string("#"), std::string("a b"),
                                   std::string("ä"), std::string("a\n"), std::string("a\0b", 3)}) {
    EXPECT_TRUE(nameComplaint(wrong)) << wrong;
  }
}

}  // namespace
}  // namespace kestrin::gateway
