// What is published besides records, and what is shown of what is wrong.
#include <gtest/gtest.h>

#include "tools/gateway/core/Outbox.h"

#include <chrono>
#include <string>
#include <vector>

namespace kestrin::gateway::test {
namespace {

class PaperBroker final : public Broker {
 public:
  void start(std::vector<std::string> /*filters*/, std::optional<Message> /*will*/,
             BrokerHandlers /*handlers*/) override {}
  std::optional<PublishId> publish(Message message) override {
    published.push_back(message);
    return published.size();
  }
  void stop(double /*limitSeconds*/, std::function<void()> /*done*/) override {}
  void reloadCertificates() override {}

  std::vector<Message> published;
};

class OutboxTest : public testing::Test {
 protected:
  void acknowledge(PublishId id, const std::optional<std::string>& refused = std::nullopt) {
    window_.acknowledged();
    EXPECT_TRUE(outbox_.acknowledged(id, refused));
  }
  void SetUp() override { window_.open(2); }

  Time now_{};
  std::vector<std::string> said_;
  PaperBroker broker_;
  Troubles troubles_{{.now = [this] { return now_; },
                      .say = [this](const std::string& line) { said_.push_back(line); }}};
  Window window_{broker_};
  Outbox outbox_{window_, troubles_};
};

TEST_F(OutboxTest, PublishesOnlyTheLastTextOfATopic) {
  outbox_.retain("a", "1");
  outbox_.retain("a", "2");
  EXPECT_TRUE(outbox_.pump());
  ASSERT_EQ(broker_.published.size(), 1U);
  EXPECT_EQ(broker_.published[0].payload, "2");
  EXPECT_TRUE(broker_.published[0].retain);
}

TEST_F(OutboxTest, PublishesATextThatChangedBeforeItsAcknowledgement) {
  outbox_.retain("a", "1");
  EXPECT_TRUE(outbox_.pump());
  outbox_.retain("a", "2");
  EXPECT_TRUE(outbox_.pump());
  EXPECT_FALSE(outbox_.acknowledged(1, std::nullopt));
  EXPECT_FALSE(outbox_.isDone());
  acknowledge(2);
  EXPECT_TRUE(outbox_.isDone());
}

TEST_F(OutboxTest, WaitsForRoomInTheWindow) {
  for (const char* const each : {"a", "b", "c"}) outbox_.retain(each, "1");
  EXPECT_FALSE(outbox_.pump());
  EXPECT_EQ(broker_.published.size(), 2U);
  acknowledge(1);
  EXPECT_TRUE(outbox_.pump());
  EXPECT_EQ(broker_.published.size(), 3U);
}

TEST_F(OutboxTest, PublishesTopicsAgainAtAConnectionAndLettersOnlyUntilTheyAreAcknowledged) {
  Message letter;
  letter.topic = "letter";
  outbox_.retain("a", "1");
  outbox_.send(letter);
  EXPECT_TRUE(outbox_.pump());
  acknowledge(1);
  outbox_.disconnected();
  window_.open(2);
  outbox_.connected();
  EXPECT_TRUE(outbox_.pump());
  ASSERT_EQ(broker_.published.size(), 4U);
  acknowledge(3);
  acknowledge(4);
  window_.open(2);
  outbox_.connected();
  EXPECT_TRUE(outbox_.pump());
  ASSERT_EQ(broker_.published.size(), 5U);
  EXPECT_EQ(broker_.published[4].topic, "a");
}

TEST_F(OutboxTest, RemovesARetainedMessageOnce) {
  outbox_.retain("a", "");
  EXPECT_TRUE(outbox_.pump());
  acknowledge(1);
  window_.open(2);
  outbox_.connected();
  EXPECT_TRUE(outbox_.pump());
  EXPECT_EQ(broker_.published.size(), 1U);
}

TEST_F(OutboxTest, SaysWhatIsRefusedAndDoesNotTryItAgainBeforeItChanges) {
  outbox_.retain("a", "1");
  EXPECT_TRUE(outbox_.pump());
  acknowledge(1, "not authorized");
  EXPECT_TRUE(outbox_.pump());
  EXPECT_EQ(broker_.published.size(), 1U);
  EXPECT_EQ(said_, std::vector<std::string>{"the broker refuses a: not authorized"});
}

TEST_F(OutboxTest, GivesTheOldestAnswerUpWhenAThousandWait) {
  window_.close();
  for (int each = 0; each < 1001; ++each) {
    Message letter;
    letter.topic = std::to_string(each);
    outbox_.send(letter);
  }
  window_.open(1);
  EXPECT_FALSE(outbox_.pump());
  EXPECT_EQ(broker_.published.front().topic, "1");
  EXPECT_EQ(said_.size(), 1U);
}

TEST_F(OutboxTest, ShowsANoteForTenMinutesAndATroubleUntilItIsCleared) {
  troubles_.note("note", "something was wrong");
  troubles_.set("trouble", "something is wrong");
  EXPECT_EQ(troubles_.lines().size(), 2U);
  now_ = std::chrono::minutes(11);
  EXPECT_EQ(troubles_.lines(), std::vector<std::string>{"something is wrong"});
  troubles_.clear("trouble");
  EXPECT_TRUE(troubles_.lines().empty());
}

TEST_F(OutboxTest, SaysATroubleOnceForEachChange) {
  troubles_.set("a", "one");
  troubles_.set("a", "one");
  troubles_.set("a", "two");
  EXPECT_EQ(said_, (std::vector<std::string>{"one", "two"}));
}

TEST_F(OutboxTest, ShowsNoMoreTroublesThanAMessageHolds) {
  for (int each = 0; each < 1000; ++each) {
    troubles_.note(std::to_string(each), std::to_string(each));
    now_ += std::chrono::milliseconds(1);
  }
  EXPECT_EQ(troubles_.lines().size(), 200U);
}

TEST_F(OutboxTest, ShowsNoLongerTroublesThanAMessageHolds) {
  for (int each = 0; each < 100; ++each) {
    troubles_.set(std::to_string(each), std::string(5000, 'x'));
  }
  std::size_t bytes = 0;
  for (const std::string& line : troubles_.lines()) bytes += line.size();
  EXPECT_LT(bytes, 10000U);
  EXPECT_NE(troubles_.lines().back().find("91 more"), std::string::npos)
      << troubles_.lines().back();
}

}  // namespace
}  // namespace kestrin::gateway::test
