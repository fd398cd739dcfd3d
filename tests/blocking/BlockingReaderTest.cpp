// A reader worked step by step, on the simulated radio in virtual time.
#include "KestrinBLESDK/BlockingReader.h"

#include <gtest/gtest.h>

#include <functional>

#include "KestrinBLESDK/recording/RecordedPlatform.h"
#include "kestrin/simulated/SimulatedPlatform.h"

namespace kestrin::test {
namespace {

using simulated::ReaderFamily;
using std::chrono::milliseconds;
using std::chrono::seconds;

class SilentLog final : public NSLogSink {
 public:
  [[nodiscard]] bool isListening() const noexcept override { return false; }
  void write(std::string_view) noexcept override {}
};

NSData frameOf(std::uint8_t type, std::uint8_t code, const std::vector<std::uint8_t>& payload) {
  return buildRcpFrame(type, code, payload).value_or(NSData());
}

class BlockingReaderTest : public testing::Test {
 protected:
  static simulated::Options options() {
    simulated::Options options;
    options.virtualTime = true;
    options.log = std::make_shared<SilentLog>();
    return options;
  }
  std::unique_ptr<BlockingReader> connect(std::string_view name = "KVR-0417",
                                          Time limit = seconds(10)) {
    return BlockingReader::connect(simulated_.platform(), name, limit, &error_);
  }
  /// A reader that is plugged in and whose first frame, its information, has been taken.
  std::unique_ptr<BlockingReader> connected() {
    auto reader = connect();
    EXPECT_NE(reader, nullptr) << error_.text;
    if (!reader) return nullptr;
    EXPECT_EQ(reader->receive(Time::zero()), simulated::readerInfoReply());
    return reader;
  }
  [[nodiscard]] BlockingError code() const { return static_cast<BlockingError>(error_.code); }
  [[nodiscard]] Time now() const { return simulated_.runLoop().now(); }
  /// Does something on the run loop while an operation waits.
  void later(Time delay, std::function<void()> task) {
    simulated_.runLoop().arm(delay, std::move(task));
  }

