// The gateway whole: what goes where, when it is forgotten, and what is said.
#include "gateway/core/Scene.h"

#include <algorithm>
#include <set>

namespace kestrin::gateway::test {
namespace {

using Numbers = std::vector<RecordNumber>;

Numbers upTo(RecordNumber last, RecordNumber first = 1) {
  Numbers numbers;
  for (RecordNumber each = first; each <= last; ++each) numbers.push_back(each);
  return numbers;
}

class GatewayTest : public testing::Test {
 protected:
  void SetUp() override {
    reader_ = scene_.addReader("KVR-0001");
    // What it says at its plugging in would be a record too.
    reader_->simulateSilence();
  }
  /// The gateway with its reader plugged in and the broker there.
  void begin() {
    scene_.start();
    ASSERT_TRUE(scene_.plugIn(reader_));
    ASSERT_TRUE(scene_.broker.isConnected("g1"));
    listener_ = std::make_unique<Listener>(
        scene_.broker, "listener",
        std::vector<std::string>{"kestrin/v1/g1/reader/+/frame", "kestrin/v1/g1/gap", "answers"});
    scene_.runFor(seconds(1));
  }
  void send(std::uint32_t frames) {
    const auto rx = simulated::readerCharacteristics(simulated::ReaderFamily::standard).rx;
    for (std::uint32_t each = 0; each < frames; ++each) {
      ASSERT_TRUE(reader_->simulateNotification(
          rx, NSData(std::span<const std::uint8_t>(frameBytes(0x22, ++sent_)))));
    }
  }
  void commit(RecordNumber number, const std::string& consumer = "c1") {
    listener_->publish(Topics("g1").commit(consumer),
                       textOf(Commit{scene_.gateway->log().identity(), number}), true);
    scene_.runFor(seconds(1));
  }
  void replay(RecordNumber from, const LogIdentity& log) {
    listener_->publish(Topics("g1").replay(), textOf(Replay{log, from, "c1"}));
    scene_.runFor(seconds(2));
  }
  [[nodiscard]] std::string retained(const std::string& topic) const {
    return scene_.broker.retained(topic).value_or("(nothing)");
  }
  [[nodiscard]] std::string readerState() const {
    return retained(Topics("g1").readerState(reader_->identifier()));
  }
  Message command(const std::string& correlation, const std::vector<std::uint8_t>& bytes) const {
    Message message;
    message.topic = Topics("g1").readerCommand(reader_->identifier());
    message.payload = R"({"bytes":")";
    for (const std::uint8_t byte : bytes) {
      constexpr char kDigits[] = "0123456789abcdef";
      message.payload += kDigits[byte >> 4U];
      message.payload += kDigits[byte & 15U];
    }
    message.payload += R"("})";
    message.responseTopic = "answers";
    message.correlationData = correlation;
    return message;
  }
  [[nodiscard]] std::vector<Message> answers() const {
    std::vector<Message> answers;
    for (const Message& each : listener_->heard) {
      if (each.topic == "answers") answers.push_back(each);
    }
    return answers;
  }

  Scene scene_;
  std::shared_ptr<simulated::VirtualPeripheral> reader_;
  std::unique_ptr<Listener> listener_;
  std::uint32_t sent_ = 0;
};

