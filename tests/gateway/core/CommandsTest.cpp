// The queues of commands, without a reader or a broker.
#include <gtest/gtest.h>

#include "KestrinBLESDK/RcpFrame.h"
#include "KestrinBLESDK/platform/MainRunLoop.h"
#include "kestrin/simulated/VirtualClock.h"
#include "tools/gateway/core/Commands.h"

#include <chrono>
#include <map>
#include <string>
#include <vector>

namespace kestrin::gateway::test {
namespace {

using std::chrono::minutes;
using std::chrono::seconds;

class CommandsTest : public testing::Test {
 protected:
  static Message command(const std::string& correlation) {
    Message message;
    const std::vector<std::uint8_t> payload = {1};
    const auto frame = buildRcpFrame(0x00, 0x22, payload);
    message.payload = R"({"bytes":")";
    for (const std::uint8_t byte : frame->span()) {
      constexpr char kDigits[] = "0123456789abcdef";
      message.payload += kDigits[byte >> 4U];
      message.payload += kDigits[byte & 15U];
    }
    message.payload += R"("})";
    message.responseTopic = "answers";
    if (!correlation.empty()) message.correlationData = correlation;
    return message;
  }
  Commands::Handlers handlers() {
    return {.now = [this] { return loop_->now(); },
            .find = [](const std::string& part) -> std::optional<std::string> {
              return part == "nobody" ? std::nullopt : std::optional(part);
            },
            .isPluggedIn = [this](const std::string& reader) { return pluggedIn_[reader]; },
            .send =
                [this](const std::string& reader, const auto&, Commands::Sent sent) {
                  ++sent_;
                  ending_[reader].push_back(std::move(sent));
                },
            .answer = [this](Message message) { answers_.push_back(std::move(message)); },
            .complain = [this](const std::string& line) { complaints_.push_back(line); }};
  }
  /// The radio has taken the oldest command of the reader, or has not.
  void end(const std::string& reader, const std::optional<std::string>& why = std::nullopt) {
    ASSERT_FALSE(ending_[reader].empty());
    const auto sent = std::move(ending_[reader].front());
    ending_[reader].erase(ending_[reader].begin());
    sent(why);
  }
  [[nodiscard]] bool isAnswered(const std::string& words) const {
    return !answers_.empty() && answers_.back().payload.find(words) != std::string::npos;
  }

  const std::shared_ptr<MainRunLoop> loop_ =
      std::make_shared<MainRunLoop>(std::make_shared<simulated::VirtualClock>());
  std::map<std::string, bool> pluggedIn_;
  std::map<std::string, std::vector<Commands::Sent>> ending_;
  std::vector<Message> answers_;
  std::vector<std::string> complaints_;
  std::size_t sent_ = 0;
  Commands commands_{loop_, handlers()};
};

TEST_F(CommandsTest, SendsOneAfterTheOther) {
  pluggedIn_["a"] = true;
  commands_.take("a", command("1"));
  commands_.take("a", command("2"));
  EXPECT_EQ(sent_, 1U);
  end("a");
  EXPECT_EQ(sent_, 2U);
  end("a", "the link is down");
  ASSERT_EQ(answers_.size(), 2U);
  EXPECT_EQ(answers_[0].payload, commandAnswer(true, ""));
  EXPECT_EQ(answers_[0].correlationData, "1");
  EXPECT_EQ(answers_[1].payload, commandAnswer(false, "the link is down"));
  EXPECT_EQ(answers_[1].correlationData, "2");
}

TEST_F(CommandsTest, LetsNoReaderWaitForAnother) {
  pluggedIn_["b"] = true;
  commands_.take("a", command("1"));
  commands_.take("b", command("2"));
  EXPECT_EQ(sent_, 1U);
  end("b");
  EXPECT_TRUE(isAnswered("true"));
}

TEST_F(CommandsTest, GivesUpAWaitingCommandWithoutExpiryAfterHalfAMinute) {
  commands_.take("a", command("1"));
  loop_->runFor(seconds(29));
  EXPECT_TRUE(answers_.empty());
  loop_->runFor(seconds(2));
  EXPECT_TRUE(isAnswered("expired"));
  pluggedIn_["a"] = true;
  commands_.readerChanged("a");
  EXPECT_EQ(sent_, 0U);
}

TEST_F(CommandsTest, DoesNotCarryOutWhatHasExpiredOnItsWay) {
  pluggedIn_["a"] = true;
  Message late = command("1");
  late.expirySeconds = 0;
  commands_.take("a", late);
  EXPECT_EQ(sent_, 0U);
  EXPECT_TRUE(isAnswered("expired"));
}

