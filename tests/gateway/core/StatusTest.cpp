// What the gateway says of itself to whoever watches it.
#include "gateway/core/Scene.h"

#include <numeric>

#include "tools/gateway/message/Bytes.h"

namespace kestrin::gateway::test {
namespace {

class StatusTest : public testing::Test {
 protected:
  void begin(const std::string& consumer = "c1") {
    scene_.config.consumers = {consumer};
    reader_ = scene_.addReader("KVR-0001");
    reader_->simulateSilence();
    scene_.start();
    ASSERT_TRUE(scene_.plugIn(reader_));
    scene_.runFor(seconds(1));
  }
  void send(std::uint32_t frames) {
    const auto rx = simulated::readerCharacteristics(simulated::ReaderFamily::standard).rx;
    for (std::uint32_t each = 0; each < frames; ++each) {
      ASSERT_TRUE(reader_->simulateNotification(
          rx, NSData(std::span<const std::uint8_t>(frameBytes(0x22, ++sent_)))));
    }
    scene_.runFor(seconds(1));
  }
  [[nodiscard]] Status status() const { return scene_.gateway->status(); }

  Scene scene_;
  std::shared_ptr<simulated::VirtualPeripheral> reader_;
  std::uint32_t sent_ = 0;
};

TEST_F(StatusTest, NamesTheGatewayItsLogAndItsPromise) {
  begin();
  const Status is = status();
  EXPECT_EQ(is.gateway, "g1");
  EXPECT_EQ(is.version, "1.0.0");
  EXPECT_EQ(is.log, scene_.gateway->log().identity());
  EXPECT_EQ(is.promise, "at least once to each declared consumer: c1");
  EXPECT_EQ(is.startedUtc, utcText(scene_.wallBegin));
  EXPECT_EQ(is.atUtc, utcText(scene_.wallBegin + scene_.monoMs()));
  EXPECT_EQ(is.budget, scene_.config.log.budget);
  EXPECT_TRUE(is.trouble.empty());
}

TEST_F(StatusTest, CountsWhatEachReaderHasSentAndShowsTheLast) {
  begin();
  send(40);
  const Status is = status();
  ASSERT_EQ(is.readers.size(), 1U);
  const ReaderStatus& reader = is.readers[0];
  EXPECT_EQ(reader.key, "KVR-0001");
  EXPECT_EQ(reader.reader, reader_->identifier());
  EXPECT_EQ(reader.phase, "pluggedIn");
  EXPECT_EQ(reader.frames, 40U);
  EXPECT_EQ(std::accumulate(reader.minutes.begin(), reader.minutes.end(), std::uint64_t{0}), 40U);
  ASSERT_EQ(is.frames.size(), Activity::kLastFrames);
  EXPECT_EQ(is.frames.back().number, 40U);
  EXPECT_EQ(is.frames.back().bytes, frameBytes(0x22, 40));
  EXPECT_EQ(is.last, 40U);
  EXPECT_EQ(is.synced, 40U);
  EXPECT_EQ(is.published, 40U);
  EXPECT_EQ(is.commits, (std::vector<std::pair<std::string, RecordNumber>>{{"c1", 0}}));
}

TEST_F(StatusTest, SaysWhenTheBrokerHasGoneAndComeBack) {
  begin();
  const Status before = status();
  EXPECT_TRUE(before.broker.up);
  EXPECT_EQ(before.broker.address, "broker:0");
  scene_.broker.crash();
  ASSERT_TRUE(scene_.runUntil([&] { return !status().broker.up; }));
  const Status lost = status();
  EXPECT_EQ(lost.broker.sinceUtc, lost.atUtc);
  EXPECT_GT(lost.broker.sinceUtc, before.broker.sinceUtc);
  // Attempts that fail do not change since when it is gone.
  scene_.runFor(minutes(3));
  EXPECT_EQ(status().broker.sinceUtc, lost.broker.sinceUtc);
  scene_.broker.comeBack();
  ASSERT_TRUE(scene_.runUntil([&] { return status().broker.up; }));
  EXPECT_EQ(status().broker.sinceUtc, status().atUtc);
}

TEST_F(StatusTest, CountsEachGapOnceHoweverOftenItIsPublished) {
  begin();
  scene_.disk.setFull(true);
  send(2);
  scene_.disk.setFull(false);
  send(1);
  scene_.runFor(seconds(20));
  ASSERT_EQ(status().gapCount, 1U);
  ASSERT_EQ(status().gaps.size(), 1U);
  EXPECT_EQ(status().gaps[0].gap->reason, GapReason::refused);
  // Nobody commits, so everything is published again.
  scene_.runFor(minutes(5));
  EXPECT_EQ(status().gapCount, 1U);
}

TEST_F(StatusTest, ForgetsAReaderThatIsTakenOut) {
  begin();
  send(3);
  Config config = scene_.config;
  config.readers.clear();
  scene_.gateway->reload(config);
  EXPECT_TRUE(status().readers.empty());
  scene_.gateway->reload(scene_.config);
  EXPECT_EQ(status().readers[0].frames, 0U);
}

TEST_F(StatusTest, KnowsHowStrongAReaderWasHeard) {
  const auto hearing = std::make_shared<Hearing>();
  const auto radio = listened(scene_.simulated.platform().radio, hearing);
  scene_.radio = radio;
  scene_.hearing = hearing;
  begin();
  ASSERT_TRUE(status().readers[0].signal);
  EXPECT_EQ(status().readers[0].signal, hearing->signalOf(reader_->identifier()));
  EXPECT_LT(*status().readers[0].signal, 0);
}

TEST_F(StatusTest, TakesACommandWithoutTheBrokerAndAnswersItOnce) {
  begin();
  scene_.broker.crash();
  scene_.runFor(seconds(1));
  std::vector<std::string> answers;
  const auto note = [&](const std::string& answer) { answers.push_back(answer); };
  const auto frame = buildRcpFrame(0x00, 0x03, {});
  const std::string payload = R"({"bytes":")" + hexOf(frame->span()) + R"("})";
  scene_.gateway->command("KVR-0001", payload, note);
  ASSERT_TRUE(scene_.runUntil([&] { return !answers.empty(); }));
  scene_.gateway->command("KVR-0001", R"({"bytes":"00"})", note);
  scene_.gateway->command("nobody", payload, note);
  scene_.runFor(minutes(1));
  ASSERT_EQ(answers.size(), 3U);
  EXPECT_EQ(answers[0], R"({"v":1,"handed":true})");
  EXPECT_NE(answers[1].find(R"("handed":false)"), std::string::npos);
  EXPECT_NE(answers[2].find("no reader nobody"), std::string::npos);
}

TEST_F(StatusTest, AnswersACommandThatExpiresAndOneThatComesTooLate) {
  begin();
  reader_->simulateVanishing();
  ASSERT_TRUE(scene_.runUntil([&] { return status().readers[0].phase != "pluggedIn"; }));
  std::vector<std::string> answers;
  const auto note = [&](const std::string& answer) { answers.push_back(answer); };
  const auto frame = buildRcpFrame(0x00, 0x03, {});
  scene_.gateway->command("KVR-0001", R"({"bytes":")" + hexOf(frame->span()) + R"("})", note);
  scene_.runFor(seconds(9));
  EXPECT_TRUE(answers.empty());
  scene_.runFor(seconds(2));
  ASSERT_EQ(answers.size(), 1U);
  EXPECT_NE(answers[0].find("it has expired"), std::string::npos);
  bool stopped = false;
  scene_.gateway->stop([&] { stopped = true; });
  scene_.gateway->command("KVR-0001", "{}", note);
  ASSERT_TRUE(scene_.runUntil([&] { return stopped; }));
  ASSERT_EQ(answers.size(), 2U);
  EXPECT_EQ(answers[1], R"({"v":1,"handed":false,"why":"the gateway stops"})");
}

}  // namespace
}  // namespace kestrin::gateway::test
