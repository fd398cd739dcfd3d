// The flow for Node-RED: its topics are the gateway's, and its functions, played as Node-RED plays
// them, do what a consumer does.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <nlohmann/json.hpp>

#include "gateway/support/ChildProcess.h"
#include "gateway/support/TestFolder.h"
#include "tools/gateway/message/Messages.h"

namespace kestrin::gateway {
namespace {

using nlohmann::json;
using Numbers = std::vector<RecordNumber>;

const std::string kFlow = KESTRIN_EXAMPLES "/node_red_flow.json";
const LogIdentity kLog(32, 'a');
const LogIdentity kOtherLog(32, 'b');

std::string textIn(const json& node, const std::string& key) {
  return node.at(key).get<std::string>();
}

json flow() {
  std::ifstream file(kFlow);
  return json::parse(file);
}

class Steps {
 public:
  Steps& frame(RecordNumber number, const LogIdentity& log = kLog) {
    Record record;
    record.number = number;
    record.reader = "C0:00:00:00:00:01";
    record.name = "KVR-0417";
    record.bytes = {0xBB, 0x01};
    return come(topics_.readerFrame(record.reader), payloadOf(record, log, FrameFormat::json));
  }
  Steps& frames(RecordNumber from, RecordNumber to) {
    for (RecordNumber each = from; each <= to; ++each) frame(each);
    return *this;
  }
  Steps& gap(RecordNumber number, RecordNumber from, RecordNumber to) {
    Record record;
    record.number = number;
    record.kind = RecordKind::gap;
    record.gap = Gap{kLog, from, to, GapReason::budget};
    return come(topics_.gap(), payloadOf(record, kLog, FrameFormat::json));
  }
  Steps& health(RecordNumber first, RecordNumber published, RecordNumber committed,
                const LogIdentity& log = kLog) {
    Health health;
    health.log = log;
    health.first = first;
    health.published = published;
    health.commits = {{"nodered", committed}, {"stock", 0}};
    return come(topics_.health(), textOf(health));
  }
  Steps& come(const std::string& topic, const std::string& payload) {
    steps_.push_back(json::object({{"topic", topic}, {"payload", payload}}));
    return *this;
  }
  Steps& pass(int milliseconds) {
    steps_.push_back(json::object({{"pass", milliseconds}}));
    return *this;
  }
  Steps& restart() {
    steps_.push_back(json::object({{"restart", true}}));
    return *this;
  }
  Steps& storing(bool works) {
    steps_.push_back(json::object({{"store", works}}));
    return *this;
  }
  /// What has happened.
  [[nodiscard]] json play() const {
    const TestFolder folder;
    const std::string steps = folder.write("steps.json", steps_.dump());
    const std::string told = folder.pathOf("told");
    const auto failure = failureOf({NODE_PROGRAM, FLOW_PLAYER, kFlow, steps}, told);
    EXPECT_FALSE(failure) << failure.value_or("");
    return failure ? json::object() : json::parse(contentsOf(told));
  }