  simulated::SimulatedPlatform simulated_{options()};
  const std::shared_ptr<simulated::VirtualPeripheral> device_ =
      simulated_.radio().addReader("KVR-0417", ReaderFamily::standard);
  NSError error_;
  const NSData command_ = frameOf(0x00, 0x22, {1, 2, 3});
  const NSData answer_ = frameOf(0x01, 0x22, {1, 2, 3});
};

TEST_F(BlockingReaderTest, ConnectsToAReaderByAPieceOfItsNameAndIsPluggedInWhenItReturns) {
  const auto reader = connect("0417");
  ASSERT_NE(reader, nullptr) << error_.text;
  EXPECT_EQ(reader->name(), "KVR-0417");
  EXPECT_TRUE(reader->isPluggedIn());
  EXPECT_TRUE(device_->connected());
}

TEST_F(BlockingReaderTest, KeepsToItsReaderWhenTheScanThatComesBackFindsAnother) {
  const auto reader = connect("KVR");
  ASSERT_NE(reader, nullptr) << error_.text;
  const auto other = simulated_.radio().addReader("KVR-0099", ReaderFamily::standard);
  // A radio that is powered on again scans by itself.
  simulated_.radio().simulateState(CBManagerState::poweredOff);
  simulated_.radio().simulateState(CBManagerState::poweredOn);
  simulated_.runLoop().runFor(seconds(5));
  EXPECT_EQ(reader->name(), "KVR-0417");
  EXPECT_EQ(other->connectionAttempts(), 0U);
}

TEST_F(BlockingReaderTest, LeavesAloneReadersOfAnotherName) {
  simulated_.radio().addReader("KVR-0099", ReaderFamily::standard);
  const auto reader = connect("KVR-0099");
  ASSERT_NE(reader, nullptr) << error_.text;
  EXPECT_EQ(reader->name(), "KVR-0099");
  EXPECT_FALSE(device_->connected());
}

TEST_F(BlockingReaderTest, TakesTheFirstReaderWhenNoNameIsAskedFor) {
  const auto reader = connect("");
  ASSERT_NE(reader, nullptr) << error_.text;
  EXPECT_EQ(reader->name(), "KVR-0417");
}

TEST_F(BlockingReaderTest, SaysWhichReadersWereFoundInsteadAndLooksNoLongerThanItsLimit) {
  simulated_.radio().addReader("KVR-0099", ReaderFamily::standard);
  EXPECT_EQ(connect("kvr", milliseconds(2500)), nullptr);
  EXPECT_EQ(now(), milliseconds(2500));
  EXPECT_EQ(code(), BlockingError::notFound);
  EXPECT_EQ(error_.domain, KestrinErrorDomain);
  EXPECT_TRUE(error_.text.starts_with(
      "no reader whose name contains 'kvr' was found within 2.5 s; in range: 'KVR-0"))
      << error_.text;
  EXPECT_NE(error_.text.find("'KVR-0417'"), std::string::npos);
  EXPECT_NE(error_.text.find("'KVR-0099'"), std::string::npos);
}

TEST_F(BlockingReaderTest, SaysWhatKeepsTheRadioFromFindingAnything) {
  simulated_.radio().simulateState(CBManagerState::poweredOff);
  EXPECT_EQ(connect("KVR", seconds(3)), nullptr);
  EXPECT_EQ(code(), BlockingError::notFound);
  EXPECT_EQ(error_.text, "no reader whose name contains 'KVR' was found within 3 s; " +
                             simulated_.radio().stateReason());
}

TEST_F(BlockingReaderTest, TellsAReaderThatIsFoundButNotPluggedInAndGivesItsLinkUp) {
  device_->simulateConnectionNeverCompleting();
  EXPECT_EQ(connect("KVR", seconds(3)), nullptr);
  EXPECT_EQ(code(), BlockingError::notPluggedIn);
  EXPECT_EQ(error_.text, "the reader was not plugged in within 3 s");
  device_->simulateConnectionNeverCompleting(false);
  simulated_.runLoop().runFor(seconds(10));
  EXPECT_FALSE(device_->connected());
}

TEST_F(BlockingReaderTest, WorksOnAPlatformThatRecords) {
  class Counter final : public RecordingSink {
   public:
    void take(const RecordedEvent& event) noexcept override {
      if (event.kind == RecordedKind::sent) ++sent;
      if (event.kind == RecordedKind::state) ++states;
    }
    std::size_t sent = 0;
    std::size_t states = 0;
  };
  const auto events = std::make_shared<Counter>();
  const auto recorded = recordedPlatform(simulated_.platform(), events);
  const auto reader = BlockingReader::connect(recorded.platform, "KVR", seconds(10), &error_);
  ASSERT_NE(reader, nullptr) << error_.text;
  EXPECT_EQ(reader->exchange(command_, seconds(1), &error_), answer_) << error_.text;
  EXPECT_EQ(events->sent, 1U);
  EXPECT_EQ(events->states, 1U) << "the watch of the radio's state is not part of a conversation";
}

TEST_F(BlockingReaderTest, NeedsARunLoopThatItCanTurn) {
  Platform platform = simulated_.platform();
  platform.mainRunLoop = std::weak_ptr<RunLoop>(std::make_shared<MainRunLoop>());
  EXPECT_EQ(BlockingReader::connect(platform, "KVR", seconds(1), &error_), nullptr);
  EXPECT_EQ(code(), BlockingError::noRunLoop);
  EXPECT_EQ(error_.text, "the platform has no run loop that could be turned here");
}

TEST_F(BlockingReaderTest, ExchangesACommandForItsAnswer) {
  const auto reader = connected();
  EXPECT_EQ(reader->exchange(command_, seconds(1), &error_), answer_) << error_.text;
}

TEST_F(BlockingReaderTest, KeepsOtherFramesForReceiveInTheirOrder) {
  const auto reader = connected();
  const NSData first = frameOf(0x02, 0x30, {1});
  const NSData second = frameOf(0x02, 0x31, {2});
  device_->setScript([&](const NSData&) { return std::vector<NSData>{first, answer_, second}; });
  EXPECT_EQ(reader->exchange(command_, seconds(1)), answer_);
  EXPECT_EQ(reader->receive(seconds(1)), first);
  EXPECT_EQ(reader->receive(seconds(1)), second);
}

TEST_F(BlockingReaderTest, TakesNoFrameOfTheSameCodeThatCameBeforeTheCommand) {
  const auto reader = connected();
  const NSData early = frameOf(0x02, 0x22, {9});
  device_->setScript([&](const NSData&) { return std::vector<NSData>{early}; });
  ASSERT_TRUE(reader->send(command_));
  simulated_.runLoop().runFor(seconds(1));
  device_->setScript([&](const NSData&) { return std::vector<NSData>{answer_}; });
  EXPECT_EQ(reader->exchange(command_, seconds(1)), answer_);
  EXPECT_EQ(reader->receive(seconds(1)), early);
}

TEST_F(BlockingReaderTest, TellsThatNoAnswerCameWithinItsLimit) {
  const auto reader = connected();
  device_->simulateSilence();
  const Time from = now();
  EXPECT_EQ(reader->exchange(command_, seconds(4), &error_), std::nullopt);
  EXPECT_EQ(code(), BlockingError::noAnswer);
  EXPECT_EQ(error_.text, "no answer came within 4 s");
  EXPECT_EQ(now() - from, seconds(4));
  EXPECT_EQ(reader->receive(milliseconds(50), &error_), std::nullopt);
  EXPECT_EQ(code(), BlockingError::noAnswer);
  EXPECT_EQ(error_.text, "no frame came within 0.05 s");
}

TEST_F(BlockingReaderTest, RefusesToSendWhatIsNoFrameAndSaysWhatIs) {
  const auto reader = connected();
  EXPECT_EQ(reader->exchange(NSData(std::vector<std::uint8_t>(7)), seconds(1), &error_),
            std::nullopt);
  EXPECT_EQ(code(), BlockingError::noFrame);
  EXPECT_EQ(error_.text,
            "what is to be sent is not a whole frame: it does not begin with BB; buildRcpFrame "
            "makes one");
}

TEST_F(BlockingReaderTest, TellsAReaderThatCanNotBeWrittenTo) {
  device_->simulateProperties(simulated::readerCharacteristics(ReaderFamily::standard).tx, 0x12);
  const auto reader = connect();
  ASSERT_NE(reader, nullptr) << error_.text;
  EXPECT_FALSE(reader->send(command_, &error_));
  EXPECT_EQ(code(), BlockingError::notWritten);
  EXPECT_EQ(reader->exchange(command_, seconds(1), &error_), std::nullopt);
  EXPECT_EQ(code(), BlockingError::notWritten);
  EXPECT_FALSE(reader->send(command_)) << "nobody need ask why";
}

TEST_F(BlockingReaderTest, EndsItsWaitWhenTheReaderIsUnplugged) {
  const auto reader = connected();
  device_->simulateSilence();
  later(milliseconds(300), [&] { device_->simulateLinkLoss(); });
  EXPECT_EQ(reader->exchange(command_, seconds(60), &error_), std::nullopt);
  EXPECT_EQ(code(), BlockingError::unplugged);
  EXPECT_EQ(error_.text, "the reader was unplugged before it answered");
  EXPECT_LT(now(), seconds(30));
  EXPECT_FALSE(reader->isPluggedIn());
}

TEST_F(BlockingReaderTest, EndsItsWaitForAFrameWhenTheReaderIsUnplugged) {
  const auto reader = connected();
  later(milliseconds(300), [&] { device_->simulateLinkLoss(); });
  EXPECT_EQ(reader->receive(seconds(60), &error_), std::nullopt);
  EXPECT_EQ(code(), BlockingError::unplugged);
  EXPECT_EQ(error_.text, "the reader was unplugged before a frame came");
  EXPECT_LT(now(), seconds(30));
}

TEST_F(BlockingReaderTest, OfAnUnpluggedReaderGivesTheFramesThatHaveComeAndThenSaysSo) {
  const auto reader = connected();
  ASSERT_TRUE(reader->send(command_));
  simulated_.runLoop().runFor(seconds(1));
  device_->simulateLinkLoss();
  simulated_.runLoop().runFor(seconds(1));
  EXPECT_FALSE(reader->send(command_, &error_));
  EXPECT_EQ(code(), BlockingError::unplugged);
  EXPECT_EQ(reader->receive(seconds(1)), answer_);
  error_ = {};
  EXPECT_EQ(reader->receive(seconds(1), &error_), std::nullopt);
  EXPECT_EQ(code(), BlockingError::unplugged);
  EXPECT_EQ(error_.text, "the reader is unplugged; connect to it again");
}

TEST_F(BlockingReaderTest, TellsThatTheRunLoopWasStopped) {
  const auto reader = connected();
  later(milliseconds(300), [&] { simulated_.runLoop().stop(); });
  EXPECT_EQ(reader->receive(seconds(60), &error_), std::nullopt);
  EXPECT_EQ(code(), BlockingError::stopped);
  EXPECT_EQ(error_.text, "the run loop was stopped meanwhile");
}

TEST_F(BlockingReaderTest, HasNotSentWhenTheRunLoopWasStopped) {
  const auto reader = connected();
  later(milliseconds(30), [&] { simulated_.runLoop().stop(); });
  EXPECT_FALSE(reader->send(frameOf(0x00, 0x22, std::vector<std::uint8_t>(100)), &error_));
  EXPECT_EQ(code(), BlockingError::stopped);
  later(milliseconds(300), [&] { simulated_.runLoop().stop(); });
  device_->simulateSilence();
  EXPECT_EQ(reader->exchange(command_, seconds(60), &error_), std::nullopt);
  EXPECT_EQ(code(), BlockingError::stopped);
}

TEST_F(BlockingReaderTest, IsRefusedInsideACallbackWithWhatToDoInstead) {
  const auto reader = connected();
  std::vector<BlockingError> told;
  const auto tell = [&](bool done) {
    EXPECT_FALSE(done);
    EXPECT_EQ(error_.text,
              "this would wait for the callback that it is called from; return from the callback "
              "first, or use KestrinBleMgr there");
    told.push_back(code());
    error_ = {};
  };
  later(Time::zero(), [&] {
    tell(connect() != nullptr);
    tell(reader->send(command_, &error_));
    tell(reader->receive(seconds(1), &error_).has_value());
    tell(reader->exchange(command_, seconds(1), &error_).has_value());
    tell(reader->close(seconds(1), &error_));
  });
  simulated_.runLoop().runFor(seconds(1));
  EXPECT_EQ(told, std::vector<BlockingError>(5, BlockingError::insideCallback));
  EXPECT_TRUE(reader->isPluggedIn());
}

TEST_F(BlockingReaderTest, HasNoLinkAnyMoreWhenCloseReturns) {
  const auto reader = connected();
  EXPECT_TRUE(reader->close(seconds(5), &error_)) << error_.text;
  EXPECT_FALSE(reader->isPluggedIn());
  EXPECT_FALSE(device_->connected());
}

TEST_F(BlockingReaderTest, TellsALinkThatDoesNotGoDownInTime) {
  const auto reader = connected();
  EXPECT_FALSE(reader->close(seconds(-1), &error_)) << "a limit that is over already";
  EXPECT_EQ(error_.text, "the link did not go down within 0 s");
}

TEST_F(BlockingReaderTest, ClosesItsLinkWhenDropped) {
  connected().reset();
  simulated_.runLoop().runFor(seconds(1));
  EXPECT_FALSE(device_->connected());
}

TEST_F(BlockingReaderTest, ReceivesTheNotificationsOfAKvrReaderAsTheyCome) {
  simulated_.radio().addReader("KVR-Q62T 0012", ReaderFamily::kvrQ62T);
  const auto reader = connect("Q62T");
  ASSERT_NE(reader, nullptr) << error_.text;
  ASSERT_TRUE(reader->send(command_, &error_)) << error_.text;
  EXPECT_EQ(reader->receive(seconds(1), &error_), answer_);
}

TEST_F(BlockingReaderTest, NeedsNobodyWhoAsksWhatWentWrong) {
  EXPECT_EQ(BlockingReader::connect(simulated_.platform(), "none", seconds(1)), nullptr);
  const auto reader = connected();
  EXPECT_EQ(reader->exchange(NSData(), seconds(1)), std::nullopt);
  EXPECT_EQ(reader->receive(seconds(1)), std::nullopt);
}

}  // namespace
}  // namespace kestrin::test
