// A consumer at work: printed, then kept, then committed.
#include "tools/gateway/commands/ConsumeSession.h"

#include <KestrinBLESDK/platform/MainRunLoop.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <kestrin/simulated/VirtualClock.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "gateway/support/ChildProcess.h"
#include "gateway/support/TestFolder.h"

namespace kestrin::gateway {
namespace {

const LogIdentity kLog(32, 'a');

/// A broker of which the test decides everything.
class StandInBroker final : public Broker {
 public:
  void start(std::vector<std::string>, std::optional<Message> will, BrokerHandlers given) override {
    EXPECT_FALSE(will);
    handlers = std::move(given);
  }
  std::optional<PublishId> publish(Message message) override {
    if (full) return std::nullopt;
    if (onPublish) onPublish(message);
    published.push_back(message);
    return published.size();
  }
  void stop(double, std::function<void()> done) override {
    if (onStop) onStop();
    done();
  }
  void reloadCertificates() override {}

  BrokerHandlers handlers;
  std::vector<Message> published;
  std::function<void(const Message&)> onPublish;
  std::function<void()> onStop;
  bool full = false;
};

class ConsumeSessionTest : public testing::Test {
 protected:
  void begin(const std::string& outputPath) {
    descriptor = ::open(outputPath.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
    ASSERT_GE(descriptor, 0);
    output.emplace(descriptor, nowhere);
    std::string error;
    state = ConsumerState::open(systemFiles(), folder.pathOf("state"), "hall-1", "wms", error);
    ASSERT_TRUE(state) << error;
    session.emplace(loop, broker, *state, *output, ConsumeSession::Names{"hall-1", "wms"},
                    [this] { ++failures; });
    session->start();
    broker.handlers.onUp({});
  }
  void end() {
    session.reset();
    output.reset();
    state.reset();
    ::close(std::exchange(descriptor, -1));
  }
  void TearDown() override {
    end();
    ::close(nowhere);
  }

  void deliver(RecordNumber number) {
    Record record;
    record.number = number;
    record.reader = "C0:00:00:00:00:01";
    record.bytes = {0xBB, 0x02};
    Message message;
    message.topic = topics.readerFrame(record.reader);
    message.payload = payloadOf(record, kLog, FrameFormat::json);
    broker.handlers.onMessage(message);
  }
  void pass(int seconds) { loop->runFor(std::chrono::seconds(seconds)); }
  std::vector<RecordNumber> commits() const {
    std::vector<RecordNumber> numbers;
    std::string error;
    for (const Message& message : broker.published) {
      if (message.retain) numbers.push_back(commitOf(message.payload, error)->number);
    }
    return numbers;
  }
  std::size_t printed() const {
    const std::string text = contentsOf(printedTo);
    return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
  }

  const TestFolder folder;
  const std::string printedTo = folder.pathOf("printed");
  const Topics topics{"hall-1"};
  const std::shared_ptr<MainRunLoop> loop =
      std::make_shared<MainRunLoop>(std::make_shared<simulated::VirtualClock>());
  const int nowhere = ::open("/dev/null", O_WRONLY);
  int descriptor = -1;
  StandInBroker broker;
  std::optional<Output> output;
  std::unique_ptr<ConsumerState> state;
  std::optional<ConsumeSession> session;
  int failures = 0;
};

TEST_F(ConsumeSessionTest, ARecordIsPrintedAndKeptBeforeItIsCommitted) {
  begin(printedTo);
  std::size_t printedAtCommit = 0;
  RecordNumber keptAtCommit = 0;
  broker.onPublish = [&](const Message& message) {
    if (!message.retain) return;
    printedAtCommit = printed();
    std::string error;
    const auto kept = statePositions(contentsOf(folder.pathOf("state")), "hall-1", "wms", error);
    keptAtCommit = kept ? kept->at(kLog) : 0;
  };
  deliver(1);
  deliver(2);
  pass(2);
  EXPECT_EQ(commits(), std::vector<RecordNumber>{2});
  EXPECT_EQ(printedAtCommit, 2U);
  EXPECT_EQ(keptAtCommit, 3U);
}

TEST_F(ConsumeSessionTest, ANewConnectionCommitsNothingThatIsNotKept) {
  begin(printedTo);
  deliver(1);
  broker.onPublish = [&](const Message& message) {
    if (!message.retain) return;
    EXPECT_EQ(printed(), 1U);
  };
  broker.handlers.onUp({});
  EXPECT_EQ(commits(), std::vector<RecordNumber>{1});
}

TEST_F(ConsumeSessionTest, WhatComesIsPrintedWithoutWaitingForTheCommit) {
  begin(printedTo);
  deliver(1);
  loop->runOneTurn();
  EXPECT_EQ(printed(), 1U);
  EXPECT_TRUE(commits().empty());
}

TEST_F(ConsumeSessionTest, WhatCannotBePrintedIsNotCommitted) {
  begin("/dev/full");
  deliver(1);
  pass(5);
  EXPECT_TRUE(session->failed());
  EXPECT_EQ(failures, 1);
  deliver(2);
  broker.handlers.onUp({});
  session->stop([] {});
  EXPECT_TRUE(commits().empty());
  EXPECT_EQ(contentsOf(folder.pathOf("state")), "");
}

TEST_F(ConsumeSessionTest, WhatCannotBeKeptIsNotCommitted) {
  begin(printedTo);
  std::filesystem::create_directories(folder.pathOf("state.new/in-the-way"));
  deliver(1);
  pass(5);
  EXPECT_TRUE(session->failed());
  EXPECT_EQ(failures, 1);
  EXPECT_TRUE(commits().empty());
}

TEST_F(ConsumeSessionTest, ACommitForWhichTheBrokerHasNoRoomIsSentLater) {
  begin(printedTo);
  broker.full = true;
  deliver(1);
  pass(3);
  EXPECT_TRUE(commits().empty());
  broker.full = false;
  pass(2);
  EXPECT_EQ(commits(), std::vector<RecordNumber>{1});
}

TEST_F(ConsumeSessionTest, TheEndCommitsWhatHasCome) {
  begin(printedTo);
  deliver(1);
  bool ended = false;
  session->stop([&] { ended = true; });
  EXPECT_TRUE(ended);
  EXPECT_EQ(commits(), std::vector<RecordNumber>{1});
  EXPECT_EQ(session->summary(), "taken 1, repeats 0, lost 0");
}

TEST_F(ConsumeSessionTest, WhatComesDuringTheFarewellIsLeftToTheNextTime) {
  begin(printedTo);
  deliver(1);
  broker.onStop = [this] {
    deliver(2);
    pass(3);
  };
  session->stop([] {});
  end();
  EXPECT_EQ(printed(), 1U);
  EXPECT_EQ(commits(), std::vector<RecordNumber>{1});
}

TEST_F(ConsumeSessionTest, StartedAgainItPrintsNothingTwice) {
  begin(printedTo);
  deliver(1);
  deliver(2);
  pass(2);
  end();
  begin(printedTo);
  for (const RecordNumber number : {1U, 2U, 3U}) deliver(number);
  pass(2);
  EXPECT_EQ(printed(), 3U);
  EXPECT_EQ(commits().back(), 3U);
}

}  // namespace
}  // namespace kestrin::gateway
