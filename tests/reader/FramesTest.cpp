// Frames that come in, and which of them is the answer to what.
#include "KestrinBLESDK/recording/RecordedPlatform.h"
#include "reader/ReaderTest.h"

namespace kestrin::test {
namespace {

using enum ReaderPhase;

class Frames : public ReaderTest {
 protected:
  struct Outcome {
    int calls = 0;
    std::optional<NSData> answer;
    std::string error;
  };
  Reader::AnswerHandler into(Outcome& outcome) {
    return [&outcome](const std::optional<RcpFrame>& answer, const std::optional<NSError>& error) {
      EXPECT_NE(answer.has_value(), error.has_value());
      ++outcome.calls;
      if (answer) outcome.answer.emplace(answer->bytes);
      if (error) outcome.error = error->text;
    };
  }
  void answerWith(std::vector<NSData> frames) {
    device_->setScript([frames = std::move(frames)](const NSData&) { return frames; });
  }
};

TEST_F(Frames, ComeToTheHandlerWholeAndTakenApart) {
  const auto reader = plugged();
  heard_.frames.clear();
  reader->send(command_);
  runFor(seconds(1));
  EXPECT_EQ(heard_.frames, std::vector<NSData>{answer_});
  EXPECT_TRUE(heard_.values.empty());
}

TEST_F(Frames, ThatAnswerAnExchangeComeToItAndNotToTheHandler) {
  const auto reader = plugged();
  heard_.frames.clear();
  const NSData early = frameOf(0x02, 0x30, {1});
  const NSData late = frameOf(0x02, 0x31, {2});
  answerWith({early, answer_, late});
  Outcome outcome;
  reader->exchange(command_, seconds(1), into(outcome));
  runFor(seconds(2));
  EXPECT_EQ(outcome.calls, 1);
  EXPECT_EQ(outcome.answer, answer_);
  EXPECT_EQ(heard_.frames, (std::vector<NSData>{early, late}));
}

TEST_F(Frames, AnswerTheFirstExchangeOfTheirCodeFirst) {
  const auto reader = plugged();
  heard_.frames.clear();
  device_->simulateSilence();
  Outcome outcomes[3];
  reader->exchange(command_, seconds(5), into(outcomes[0]));
  reader->exchange(command_, seconds(5), into(outcomes[1]));
  reader->exchange(frameOf(0x00, 0x23, {}), seconds(5), into(outcomes[2]));
  runFor(milliseconds(100));
  const auto rx = simulated::readerCharacteristics(ReaderFamily::standard).rx;
  const NSData other = frameOf(0x01, 0x23, {});
  const NSData second = frameOf(0x01, 0x22, {9});
  for (const NSData& frame : {other, answer_, second, answer_}) {
    device_->simulateNotification(rx, frame);
  }
  runFor(seconds(1));
  EXPECT_EQ(outcomes[0].answer, answer_);
  EXPECT_EQ(outcomes[1].answer, second);
  EXPECT_EQ(outcomes[2].answer, other);
  EXPECT_EQ(heard_.frames, std::vector<NSData>{answer_}) << "nobody waits for the fourth";
}

TEST_F(Frames, ThatCameBeforeAnExchangesFirstSliceDoNotAnswerIt) {
  const auto reader = plugged();
  heard_.frames.clear();
  device_->simulateSilence();
  reader->send(frameOf(0x00, 0x40, std::vector<std::uint8_t>(100)));  // Half a second's worth.
  Outcome outcome;
  reader->exchange(command_, seconds(1), into(outcome));
  runFor(milliseconds(50));
  const NSData early = frameOf(0x01, 0x22, {7});
  device_->simulateNotification(simulated::readerCharacteristics(ReaderFamily::standard).rx, early);
  device_->simulateSilence(false);
  runFor(seconds(2));
  EXPECT_EQ(heard_.frames.front(), early);
  EXPECT_EQ(outcome.answer, answer_);
}

TEST_F(Frames, ThatDoNotComeWithinTheLimitAreNoAnswerAndTheLimitCountsFromTheLastSlice) {
  const auto reader = plugged();
  device_->simulateSilence();
  Outcome outcome;
  const Time from = now();
  reader->exchange(frameOf(0x00, 0x22, std::vector<std::uint8_t>(92)), seconds(4), into(outcome));
  ASSERT_TRUE(loop().runUntil(from + seconds(60), [&] { return outcome.calls == 1; }));
  EXPECT_EQ(outcome.error, "no answer came within 4 s");
  EXPECT_EQ(now() - from, milliseconds(250) + seconds(4));
  // An answer that is late is a frame like every other.
  heard_.frames.clear();
  device_->simulateNotification(simulated::readerCharacteristics(ReaderFamily::standard).rx,
                                answer_);
  runFor(seconds(1));
  EXPECT_EQ(outcome.calls, 1);
  EXPECT_EQ(heard_.frames, std::vector<NSData>{answer_});
}

TEST_F(Frames, ThatComeBeforeTheLastSliceIsWrittenAreAnswersToo) {
  const auto reader = plugged();
  device_->simulateSilence();
  Outcome outcome;
  reader->exchange(frameOf(0x00, 0x22, std::vector<std::uint8_t>(192)), milliseconds(1),
                   into(outcome));
  runFor(milliseconds(60));
  device_->simulateNotification(simulated::readerCharacteristics(ReaderFamily::standard).rx,
                                answer_);
  runFor(seconds(3));
  EXPECT_EQ(outcome.calls, 1);
  EXPECT_EQ(outcome.answer, answer_);
}

TEST_F(Frames, OfAnExchangeThatIsForgottenComeToTheHandlerOrToTheNextExchange) {
  const auto reader = plugged();
  heard_.frames.clear();
  device_->simulateSilence();
  Outcome forgotten;
  Outcome waiting;
  const auto first = reader->exchange(command_, seconds(1), into(forgotten));
  const auto second = reader->exchange(command_, seconds(1), into(waiting));
  const auto third = reader->exchange(frameOf(0x00, 0x23, std::vector<std::uint8_t>(100)),
                                      seconds(1), into(forgotten));
  EXPECT_NE(first, second);
  reader->forget(first);
  reader->forget(third);
  runFor(milliseconds(100));
  const auto rx = simulated::readerCharacteristics(ReaderFamily::standard).rx;
  device_->simulateNotification(rx, answer_);
  device_->simulateNotification(rx, answer_);
  runFor(seconds(5));
  EXPECT_EQ(forgotten.calls, 0);
  EXPECT_EQ(waiting.answer, answer_);
  EXPECT_EQ(heard_.frames, std::vector<NSData>{answer_});
  EXPECT_EQ(device_->writes().back().value.length(), 8U) << "the command is sent all the same";
  reader->forget(second);
  reader->forget(99);
}

TEST_F(Frames, ThatAreNotWholeAreNotExchanged) {
  const auto reader = plugged();
  Outcome outcome;
  reader->exchange(NSData({0xBB, 0x00, 0x03, 0x00, 0x01, 0xB1, 0x7E, 0x97, 0x65}), seconds(1),
                   into(outcome));
  EXPECT_EQ(outcome.calls, 0) << "in a later turn";
  runFor(Time::zero());
  EXPECT_EQ(outcome.error,
            "what is to be sent is not a whole frame: its CRC is 97 65, right would be 65 97; "
            "buildRcpFrame makes one");
}

TEST_F(Frames, OfAnExchangeOnALinkThatEndsAreWaitedForNoLonger) {
  const auto reader = plugged();
  device_->simulateSilence();
  Outcome sent;
  Outcome waiting;
  reader->exchange(command_, seconds(60), into(sent));
  reader->exchange(frameOf(0x00, 0x24, std::vector<std::uint8_t>(200)), seconds(60), into(waiting));
  runFor(milliseconds(100));
  device_->simulateLinkLoss();
  ASSERT_TRUE(runUntil(*reader, lost));
  runFor(Time::zero());
  for (const Outcome* outcome : {&sent, &waiting}) {
    EXPECT_EQ(outcome->error, "the reader was unplugged before it answered");
  }
  ASSERT_TRUE(runUntil(*reader, pluggedIn));
  runFor(seconds(100));
  EXPECT_EQ(sent.calls, 1);
  EXPECT_EQ(waiting.calls, 1);
}

TEST_F(Frames, OfAnExchangeThatCannotBeSentAreNotWaitedFor) {
  const auto reader = plugged({.reader = "KVR-0417", .mostWaitingFrames = 0});
  Outcome full;
  reader->exchange(command_, seconds(1), into(full));
  runFor(Time::zero());
  EXPECT_EQ(full.error, "0 frames wait to be sent already; send the next one when one is done");
  reader->close();
  Outcome closed;
  reader->exchange(command_, seconds(1), into(closed));
  runFor(Time::zero());
  EXPECT_EQ(closed.error, "the reader is unplugged (closed); send when it is plugged in");
}

TEST_F(Frames, OfAKvrReaderComeAsTheValuesThatTheyCameIn) {
  const auto kvr = simulated_.radio().addReader("KVR-Q62T 0012", ReaderFamily::kvrQ62T);
  const auto reader = plugged({.reader = "Q62T"});
  const NSData part{0xBB, 0x01, 0x22};
  heard_.frames.clear();
  heard_.values.clear();
  kvr->simulateNotification(simulated::readerCharacteristics(ReaderFamily::kvrQ62T).rx, part);
  runFor(seconds(1));
  reader->send(command_);
  runFor(seconds(1));
  EXPECT_EQ(heard_.values, (std::vector<NSData>{part, answer_})) << "whole frames too";
  EXPECT_TRUE(heard_.frames.empty());
  Outcome outcome;
  reader->exchange(command_, seconds(1), into(outcome));
  runFor(seconds(1));
  EXPECT_EQ(outcome.answer, answer_) << "unless one answers";
}

TEST_F(Frames, OfANewLinkAreNotSwallowedByWhatTheLastOneLeftUnfinished) {
  const auto reader = plugged();
  const NSData longFrame = frameOf(0x01, 0x30, std::vector<std::uint8_t>(300));
  const auto rx = simulated::readerCharacteristics(ReaderFamily::standard).rx;
  device_->simulateNotification(rx, longFrame.subdataWithRange({.location = 0, .length = 20}));
  runFor(milliseconds(100));
  device_->simulateLinkLoss();
  ASSERT_TRUE(runUntil(*reader, lost));
  ASSERT_TRUE(runUntil(*reader, pluggedIn));
  Outcome outcome;
  reader->exchange(command_, seconds(1), into(outcome));
  runFor(seconds(2));
  EXPECT_EQ(outcome.answer, answer_);
}

TEST_F(Frames, OfTheLastLinkDoNotComeAgainOnTheNext) {
  const auto reader = plugged();
  const auto rx = simulated::readerCharacteristics(ReaderFamily::standard).rx;
  // A frame with a stray byte behind it stays where it was received.
  device_->simulateNotification(rx, answer_);
  device_->simulateNotification(rx, NSData{0x00});
  runFor(milliseconds(100));
  device_->simulateLinkLoss();
  ASSERT_TRUE(runUntil(*reader, lost));
  heard_.frames.clear();
  ASSERT_TRUE(runUntil(*reader, pluggedIn));
  EXPECT_EQ(heard_.frames, std::vector<NSData>{simulated::readerInfoReply()});
}

TEST_F(Frames, OfAReaderThatRecordsAreEachASendAndWhatBecameOfIt) {
  class Sends final : public RecordingSink {
   public:
    void take(const RecordedEvent& event) noexcept override {
      if (event.kind == RecordedKind::call && event.operation == "send") text += "send ";
      if (event.kind == RecordedKind::sent) text += *event.accepted ? "sent " : "ended ";
      if (event.kind == RecordedKind::write) text += "write ";
      if (event.kind == RecordedKind::pause) text += "pause ";
    }
    std::string text;
  };
  const auto sends = std::make_shared<Sends>();
  const auto recorded = recordedPlatform(simulated_.platform(), sends);
  const auto reader = Reader::create(recorded.platform, {});
  ASSERT_TRUE(runUntil(*reader, pluggedIn));
  sends->text.clear();
  reader->send(command_);
  reader->send(frameOf(0x00, 0x22, std::vector<std::uint8_t>(20)));
  runFor(seconds(1));
  EXPECT_EQ(sends->text, "send write sent send write pause write sent ");
  sends->text.clear();
  for (int i = 0; i < 3; ++i) reader->send(frameOf(0x00, 0x22, std::vector<std::uint8_t>(20)));
  device_->simulateLinkLoss();
  ASSERT_TRUE(runUntil(*reader, lost));
  EXPECT_EQ(sends->text, "send write pause ended ");
}

TEST_F(Frames, AreDeliveredToNobodyWhenItIsClosedBetweenTheirArrivalAndThat) {
  const auto log = std::make_shared<CallingLog>("[RX BLE]");
  Platform platform = simulated_.platform();
  platform.log = log;
  const auto reader = Reader::create(platform, {}, heard_.handlers());
  ASSERT_TRUE(runUntil(*reader, pluggedIn));
  heard_.frames.clear();
  log->call = [&] { reader->close(); };
  device_->simulateNotification(simulated::readerCharacteristics(ReaderFamily::standard).rx,
                                answer_);
  runFor(seconds(5));
  EXPECT_EQ(reader->phase(), closed);
  EXPECT_TRUE(heard_.frames.empty());
}

TEST_F(Frames, WhoseAnswersAreForgottenBeforeTheyAreSentAreSentAllTheSame) {
  const auto reader = plugged();
  const std::size_t before = device_->writes().size();
  reader->send(frameOf(0x00, 0x22, std::vector<std::uint8_t>(20)));
  const auto id = reader->exchange(command_, seconds(1),
                                   [](const auto&, const auto&) { ADD_FAILURE() << "called"; });
  reader->forget(id);
  runFor(seconds(5));
  EXPECT_EQ(device_->writes().size(), before + 3);
}

TEST_F(Frames, MayBeExchangedWithoutAHandlerAndTheLinkLost) {
  const auto reader = plugged();
  reader->exchange(command_, seconds(1), {});
  device_->simulateLinkLoss();
  EXPECT_TRUE(runUntil(*reader, lost));
  EXPECT_TRUE(runUntil(*reader, pluggedIn));
}

TEST_F(Frames, AreDeliveredToNobodyOnceItIsClosed) {
  const auto reader = plugged();
  reader->send(command_);
  runFor(milliseconds(20));
  heard_.frames.clear();
  reader->close();
  runFor(seconds(5));
  EXPECT_TRUE(heard_.frames.empty());
}

}  // namespace
}  // namespace kestrin::test
