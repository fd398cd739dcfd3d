// The example for Home Assistant: its topics are a gateway's, and its templates use members that
// are there.
#include <KestrinBLESDK/Reader.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>
#include <regex>

#include "gateway/support/ChildProcess.h"
#include "gateway/support/TestFolder.h"
#include "tools/gateway/message/Messages.h"

namespace kestrin::gateway {
namespace {

using nlohmann::json;

json example() {
  const TestFolder folder;
  const std::string out = folder.pathOf("out");
  const auto failure =
      failureOf({PYTHON_PROGRAM, "-c",
                 "import json, sys, yaml; json.dump(yaml.safe_load(open(sys.argv[1])), sys.stdout)",
                 KESTRIN_EXAMPLES "/home_assistant.yaml"},
                out);
  EXPECT_FALSE(failure) << failure.value_or("");
  return failure ? json::object() : json::parse(contentsOf(out));
}

/// What stands in each topic of the gateway of the example.
std::map<std::string, json> payloads() {
  const Topics topics("warehouse-3");
  const std::string reader = "C0:00:00:00:00:01";
  Record record;
  record.reader = reader;
  record.bytes = {0xBB, 0x01, 0x22, 0x00, 0x00, 0x7E};
  json frame = json::parse(payloadOf(record, LogIdentity(32, 'a'), FrameFormat::json));
  // Of a whole frame; this one's checksum is not.
  frame["payload"] = "";
  return {{topics.state(), json::parse(textOf(GatewayState{}))},
          {topics.health(), json::parse(textOf(Health{}))},
          {topics.readerState(reader), json::parse(textOf(ReaderState{}))},
          {topics.readerFrame(reader), frame}};
}

void checkTemplate(const json& sensor, const std::string& topicKey, const std::string& textKey) {
  const auto known = payloads();
  const auto found = known.find(sensor.at(topicKey).get<std::string>());
  ASSERT_NE(found, known.end()) << sensor.at(topicKey) << " is not a topic of the gateway";
  if (!sensor.contains(textKey)) return;
  const std::string text = sensor.at(textKey).get<std::string>();
  const std::regex member(R"(value_json\.(\w+))");
  for (auto at = std::sregex_iterator(text.begin(), text.end(), member);
       at != std::sregex_iterator(); ++at) {
    EXPECT_TRUE(found->second.contains((*at)[1].str())) << (*at)[0] << " in " << found->first;
  }
  const std::regex phase(R"(value_json\.phase == '(.*?)')");
  std::smatch match;
  if (std::regex_search(text, match, phase)) {
    EXPECT_EQ(match[1].str(), nameOf(ReaderPhase::pluggedIn));
  }
}

TEST(HomeAssistant, HasNoDeadTopicAndNoMemberThatIsNotThere) {
  std::size_t sensors = 0;
  std::vector<std::string> identifiers;
  const json whole = example();
  for (const auto& [kind, list] : whole.at("mqtt").items()) {
    EXPECT_TRUE(kind == "sensor" || kind == "binary_sensor") << kind;
    for (const json& sensor : list) {
      ++sensors;
      identifiers.push_back(sensor.at("unique_id").get<std::string>());
      for (const auto& [key, value] : sensor.items()) {
        if (!key.ends_with("_topic")) continue;
        const std::string begin = key.substr(0, key.size() - 6);
        // The state's is `value_template`.
        checkTemplate(sensor, key, begin == "state" ? "value_template" : begin + "_template");
      }
    }
  }
  EXPECT_EQ(sensors, 6U);
  std::sort(identifiers.begin(), identifiers.end());
  EXPECT_EQ(std::adjacent_find(identifiers.begin(), identifiers.end()), identifiers.end());
}

}  // namespace
}  // namespace kestrin::gateway
