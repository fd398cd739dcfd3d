// Webhooks in virtual time: what is posted, when it is posted again, and when it is forgotten.
#include "gateway/core/Scene.h"

#include <algorithm>
#include <set>

namespace kestrin::gateway::test {
namespace {

using Numbers = std::vector<RecordNumber>;

HttpAnswer status(int number) { return {.status = number, .why = ""}; }

class WebhookTest : public testing::Test {
 protected:
  void SetUp() override {
    reader_ = scene_.addReader("KVR-0001");
    reader_->simulateSilence();
    scene_.config.consumers.clear();
    scene_.config.webhooks = {webhook("erp")};
  }
  static WebhookConfig webhook(const std::string& name) {
    WebhookConfig config;
    config.name = name;
    config.url = "https://" + name + ".example/frames";
    config.batch = 10;
    return config;
  }
  void begin() {
    scene_.start();
    ASSERT_TRUE(scene_.plugIn(reader_));
  }
  void send(std::uint32_t frames, std::size_t payloadSize = 4) {
    constexpr std::size_t kNotification = 180;
    const auto rx = simulated::readerCharacteristics(simulated::ReaderFamily::standard).rx;
    for (std::uint32_t each = 0; each < frames; ++each) {
      const auto frame = frameBytes(0x22, ++sent_, payloadSize);
      for (std::span<const std::uint8_t> rest = frame; !rest.empty();) {
        const auto piece = rest.first(std::min(kNotification, rest.size()));
        ASSERT_TRUE(reader_->simulateNotification(rx, NSData(piece)));
        rest = rest.subspan(piece.size());
      }
    }
  }
  [[nodiscard]] Numbers taken() const {
    Numbers numbers;
    for (const Delivery& each : scene_.web.taken) numbers.push_back(each.record.number);
    return numbers;
  }
  static Numbers upTo(RecordNumber last) {
    Numbers numbers;
    for (RecordNumber each = 1; each <= last; ++each) numbers.push_back(each);
    return numbers;
  }
  static std::string header(const HttpPost& post, const std::string& name) {
    for (const std::string& each : post.headers) {
      if (each.starts_with(name + ": ")) return each.substr(name.size() + 2);
    }
    return "(absent)";
  }
  [[nodiscard]] const Log& log() const { return scene_.gateway->log(); }