bool has(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

TEST_F(GatewayTest, PublishesEachFrameInOrderWithItsNumber) {
  begin();
  send(250);
  scene_.runFor(seconds(20));
  EXPECT_EQ(listener_->numbers(), upTo(250));
  std::string error;
  const auto last = deliveryOf(listener_->heard.back().payload, error);
  ASSERT_TRUE(last) << error;
  EXPECT_EQ(last->record.bytes, frameBytes(0x22, 250));
  EXPECT_EQ(last->record.reader, reader_->identifier());
  EXPECT_EQ(last->record.name, "KVR-0001");
  EXPECT_EQ(last->record.link, 1U);
  EXPECT_LE(scene_.broker.mostWaiting(), 100U);
}

TEST_F(GatewayTest, PublishesARecordOnlyOnceItIsOnTheDisk) {
  scene_.syncDelay = seconds(3);
  begin();
  send(1);
  scene_.runFor(seconds(2));
  EXPECT_EQ(scene_.gateway->log().next(), 2U);
  EXPECT_EQ(listener_->numbers(), Numbers());
  scene_.runFor(seconds(2));
  EXPECT_EQ(listener_->numbers(), upTo(1));
}

TEST_F(GatewayTest, LeavesWhatCameDuringASyncToTheNextOne) {
  scene_.syncDelay = seconds(3);
  begin();
  send(1);
  scene_.runFor(seconds(2));
  send(5);
  scene_.runFor(milliseconds(1500));
  EXPECT_EQ(listener_->numbers(), upTo(1));
  scene_.runFor(seconds(4));
  EXPECT_EQ(listener_->numbers(), upTo(6));
}

TEST_F(GatewayTest, LetsNoMoreWaitForTheirAcknowledgementThanTheBrokerTakes) {
  scene_.config.broker.window = 7;
  begin();
  scene_.broker.setDelays(milliseconds(500), milliseconds(500));
  send(30);
  scene_.runFor(seconds(20));
  EXPECT_EQ(listener_->numbers(), upTo(30));
  EXPECT_LE(scene_.broker.mostWaiting(), 7U);
}

TEST_F(GatewayTest, ForgetsOnlyWhatEveryDeclaredConsumerHasCommitted) {
  scene_.config.consumers = {"c1", "c2"};
  begin();
  send(10);
  scene_.runFor(seconds(2));
  EXPECT_EQ(scene_.gateway->log().forgotten(), 0U);
  commit(8, "c1");
  EXPECT_EQ(scene_.gateway->log().forgotten(), 0U);
  commit(5, "c2");
  EXPECT_EQ(scene_.gateway->log().forgotten(), 5U);
  commit(3, "c2");
  EXPECT_EQ(scene_.gateway->log().forgotten(), 5U);
}

TEST_F(GatewayTest, ForgetsAtTheAcknowledgementWithoutAConsumerAndSaysSo) {
  scene_.config.consumers.clear();
  begin();
  send(10);
  scene_.runFor(seconds(2));
  EXPECT_EQ(scene_.gateway->log().forgotten(), 10U);
  EXPECT_TRUE(scene_.hasSaid("as durable as your broker"));
  EXPECT_TRUE(has(retained(Topics("g1").info()), "as durable as your broker"));
}

TEST_F(GatewayTest, PublishesAgainFromTheLowestCommitAtEachConnection) {
  begin();
  send(10);
  scene_.runFor(seconds(2));
  commit(6);
  scene_.broker.loseConnection("g1");
  scene_.runFor(seconds(10));
  Numbers expected = upTo(10);
  for (const auto each : upTo(10, 7)) expected.push_back(each);
  EXPECT_EQ(listener_->numbers(), expected);
}

TEST_F(GatewayTest, PublishesAgainWhatWasCommittedToABrokerThatForgot) {
  begin();
  send(10);
  scene_.runFor(seconds(2));
  commit(6);
  scene_.kill();
  scene_.broker.crash();
  scene_.broker.comeBack();
  scene_.runFor(seconds(10));
  scene_.start();
  scene_.runFor(seconds(10));
  Numbers expected = upTo(10);
  for (const auto each : upTo(10, 7)) expected.push_back(each);
  EXPECT_EQ(listener_->numbers(), expected);
}

TEST_F(GatewayTest, PublishesAgainFromWhereAConsumerAsks) {
  begin();
  send(10);
  scene_.runFor(seconds(2));
  replay(8, scene_.gateway->log().identity());
  Numbers expected = upTo(10);
  for (const auto each : upTo(10, 8)) expected.push_back(each);
  EXPECT_EQ(listener_->numbers(), expected);
}

TEST_F(GatewayTest, ReplaysNoMoreThanOnceASecond) {
  begin();
  send(10);
  scene_.runFor(seconds(2));
  for (int each = 0; each < 50; ++each) {
    listener_->publish(Topics("g1").replay(),
                       textOf(Replay{scene_.gateway->log().identity(), 10, "c1"}));
  }
  scene_.runFor(seconds(5));
  EXPECT_EQ(listener_->numbers().size(), 12U);
}

TEST_F(GatewayTest, IgnoresAReplayOfAnotherLogAndSaysSo) {
  begin();
  send(3);
  scene_.runFor(seconds(2));
  replay(1, "ffffffffffffffffffffffffffffffff");
  EXPECT_EQ(listener_->numbers(), upTo(3));
  EXPECT_TRUE(scene_.hasTrouble("it is of the log ffffffffffffffffffffffffffffffff"));
}

TEST_F(GatewayTest, PublishesAgainWhenAConsumerDoesNotCommitAndLessAndLessOften) {
  begin();
  send(1);
  scene_.runFor(seconds(29));
  EXPECT_EQ(listener_->numbers().size(), 1U);
  scene_.runFor(seconds(20));
  EXPECT_EQ(listener_->numbers().size(), 2U);
  scene_.runFor(seconds(30));
  EXPECT_EQ(listener_->numbers().size(), 2U);
  scene_.runFor(seconds(45));
  EXPECT_EQ(listener_->numbers().size(), 3U);
  scene_.runFor(minutes(60));
  const auto many = listener_->numbers().size();
  EXPECT_GE(many, 13U);
  EXPECT_LE(many, 16U);
  commit(1);
  scene_.runFor(minutes(30));
  EXPECT_EQ(listener_->numbers().size(), many);
}

TEST_F(GatewayTest, IgnoresACommitThatCannotBeRightAndSaysSo) {
  begin();
  send(3);
  scene_.runFor(seconds(2));
  commit(4);
  EXPECT_TRUE(scene_.hasTrouble("its number 4 was not published yet, the highest is 3"));
  commit(2, "stranger");
  EXPECT_TRUE(scene_.hasTrouble("the commit of the consumer stranger is ignored"));
  listener_->publish(Topics("g1").commit("c1"), "{", true);
  listener_->publish(Topics("g1").commit("c1"),
                     textOf(Commit{"ffffffffffffffffffffffffffffffff", 2}), true);
  scene_.runFor(seconds(1));
  EXPECT_EQ(scene_.gateway->log().forgotten(), 0U);
  commit(3);
  EXPECT_EQ(scene_.gateway->log().forgotten(), 3U);
}

TEST_F(GatewayTest, KeepsCommitsOverAKill) {
  scene_.config.consumers = {"c1", "c2"};
  begin();
  send(10);
  scene_.runFor(seconds(2));
  commit(8, "c1");
  scene_.kill();
  scene_.broker.crash();
  scene_.broker.comeBack();
  scene_.start();
  scene_.runFor(seconds(5));
  commit(9, "c2");
  EXPECT_EQ(scene_.gateway->log().forgotten(), 8U);
}

TEST_F(GatewayTest, SaysInItsHealthWhatAnEarlierRunHasPublished) {
  begin();
  send(10);
  scene_.runFor(seconds(2));
  commit(10);
  scene_.kill();
  scene_.start();
  scene_.runFor(seconds(15));
  EXPECT_TRUE(has(retained(Topics("g1").health()), R"("published":10)"));
}

TEST_F(GatewayTest, SaysEveryRetainedTopicAgainToABrokerThatForgot) {
  begin();
  const std::vector<std::string> topics = {Topics("g1").state(), Topics("g1").info(),
                                           Topics("g1").health(),
                                           Topics("g1").readerState(reader_->identifier())};
  scene_.broker.crash();
  scene_.broker.comeBack();
  for (const std::string& each : topics) EXPECT_EQ(retained(each), "(nothing)");
  scene_.runFor(seconds(10));
  for (const std::string& each : topics) EXPECT_NE(retained(each), "(nothing)") << each;
  EXPECT_TRUE(has(readerState(), "pluggedIn"));
}

TEST_F(GatewayTest, RemovesTheStateOfAReaderThatWasTakenOutWhileItDidNotRun) {
  begin();
  EXPECT_TRUE(has(readerState(), "pluggedIn"));
  scene_.runFor(seconds(1));
  scene_.kill();
  scene_.config.readers.clear();
  scene_.start();
  scene_.runFor(seconds(10));
  EXPECT_EQ(readerState(), "(nothing)");
  // Once is enough.
  int published = 0;
  scene_.broker.watch([&](const std::string&, const Message& message) {
    published += message.topic == Topics("g1").readerState(reader_->identifier()) ? 1 : 0;
  });
  scene_.kill();
  scene_.start();
  scene_.runFor(seconds(10));
  EXPECT_EQ(published, 0);
}

TEST_F(GatewayTest, LeavesAWillThatSaysOffline) {
  begin();
  EXPECT_TRUE(has(retained(Topics("g1").state()), R"("online":true)"));
  EXPECT_TRUE(has(retained(Topics("g1").state()), "boot1"));
  scene_.kill();
  EXPECT_TRUE(has(retained(Topics("g1").state()), R"("online":false)"));
}

TEST_F(GatewayTest, StopsWithItsLogOnTheDiskAndSaysOffline) {
  scene_.syncDelay = seconds(2);
  begin();
  send(5);
  scene_.runFor(milliseconds(20));
  EXPECT_EQ(scene_.gateway->log().next(), 6U);
  EXPECT_EQ(scene_.gateway->log().synced(), 0U);
  ASSERT_TRUE(scene_.stop());
  EXPECT_EQ(scene_.gateway->log().synced(), 5U);
  EXPECT_FALSE(reader_->connected());
  EXPECT_TRUE(has(retained(Topics("g1").state()), R"("online":false)"));
  EXPECT_FALSE(scene_.broker.isConnected("g1"));
}

TEST_F(GatewayTest, StopsWithoutABroker) {
  begin();
  scene_.broker.crash();
  scene_.runFor(seconds(1));
  EXPECT_TRUE(scene_.stop());
}

TEST_F(GatewayTest, StopsThoughTheBrokerDoesNotAnswer) {
  begin();
  scene_.broker.loseConnection("g1", minutes(5));
  send(300);
  scene_.runFor(seconds(1));
  EXPECT_TRUE(scene_.stop());
}

TEST_F(GatewayTest, SaysThatTheBrokerAcknowledgesNothing) {
  begin();
  scene_.broker.setDelays(minutes(2), minutes(2));
  send(5);
  scene_.runFor(seconds(25));
  EXPECT_FALSE(scene_.hasTrouble("acknowledges nothing"));
  scene_.runFor(seconds(20));
  EXPECT_TRUE(scene_.hasTrouble("acknowledges nothing"));
  scene_.broker.setDelays(milliseconds(1), milliseconds(1));
  scene_.runFor(minutes(4));
  EXPECT_FALSE(scene_.hasTrouble("acknowledges nothing"));
}

TEST_F(GatewayTest, KeepsWhatTheBrokerRefusesAndDoesNotSpin) {
  begin();
  int published = 0;
  scene_.broker.watch([&](const std::string&, const Message&) { ++published; });
  std::size_t asked = 0;
  scene_.broker.refuse([&](const std::string& topic) {
    const bool isFrame = topic.ends_with("/frame");
    asked += isFrame ? 1 : 0;
    return isFrame;
  });
  send(500);
  scene_.runFor(minutes(10));
  EXPECT_TRUE(scene_.hasTrouble("the broker refuses records"));
  EXPECT_EQ(scene_.gateway->log().forgotten(), 0U);
  EXPECT_GE(asked, 200U);
  EXPECT_LE(asked, 1500U);
  scene_.broker.refuse(nullptr);
  scene_.runFor(minutes(6));
  Numbers numbers = listener_->numbers();
  std::sort(numbers.begin(), numbers.end());
  numbers.erase(std::unique(numbers.begin(), numbers.end()), numbers.end());
  EXPECT_EQ(numbers, upTo(500));
}

TEST_F(GatewayTest, DoesNotForgetWhatWasRefusedWithoutAConsumerEither) {
  scene_.config.consumers.clear();
  begin();
  scene_.broker.refuse([](const std::string& topic) { return topic.ends_with("/frame"); });
  send(5);
  scene_.runFor(seconds(5));
  EXPECT_EQ(scene_.gateway->log().forgotten(), 0U);
  scene_.broker.refuse(nullptr);
  scene_.broker.loseConnection("g1");
  scene_.runFor(seconds(10));
  EXPECT_EQ(scene_.gateway->log().forgotten(), 5U);
  EXPECT_EQ(listener_->numbers(), upTo(5));
}

TEST_F(GatewayTest, PublishesAgainWhatWasRefusedWithoutAConsumerThoughTheConnectionStands) {
  scene_.config.consumers.clear();
  begin();
  scene_.broker.refuse([](const std::string& topic) { return topic.ends_with("/frame"); });
  send(5);
  scene_.runFor(seconds(5));
  scene_.broker.refuse(nullptr);
  scene_.runFor(minutes(2));
  EXPECT_EQ(scene_.gateway->log().forgotten(), 5U);
  EXPECT_EQ(listener_->numbers(), upTo(5));
  EXPECT_TRUE(scene_.hasSaid("the broker has not taken what is behind number 0"));
}

TEST_F(GatewayTest, DoesNotForgetWhatWasRefusedForWhatIsReplayedBehindIt) {
  scene_.config.consumers.clear();
  begin();
  scene_.broker.refuse([](const std::string& topic) { return topic.ends_with("/frame"); });
  send(5);
  scene_.runFor(seconds(5));
  scene_.broker.refuse(nullptr);
  send(5);
  scene_.runFor(seconds(5));
  replay(8, scene_.gateway->log().identity());
  EXPECT_EQ(listener_->numbers(), (Numbers{6, 7, 8, 9, 10, 8, 9, 10}));
  EXPECT_EQ(scene_.gateway->log().forgotten(), 0U);
}

TEST_F(GatewayTest, ReportsWhatAFullDiskHasCost) {
  begin();
  send(2);
  scene_.runFor(seconds(1));
  scene_.disk.setFull(true);
  send(3);
  scene_.runFor(seconds(2));
  EXPECT_TRUE(scene_.hasTrouble("the disk refuses records"));
  EXPECT_TRUE(has(retained(Topics("g1").health()), "the disk refuses records"));
  scene_.disk.setFull(false);
  send(1);
  scene_.runFor(seconds(5));
  EXPECT_FALSE(scene_.hasTrouble("the disk refuses records"));
  std::string error;
  std::optional<Gap> gap;
  for (const Message& each : listener_->heard) {
    if (each.topic != Topics("g1").gap()) continue;
    const auto delivery = deliveryOf(each.payload, error);
    ASSERT_TRUE(delivery) << error;
    gap = delivery->record.gap;
  }
  ASSERT_TRUE(gap);
  EXPECT_EQ(gap->to - gap->from + 1, 3U);
  EXPECT_EQ(gap->reason, GapReason::refused);
}

TEST_F(GatewayTest, PutsWhatIsCommittedOnAFullDisk) {
  begin();
  send(5);
  scene_.runFor(seconds(2));
  scene_.disk.setFull(true);
  for (RecordNumber each = 1; each <= 5; ++each) commit(each);
  scene_.runFor(seconds(30));
  EXPECT_FALSE(scene_.hasTrouble("cannot be put on the disk"));
  scene_.kill();
  scene_.start();
  EXPECT_EQ(scene_.gateway->log().forgotten(), 5U);
}

TEST_F(GatewayTest, SaysOnceThatADiskDoesNotTakeWhatIsCommitted) {
  begin();
  send(5);
  scene_.runFor(seconds(2));
  scene_.disk.setBroken(true);
  for (RecordNumber each = 1; each <= 5; ++each) commit(each);
  send(3);
  scene_.runFor(seconds(30));
  EXPECT_TRUE(scene_.hasTrouble("what is committed and forgotten cannot be put on the disk"));
  EXPECT_FALSE(scene_.hasTrouble("nothing new is published"));
  const auto lines =
      std::count_if(scene_.said.begin(), scene_.said.end(),
                    [](const std::string& each) { return has(each, "cannot be put on the disk"); });
  EXPECT_EQ(lines, 1);
  scene_.disk.setBroken(false);
  scene_.runFor(seconds(15));
  EXPECT_FALSE(scene_.hasTrouble("cannot be put on the disk"));
}

TEST_F(GatewayTest, PublishesWhatAFullDiskHoldsThoughItIsStartedThere) {
  begin();
  scene_.broker.crash();
  send(50);
  scene_.runFor(seconds(2));
  scene_.disk.setFull(true);
  scene_.kill();
  scene_.broker.comeBack();
  scene_.start();
  ASSERT_TRUE(scene_.gateway);
  scene_.runFor(minutes(3));
  EXPECT_TRUE(scene_.disk.isFull());
  EXPECT_EQ(scene_.gateway->log().synced() + 1, scene_.gateway->log().next());
  const auto numbers = listener_->numbers();
  EXPECT_EQ(std::set<RecordNumber>(numbers.begin(), numbers.end()).size(), 50U);
  EXPECT_FALSE(scene_.hasTrouble("nothing new is published"));
}

TEST_F(GatewayTest, HandsACommandToTheRadioAndAnswers) {
  begin();
  const auto bytes = frameBytes(0x22, 7);
  listener_->publish(command("one", bytes));
  scene_.runFor(seconds(2));
  ASSERT_EQ(answers().size(), 1U);
  EXPECT_EQ(answers()[0].payload, commandAnswer(true, ""));
  EXPECT_EQ(answers()[0].correlationData, "one");
  const auto writes = reader_->writes();
  EXPECT_TRUE(std::any_of(writes.begin(), writes.end(), [&](const auto& each) {
    return each.value == NSData(std::span<const std::uint8_t>(bytes));
  }));
}

TEST_F(GatewayTest, CarriesTheSameCorrelationDataOutOnce) {
  begin();
  const auto before = reader_->writes().size();
  for (int each = 0; each < 3; ++each) {
    listener_->publish(command("one", frameBytes(0x22, 7)));
    scene_.runFor(seconds(2));
  }
  EXPECT_EQ(answers().size(), 3U);
  for (const Message& each : answers()) EXPECT_EQ(each.payload, commandAnswer(true, ""));
  const auto once = reader_->writes().size() - before;
  EXPECT_GT(once, 0U);
  listener_->publish(command("two", frameBytes(0x22, 7)));
  scene_.runFor(seconds(2));
  EXPECT_EQ(reader_->writes().size() - before, 2 * once);
}

TEST_F(GatewayTest, HoldsACommandUntilItsReaderIsBackOrItsTimeIsOver) {
  begin();
  reader_->simulateVanishing();
  scene_.runFor(seconds(5));
  auto patient = command("patient", frameBytes(0x22, 1));
  patient.expirySeconds = 600;
  auto hasty = command("hasty", frameBytes(0x22, 2));
  hasty.expirySeconds = 3;
  listener_->publish(patient);
  listener_->publish(hasty);
  scene_.runFor(seconds(10));
  ASSERT_EQ(answers().size(), 1U);
  EXPECT_EQ(answers()[0].correlationData, "hasty");
  EXPECT_TRUE(has(answers()[0].payload, "expired"));
  reader_->simulateAppearing();
  scene_.runFor(seconds(120));
  ASSERT_EQ(answers().size(), 2U);
  EXPECT_EQ(answers()[1].correlationData, "patient");
  EXPECT_EQ(answers()[1].payload, commandAnswer(true, ""));
}

TEST_F(GatewayTest, SaysWhyACommandIsRefused) {
  begin();
  auto retained = command("retained", frameBytes(0x22, 1));
  retained.retain = true;
  listener_->publish(retained);
  scene_.broker.loseConnection("g1");
  scene_.runFor(seconds(10));
  auto unknown = command("unknown", frameBytes(0x22, 1));
  unknown.topic = Topics("g1").readerCommand("00:00:00:00:00:00");
  listener_->publish(unknown);
  auto broken = command("broken", {0xBB, 0x00, 0x22});
  listener_->publish(broken);
  scene_.runFor(seconds(2));
  const auto all = answers();
  const auto answerTo = [&](const std::string& correlation) {
    for (const Message& each : all) {
      if (each.correlationData == correlation && has(each.payload, "false")) return each.payload;
    }
    return std::string();
  };
  EXPECT_TRUE(has(answerTo("retained"), "must not be retained"));
  EXPECT_TRUE(has(answerTo("unknown"), "this gateway has no reader 00:00:00:00:00:00"));
  EXPECT_NE(answerTo("broken"), "");
}

TEST_F(GatewayTest, IsHeldUpByNoReaderThatCannotBeReached) {
  scene_.config.readers.push_back({.reader = "KVR-9999"});
  begin();
  send(1);
  scene_.runFor(seconds(60));
  ASSERT_FALSE(listener_->numbers().empty());
  EXPECT_TRUE(scene_.hasTrouble("KVR-9999"));
  EXPECT_TRUE(has(retained(Topics("g1").readerState("KVR-9999")), "not in range"));
  const auto late =
      scene_.simulated.radio().addReader("KVR-9999", simulated::ReaderFamily::standard);
  ASSERT_TRUE(scene_.plugIn(late));
  EXPECT_FALSE(scene_.hasTrouble("KVR-9999"));
  EXPECT_EQ(retained(Topics("g1").readerState("KVR-9999")), "(nothing)");
  EXPECT_TRUE(has(retained(Topics("g1").readerState(late->identifier())), "pluggedIn"));
}

TEST_F(GatewayTest, NeverTakesAReaderWhoseNameMerelyHoldsTheOneThatIsMeant) {
  scene_.config.readers = {{.reader = "KVR-000"}};
  scene_.start();
  scene_.runFor(minutes(2));
  EXPECT_FALSE(reader_->connected());
  EXPECT_TRUE(scene_.hasTrouble("in range were: 'KVR-0001'"));
}

TEST_F(GatewayTest, CountsLinksUpOverAllReaders) {
  begin();
  reader_->simulateLinkLoss();
  ASSERT_TRUE(scene_.plugIn(reader_));
  send(1);
  scene_.runFor(seconds(2));
  std::string error;
  const auto delivery = deliveryOf(listener_->heard.back().payload, error);
  ASSERT_TRUE(delivery) << error;
  EXPECT_EQ(delivery->record.link, 2U);
}

TEST_F(GatewayTest, TakesReadersAndConsumersOfAChangedConfiguration) {
  begin();
  const auto other =
      scene_.simulated.radio().addReader("KVR-0002", simulated::ReaderFamily::standard);
  other->simulateSilence();
  send(4);
  scene_.runFor(seconds(2));
  Config changed = scene_.config;
  changed.readers = {{.reader = "KVR-0002"}};
  changed.consumers = {};
  EXPECT_EQ(scene_.gateway->reload(changed), std::vector<std::string>());
  ASSERT_TRUE(scene_.plugIn(other));
  EXPECT_FALSE(reader_->connected());
  EXPECT_EQ(readerState(), "(nothing)");
  EXPECT_EQ(scene_.gateway->log().forgotten(), 4U);
  EXPECT_TRUE(has(retained(Topics("g1").info()), "as durable as your broker"));
  changed.consumers = {"c2"};
  EXPECT_EQ(scene_.gateway->reload(changed), std::vector<std::string>());
  EXPECT_TRUE(scene_.hasSaid("at least once to each declared consumer: c2"));
}

TEST_F(GatewayTest, NamesWhatTakesARestart) {
  begin();
  Config changed = scene_.config;
  changed.log.folder = "elsewhere";
  EXPECT_EQ(scene_.gateway->reload(changed).size(), 1U);
}

TEST_F(GatewayTest, SaysThatTheClockIsNotSet) {
  scene_.wallBegin = 0;
  begin();
  EXPECT_TRUE(has(retained(Topics("g1").health()), "clock not set"));
  scene_.wallBegin = 1'800'000'000'000;
  scene_.runFor(seconds(12));
  EXPECT_FALSE(has(retained(Topics("g1").health()), "clock not set"));
}

TEST_F(GatewayTest, SaysItsHealthEveryTenSecondsAndAtMostOnceASecond) {
  begin();
  int said = 0;
  scene_.broker.watch([&](const std::string&, const Message& message) {
    said += message.topic == Topics("g1").health() ? 1 : 0;
  });
  scene_.runFor(seconds(100));
  EXPECT_GE(said, 9);
  EXPECT_LE(said, 11);
  said = 0;
  for (int each = 0; each < 100; ++each) {
    scene_.disk.setFull(each % 2 == 0);
    send(1);
    scene_.runFor(milliseconds(100));
  }
  EXPECT_GE(said, 5);
  EXPECT_LE(said, 12);
}

TEST_F(GatewayTest, KeepsNoMoreInMemoryThanAWindowAndABatchHoweverManyWait) {
  begin();
  scene_.broker.crash();
  std::size_t most = 0;
  for (int round = 0; round < 200; ++round) {
    send(100);
    scene_.runFor(seconds(1));
  }
  EXPECT_EQ(scene_.gateway->log().next(), 20001U);
  scene_.broker.comeBack();
  scene_.runUntil(
      [&] {
        most = std::max(most, scene_.gateway->publisher().held());
        return scene_.gateway->publisher().answered() == 20000;
      },
      minutes(10));
  EXPECT_EQ(scene_.gateway->publisher().answered(), 20000U);
  EXPECT_GT(most, 100U);
  EXPECT_LE(most, 200U);
}

}  // namespace
}  // namespace kestrin::gateway::test