 private:
  const Topics topics_{"hall-1"};
  json steps_ = json::array();
};

Numbers storedIn(const json& told) {
  Numbers numbers;
  for (const json& each : told.at("stored")) numbers.push_back(each.at("n").get<RecordNumber>());
  return numbers;
}
/// The commits, or the replays, that the broker got: each must be as the gateway takes it.
Numbers commitsIn(const json& told) {
  Numbers numbers;
  for (const json& each : told.at("published")) {
    if (textIn(each, "topic") != Topics("hall-1").commit("nodered")) continue;
    std::string error;
    const auto commit = commitOf(textIn(each, "payload"), error);
    EXPECT_TRUE(commit) << error;
    EXPECT_TRUE(each.at("retain").get<bool>());
    EXPECT_EQ(each.at("qos").get<int>(), 1);
    if (commit) numbers.push_back(commit->number);
  }
  return numbers;
}
Numbers replaysIn(const json& told) {
  Numbers numbers;
  for (const json& each : told.at("published")) {
    if (textIn(each, "topic") != Topics("hall-1").replay()) continue;
    std::string error;
    const auto replay = replayOf(textIn(each, "payload"), error);
    EXPECT_TRUE(replay) << error;
    EXPECT_FALSE(each.at("retain").get<bool>());
    if (!replay) continue;
    EXPECT_EQ(replay->consumer, "nodered");
    numbers.push_back(replay->from);
  }
  return numbers;
}
Numbers range(RecordNumber from, RecordNumber to) {
  Numbers numbers;
  for (RecordNumber each = from; each <= to; ++each) numbers.push_back(each);
  return numbers;
}

TEST(Flow, HasNoTopicThatNoGatewayHas) {
  const Topics every("+");
  auto known = every.deliveryFilters();
  known.push_back(every.health());
  std::vector<std::string> heard;
  for (const json& node : flow()) {
    if (textIn(node, "type") == "mqtt in") heard.push_back(textIn(node, "topic"));
    // The functions name the topic.
    if (textIn(node, "type") == "mqtt out") {
      EXPECT_EQ(textIn(node, "topic"), "");
    }
  }
  std::sort(heard.begin(), heard.end());
  std::sort(known.begin(), known.end());
  EXPECT_EQ(heard, known);
}

TEST(Flow, EveryWireEndsAtANodeAndEveryNodeIsOnTheTab) {
  std::vector<std::string> known;
  for (const json& node : flow()) known.push_back(textIn(node, "id"));
  for (const json& node : flow()) {
    for (const json& output : node.value("wires", json::array())) {
      for (const json& id : output) {
        EXPECT_EQ(std::count(known.begin(), known.end(), id.get<std::string>()), 1) << id;
      }
    }
    for (const char* const key : {"z", "broker"}) {
      if (!node.contains(key) || textIn(node, "type") == "mqtt-broker") continue;
      EXPECT_EQ(std::count(known.begin(), known.end(), textIn(node, key)), 1) << node;
    }
  }
}

TEST(Flow, StoresEachRecordOnceInOrderAndCommitsWhatIsStored) {
  Steps steps;
  steps.health(1, 0, 0).frames(1, 3).frames(2, 5).pass(1000).frame(6).pass(1000);
  const json told = steps.play();
  EXPECT_EQ(storedIn(told), range(1, 6));
  EXPECT_EQ(commitsIn(told), (Numbers{5, 6}));
  EXPECT_EQ(replaysIn(told), Numbers());
  EXPECT_EQ(told.at("warnings"), json::array());
}

TEST(Flow, WhatIsNotStoredIsNotCommitted) {
  Steps steps;
  steps.health(1, 0, 0).frames(1, 2).pass(1000).storing(false).frames(3, 5).pass(5000);
  const json told = steps.play();
  EXPECT_EQ(storedIn(told), range(1, 2));
  EXPECT_EQ(commitsIn(told), Numbers{2});
}

TEST(Flow, AsksForWhatIsMissingAndHandsOnNothingBehindIt) {
  Steps steps;
  steps.health(1, 0, 0).frame(1).frames(4, 6).pass(1000);
  json told = steps.play();
  EXPECT_EQ(storedIn(told), range(1, 1));
  EXPECT_EQ(replaysIn(told), Numbers{2});
  EXPECT_EQ(commitsIn(told), Numbers{1});
  // Not more often than every five seconds, and again then.
  steps.frame(7).pass(5000).frame(8).frames(2, 8).pass(1000);
  told = steps.play();
  EXPECT_EQ(replaysIn(told), (Numbers{2, 2}));
  EXPECT_EQ(storedIn(told), range(1, 8));
  EXPECT_EQ(commitsIn(told), (Numbers{1, 8}));
}

TEST(Flow, NoticesByTheHealthThatTheLastOnesAreMissing) {
  Steps steps;
  steps.health(1, 0, 0).frames(1, 3).health(1, 5, 3);
  EXPECT_EQ(replaysIn(steps.play()), Numbers{4});
}

TEST(Flow, GoesOnBehindAGapThatIsReported) {
  Steps steps;
  steps.health(1, 0, 0).frame(1).frame(4).gap(5, 2, 3).frame(6).pass(1000);
  const json told = steps.play();
  EXPECT_EQ(storedIn(told), (Numbers{1, 4, 5, 6}));
  EXPECT_EQ(commitsIn(told), Numbers{6});
  ASSERT_EQ(told.at("debugged").size(), 1U);
  EXPECT_EQ(told.at("debugged").at(0).at("from").get<int>(), 2);
  EXPECT_EQ(told.at("debugged").at(0).at("to").get<int>(), 3);
}

TEST(Flow, SaysWhatIsNotInTheLogAnyMore) {
  Steps steps;
  steps.health(1, 0, 0).frames(1, 3).health(8, 9, 3).frames(8, 9);
  const json told = steps.play();
  EXPECT_EQ(storedIn(told), (Numbers{1, 2, 3, 8, 9}));
  ASSERT_EQ(told.at("debugged").size(), 1U);
  EXPECT_EQ(told.at("debugged").at(0).at("to").get<int>(), 7);
}

TEST(Flow, GoesOnBehindItsCommitAfterARestart) {
  Steps steps;
  steps.health(1, 0, 0).frames(1, 5).pass(1000).restart();
  // Before it knows anything it takes nothing, and the gateway is asked for it.
  steps.frame(6).health(1, 7, 5).frames(6, 7).pass(1000);
  const json told = steps.play();
  EXPECT_EQ(storedIn(told), range(1, 7));
  EXPECT_EQ(replaysIn(told), Numbers{6});
  EXPECT_EQ(commitsIn(told), (Numbers{5, 7}));
}

TEST(Flow, BeginsAgainWithAnotherLog) {
  Steps steps;
  steps.health(1, 0, 0).frames(1, 5).pass(1000).health(1, 1, 0, kOtherLog);
  steps.frame(1, kOtherLog).frame(6).pass(1000);
  const json told = steps.play();
  EXPECT_EQ(storedIn(told), (Numbers{1, 2, 3, 4, 5, 1}));
  EXPECT_EQ(commitsIn(told), (Numbers{5, 1}));
}

TEST(Flow, SaysThatItIsNotDeclaredOrDoesNotGetJson) {
  Steps steps;
  Health health;
  health.log = kLog;
  health.first = 1;
  steps.come(Topics("hall-1").health(), textOf(health)).come(Topics("hall-1").gap(), "\x7F");
  const json warnings = steps.play().at("warnings");
  ASSERT_EQ(warnings.size(), 2U) << warnings;
  EXPECT_EQ(warnings.at(0).get<std::string>(), "hall-1 does not declare the consumer nodered");
  EXPECT_NE(warnings.at(1).get<std::string>().find("set format = \"json\""), std::string::npos);
}

}  // namespace
}  // namespace kestrin::gateway