TEST_F(CommandsTest, LetsNoMoreThanSixtyFourWaitForAReader) {
  for (int each = 0; each < 64; ++each) commands_.take("a", command(std::to_string(each)));
  EXPECT_TRUE(answers_.empty());
  commands_.take("a", command("one too many"));
  EXPECT_TRUE(isAnswered("64 commands wait for the reader already"));
}

TEST_F(CommandsTest, AnswersARepeatThatComesBeforeTheFirstIsDoneOnlyOnce) {
  pluggedIn_["a"] = true;
  commands_.take("a", command("1"));
  commands_.take("a", command("1"));
  EXPECT_EQ(sent_, 1U);
  end("a");
  EXPECT_EQ(answers_.size(), 1U);
  commands_.take("a", command("1"));
  EXPECT_EQ(sent_, 1U);
  EXPECT_EQ(answers_.size(), 2U);
}

TEST_F(CommandsTest, RefusesOneCorrelationForTwoCommands) {
  pluggedIn_["a"] = true;
  pluggedIn_["b"] = true;
  commands_.take("a", command("1"));
  commands_.take("b", command("1"));
  EXPECT_EQ(sent_, 1U);
  EXPECT_TRUE(isAnswered("was another command's"));
}

TEST_F(CommandsTest, ComplainsWhereNobodyCanBeAnswered) {
  Message anonymous = command("");
  anonymous.responseTopic.clear();
  commands_.take("nobody", anonymous);
  EXPECT_TRUE(answers_.empty());
  ASSERT_EQ(complaints_.size(), 1U);
  EXPECT_NE(complaints_[0].find("this gateway has no reader nobody"), std::string::npos);
  anonymous.responseTopic = "no/+/topic";
  commands_.take("a", anonymous);
  EXPECT_TRUE(answers_.empty());
  EXPECT_EQ(complaints_.size(), 2U);
}

TEST_F(CommandsTest, RefusesACommandOfMoreThan1029Bytes) {
  const auto text = [](std::size_t payload) {
    const auto frame = buildRcpFrame(0x00, 0x22, std::vector<std::uint8_t>(payload));
    std::string hex;
    for (const std::uint8_t byte : frame->span()) {
      constexpr char kDigits[] = "0123456789abcdef";
      hex += {kDigits[byte >> 4U], kDigits[byte & 15U]};
    }
    return R"({"bytes":")" + hex + R"("})";
  };
  pluggedIn_["a"] = true;
  Message longest = command("1");
  longest.payload = text(1021);
  commands_.take("a", longest);
  EXPECT_EQ(sent_, 1U);
  Message tooLong = command("2");
  tooLong.payload = text(1022);
  commands_.take("a", tooLong);
  EXPECT_EQ(sent_, 1U);
  EXPECT_TRUE(isAnswered("1,029") || isAnswered("1029"));
}

TEST_F(CommandsTest, AnswersWhatWaitsForAReaderThatIsTakenOut) {
  commands_.take("a", command("1"));
  commands_.readerRemoved("a");
  EXPECT_TRUE(isAnswered("taken out of the configuration"));
  commands_.take("b", command("2"));
  commands_.stop();
  EXPECT_TRUE(isAnswered("the gateway stops"));
}

TEST(CommandMemoryTest, KeepsEachForTenMinutesAndAThousandLonger) {
  CommandMemory memory;
  for (int each = 0; each < 2000; ++each) {
    memory.remember(std::to_string(each), {"a", {}}, minutes(0));
  }
  memory.remember("at nine", {"a", {}}, minutes(9));
  EXPECT_EQ(memory.size(), 2001U);
  memory.remember("at eleven", {"a", {}}, minutes(11));
  EXPECT_EQ(memory.size(), 1000U);
  EXPECT_EQ(memory.find("0"), nullptr);
  EXPECT_NE(memory.find("1999"), nullptr);
  EXPECT_NE(memory.find("at nine"), nullptr);
}

TEST(CommandMemoryTest, NeverKeepsMoreThanTenThousand) {
  CommandMemory memory;
  for (int each = 0; each < 10'001; ++each) {
    memory.remember(std::to_string(each), {"a", {}}, minutes(0));
  }
  EXPECT_EQ(memory.size(), 10'000U);
  EXPECT_EQ(memory.find("0"), nullptr);
}

}  // namespace
}  // namespace kestrin::gateway::test