  Scene scene_;
  std::shared_ptr<simulated::VirtualPeripheral> reader_;
  std::uint32_t sent_ = 0;
};

TEST_F(WebhookTest, GetsEveryRecordInOrderAndForgetsNoneBeforeItsAnswer) {
  begin();
  scene_.web.delay = seconds(2);
  send(25);
  scene_.runFor(seconds(1));
  EXPECT_EQ(log().forgotten(), 0U);
  EXPECT_EQ(scene_.web.underWay, 1U);
  scene_.runFor(seconds(10));
  EXPECT_EQ(taken(), upTo(25));
  EXPECT_EQ(scene_.web.wrong, std::vector<std::string>());
  EXPECT_EQ(log().forgotten(), 25U);
  EXPECT_EQ(scene_.web.underWay, 0U);
}

TEST_F(WebhookTest, SaysWithEachPostWhichRecordsItHas) {
  begin();
  send(25);
  scene_.runFor(seconds(2));
  ASSERT_FALSE(scene_.web.posts.empty());
  const HttpPost& last = scene_.web.posts.back();
  EXPECT_EQ(header(last, "Kestrin-Gateway"), "g1");
  EXPECT_EQ(header(last, "Kestrin-Log"), log().identity());
  EXPECT_EQ(header(last, "Kestrin-To"), "25");
  EXPECT_EQ(header(last, "Content-Type"), "application/json");
  for (const HttpPost& each : scene_.web.posts) {
    const auto from = std::stoull(header(each, "Kestrin-From"));
    const auto to = std::stoull(header(each, "Kestrin-To"));
    EXPECT_LE(to - from, 9U);
    EXPECT_EQ(each.url, "https://erp.example/frames");
  }
}

TEST_F(WebhookTest, HoldsNoMoreThanItsBytesHoweverManyRecordsABatchMayHave) {
  scene_.config.webhooks[0].batch = 1000;
  scene_.web.answers = [](const HttpPost&) { return status(503); };
  begin();
  send(1000, 1000);
  scene_.runFor(minutes(2));
  scene_.web.answers = nullptr;
  scene_.runFor(minutes(2));
  EXPECT_EQ(taken(), upTo(1000));
  // 256 KiB of frames, whose JSON has two digits for each byte, and again for its payload.
  for (const HttpPost& each : scene_.web.posts) EXPECT_LT(each.body->size(), 1200U << 10U);
}

TEST_F(WebhookTest, PostsNothingThatIsNotOnTheDisk) {
  // A sync that has begun before does not count.
  scene_.syncDelay = seconds(20);
  begin();
  send(3);
  scene_.runFor(seconds(19));
  EXPECT_EQ(taken(), Numbers());
  EXPECT_EQ(scene_.web.posts.size(), 0U);
  scene_.runFor(minutes(1));
  EXPECT_EQ(taken(), upTo(3));
}

TEST_F(WebhookTest, PostsTheSameBatchAgainUntilItIsTaken) {
  begin();
  bool isWell = false;
  scene_.web.answers = [&](const HttpPost&) {
    return isWell ? std::nullopt : std::optional(status(503));
  };
  send(5);
  scene_.runFor(minutes(5));
  EXPECT_TRUE(
      scene_.hasTrouble("the webhook erp does not take records from number 1 on, which are "
                        "kept and posted again: it answers 503"));
  // Pauses grow to a minute: neither silence nor a storm.
  EXPECT_GT(scene_.web.posts.size(), 6U);
  EXPECT_LT(scene_.web.posts.size(), 16U);
  for (const HttpPost& each : scene_.web.posts) {
    EXPECT_EQ(*each.body, *scene_.web.posts.front().body);
  }
  EXPECT_EQ(log().forgotten(), 0U);
  send(5);
  isWell = true;
  scene_.runFor(minutes(2));
  EXPECT_EQ(taken(), upTo(10));
  EXPECT_FALSE(scene_.hasTrouble("webhook"));
  EXPECT_EQ(log().forgotten(), 10U);
}

TEST_F(WebhookTest, WaitsAsLongAsItIsAskedToButNotLongerThanTenMinutes) {
  begin();
  for (const Time asked : {Time(minutes(5)), Time(std::chrono::hours(24))}) {
    const std::size_t before = scene_.web.posts.size();
    bool isAsked = false;
    scene_.web.answers = [&](const HttpPost&) -> std::optional<HttpAnswer> {
      if (std::exchange(isAsked, true)) return std::nullopt;
      HttpAnswer answer = status(429);
      answer.retryAfter = asked;
      return answer;
    };
    send(1);
    scene_.runFor(std::min(asked, Webhook::kLongestRetryAfter) - seconds(2));
    EXPECT_EQ(scene_.web.posts.size(), before + 1);
    scene_.runFor(seconds(5));
    EXPECT_EQ(scene_.web.posts.size(), before + 2);
  }
  EXPECT_EQ(taken(), upTo(2));
}

TEST_F(WebhookTest, WhatAPersonHasToMendIsTriedAgainSlowlyAndNeverSkipped) {
  begin();
  int answer = 400;
  scene_.web.answers = [&](const HttpPost&) -> std::optional<HttpAnswer> {
    if (answer == 0) return std::nullopt;
    HttpAnswer refusal = status(answer);
    if (answer == 301) refusal.location = "http://other.example/";
    return refusal;
  };
  send(2);
  const std::vector<std::pair<int, std::string>> said{
      {400, "it answers 400"},
      {401, "it answers 401, not authorised; see token_file"},
      {301, "it answers 301 and points to http://other.example/, which is not followed"}};
  for (const auto& [number, words] : said) {
    answer = number;
    scene_.runFor(minutes(40));
    EXPECT_TRUE(scene_.hasTrouble(words)) << words;
  }
  // Two hours: each pause is at most 15 minutes, and soon at least 5.
  EXPECT_LT(scene_.web.posts.size(), 30U);
  EXPECT_GT(scene_.web.posts.size(), 8U);
  EXPECT_EQ(log().forgotten(), 0U);
  answer = 0;
  scene_.runFor(minutes(20));
  EXPECT_EQ(taken(), upTo(2));
}

TEST_F(WebhookTest, OneThatIsDeadHoldsUpNeitherTheBrokerNorAnother) {
  scene_.config.webhooks.push_back(webhook("dead"));
  scene_.config.consumers = {"c1"};
  scene_.web.answers = [](const HttpPost& post) -> std::optional<HttpAnswer> {
    if (post.url.find("dead") == std::string::npos) return std::nullopt;
    return status(0);
  };
  begin();
  Listener listener(scene_.broker, "listener", {"kestrin/v1/g1/reader/+/frame"});
  scene_.runFor(seconds(1));
  send(30);
  scene_.runFor(seconds(5));
  EXPECT_EQ(listener.numbers(), upTo(30));
  EXPECT_EQ(taken(), upTo(30));
  listener.publish(Topics("g1").commit("c1"), textOf(Commit{log().identity(), 30}), true);
  scene_.runFor(minutes(10));
  EXPECT_EQ(log().forgotten(), 0U);
  // The broker gets nothing again on the dead one's account, whose commit stands at 0, not even
  // with a new connection.
  EXPECT_EQ(listener.numbers(), upTo(30));
  scene_.broker.loseConnection("g1", milliseconds(1));
  scene_.runFor(minutes(2));
  EXPECT_EQ(listener.numbers(), upTo(30));
}

TEST_F(WebhookTest, ItsCommitOutlivesAKillOfTheGateway) {
  begin();
  send(20);
  scene_.runFor(seconds(5));
  ASSERT_EQ(log().forgotten(), 20U);
  scene_.web.answers = [](const HttpPost&) { return status(500); };
  send(5);
  scene_.runFor(seconds(1));
  scene_.kill();
  scene_.web.answers = nullptr;
  scene_.web.posts.clear();
  scene_.start();
  scene_.runFor(seconds(5));
  ASSERT_FALSE(scene_.web.posts.empty());
  EXPECT_EQ(header(scene_.web.posts.front(), "Kestrin-From"), "21");
  EXPECT_EQ(taken(), upTo(25));
}

TEST_F(WebhookTest, WhatItHasIsKeptUntilEachConsumerHasItToo) {
  scene_.config.consumers = {"c1"};
  begin();
  Listener listener(scene_.broker, "listener", {"kestrin/v1/g1/reader/+/frame"});
  scene_.runFor(seconds(1));
  send(5);
  scene_.runFor(seconds(5));
  ASSERT_EQ(taken(), upTo(5));
  EXPECT_EQ(log().forgotten(), 0U);
  listener.publish(Topics("g1").commit("c1"), textOf(Commit{log().identity(), 3}), true);
  scene_.runFor(seconds(2));
  EXPECT_EQ(log().forgotten(), 3U);
}

TEST_F(WebhookTest, WhatEverybodyHasIsForgottenAfterAKillThatCameBeforeThat) {
  scene_.config.consumers = {"c1"};
  begin();
  Listener listener(scene_.broker, "listener", {"kestrin/v1/g1/reader/+/frame"});
  scene_.runFor(seconds(1));
  send(5);
  scene_.runFor(seconds(5));
  ASSERT_EQ(taken(), upTo(5));
  listener.publish(Topics("g1").commit("c1"), textOf(Commit{log().identity(), 5}), true);
  ASSERT_TRUE(scene_.runUntil([&] { return scene_.gateway->status().commits.at(0).second == 5; },
                              seconds(1)));
  ASSERT_EQ(log().forgotten(), 0U);
  scene_.kill();
  scene_.start();
  scene_.runFor(seconds(2));
  EXPECT_EQ(log().forgotten(), 5U);
}

TEST_F(WebhookTest, WithoutAConsumerWhatItHasIsKeptUntilTheBrokerHasItToo) {
  begin();
  scene_.runFor(seconds(1));
  scene_.broker.crash();
  send(5);
  scene_.runFor(seconds(5));
  ASSERT_EQ(taken(), upTo(5));
  EXPECT_EQ(log().forgotten(), 0U);
  scene_.broker.comeBack();
  scene_.runFor(minutes(2));
  EXPECT_EQ(log().forgotten(), 5U);
}

TEST_F(WebhookTest, ItsCommitOutlivesAKillThoughAConsumerHasCommittedNothing) {
  scene_.config.consumers = {"c1"};
  begin();
  send(20);
  scene_.runFor(seconds(5));
  ASSERT_EQ(taken(), upTo(20));
  ASSERT_EQ(log().forgotten(), 0U);
  scene_.kill();
  scene_.web.posts.clear();
  scene_.start();
  ASSERT_TRUE(scene_.plugIn(reader_));
  send(1);
  scene_.runFor(seconds(5));
  ASSERT_FALSE(scene_.web.posts.empty());
  EXPECT_EQ(header(scene_.web.posts.front(), "Kestrin-From"), "21");
}

TEST_F(WebhookTest, WhatTheDiskDoesNotReadIsPostedLaterAndNotPassedOver) {
  scene_.web.answers = [](const HttpPost&) { return status(503); };
  begin();
  // More than the log's library holds in memory.
  send(8000, 1000);
  scene_.runFor(seconds(5));
  scene_.web.answers = nullptr;
  scene_.disk.setUnreadable(true);
  scene_.runFor(minutes(5));
  EXPECT_TRUE(scene_.hasTrouble("the log cannot be read for the webhook erp; it is tried again"));
  EXPECT_LT(taken().size(), 8000U);
  scene_.disk.setUnreadable(false);
  scene_.runFor(minutes(5));
  EXPECT_EQ(taken(), upTo(8000));
}

TEST_F(WebhookTest, NobodyAtTheBrokerCommitsInItsPlace) {
  scene_.web.answers = [](const HttpPost&) { return status(500); };
  begin();
  Listener listener(scene_.broker, "listener", {"kestrin/v1/g1/reader/+/frame"});
  scene_.runFor(seconds(1));
  send(5);
  scene_.runFor(seconds(1));
  listener.publish(Topics("g1").commit("erp"), textOf(Commit{log().identity(), 5}), true);
  scene_.runFor(seconds(2));
  EXPECT_TRUE(scene_.hasTrouble("it is a webhook, which commits by its answers"));
  EXPECT_EQ(log().forgotten(), 0U);
}

TEST_F(WebhookTest, AReloadTakesThemInAndOut) {
  begin();
  send(5);
  scene_.runFor(seconds(5));
  scene_.web.answers = [](const HttpPost&) { return status(404); };
  send(5);
  scene_.runFor(seconds(5));
  EXPECT_TRUE(scene_.hasTrouble("it answers 404"));
  Config other = scene_.config;
  other.webhooks = {webhook("wms")};
  scene_.web.answers = nullptr;
  scene_.web.taken.clear();
  EXPECT_EQ(scene_.gateway->reload(other), std::vector<std::string>());
  EXPECT_FALSE(scene_.hasTrouble("webhook"));
  EXPECT_TRUE(scene_.hasSaid("at least once to each webhook: wms; else as durable as your broker"));
  scene_.runFor(seconds(5));
  // What nobody needed any more is gone; the rest is for whoever comes.
  EXPECT_EQ(taken(), Numbers({6, 7, 8, 9, 10}));
  other.webhooks = {};
  EXPECT_EQ(scene_.gateway->reload(other), std::vector<std::string>());
  const std::size_t posts = scene_.web.posts.size();
  send(5);
  scene_.runFor(seconds(5));
  EXPECT_EQ(scene_.web.posts.size(), posts);
}

TEST_F(WebhookTest, IsToldByNumberWhatTheBudgetHasTaken) {
  scene_.config.log.budget = kSmallestBudget;
  scene_.web.answers = [](const HttpPost&) { return status(0); };
  begin();
  for (int i = 0; i < 60; ++i) {
    send(200);
    scene_.runFor(milliseconds(100));
  }
  scene_.web.answers = nullptr;
  scene_.runFor(minutes(3));
  std::set<RecordNumber> known;
  for (const Delivery& each : scene_.web.taken) {
    known.insert(each.record.number);
    if (!each.record.gap) continue;
    for (RecordNumber n = each.record.gap->from; n <= each.record.gap->to; ++n) known.insert(n);
  }
  EXPECT_GT(log().forgotten(), 10'000U);
  ASSERT_FALSE(known.empty());
  EXPECT_EQ(*known.begin(), 1U);
  EXPECT_EQ(*known.rbegin(), log().next() - 1);
  EXPECT_EQ(known.size(), log().next() - 1);
  EXPECT_LT(taken().size(), 12'000U) << "nothing was taken by the budget";
}

TEST_F(WebhookTest, AStopPostsNothingMore) {
  begin();
  scene_.web.answers = [](const HttpPost&) { return status(500); };
  send(5);
  scene_.runFor(seconds(2));
  EXPECT_TRUE(scene_.stop());
  const std::size_t posts = scene_.web.posts.size();
  scene_.runFor(minutes(5));
  EXPECT_EQ(scene_.web.posts.size(), posts);
}

}  // namespace
}  // namespace kestrin::gateway::test
