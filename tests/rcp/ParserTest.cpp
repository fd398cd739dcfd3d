// How the parser finds frames, judges their bytes and finds its way back after a rejected one.
//
// Whether the record is cleared before or after a rejection's line cannot be seen: it lives within
// one scan, and bytes that come in meanwhile wait for the scan's end.
#include <gtest/gtest.h>

#include "AssemblerTest.h"
#include "KestrinBLESDK/rcp/RcpFrmReader.h"

namespace kestrin::test {
namespace {

using Parser = AssemblerTest;

Events endMarkError(const std::string& byte, const std::string& buffer) {
  return {"[ERROR]parseFrmReader:ENDMARK abyte = " + byte, "[Test] " + buffer};
}

Events heardOf(const Bytes& frame) {
  const std::string text = NSData(frame).description();
  return {"[RX BLE] " + text, "FRAME " + text};
}

TEST_F(Parser, LogsAWholeFrameBeforeItIsDelivered) {
  EXPECT_EQ(arrive(kFrameA),
            (Events{"[RX BLE] <bb010300 01b17e20 37>", "FRAME <bb010300 01b17e20 37>"}));
}

TEST_F(Parser, GoesStraightFromAZeroLengthToTheEndMark) { EXPECT_EQ(arrive(kFrameB), kHeardB); }

TEST_F(Parser, DeliversSeveralFramesOfOneArrivalInOrder) {
  EXPECT_EQ(arrive(joined({kFrameA, kFrameB, kFrameC})), heard({kHeardA, kHeardB, kHeardC}));
  EXPECT_EQ(kept(), Bytes{});
}

TEST_F(Parser, SkipsBytesBeforeAPreamble) {
  EXPECT_EQ(arrive(joined({{0x00, 0x7E, 0xFF, 0x01}, kFrameA})), kHeardA);
}

TEST_F(Parser, SkipsBytesBetweenFrames) {
  EXPECT_EQ(arrive(joined({kFrameA, {0x00, 0x7E}, kFrameB, {0x33}, kFrameC})),
            heard({kHeardA, kHeardB, kHeardC}));
}

TEST_F(Parser, JudgesAMessageTypeByItsTwoLowBitsOnly) {
  for (int type = 0; type <= 0xFF; ++type) {
    const Bytes frame = referenceFrame(static_cast<std::uint8_t>(type), 0x44, Bytes{0x01});
    // A frame that ends on the last byte empties the buffer, so that each round starts again.
    const Events expected =
        (type & 0x03) == 0 ? heard({{kMessageError}, kHeardA}) : heard({heardOf(frame), kHeardA});
    ASSERT_EQ(arrive(joined({frame, kFrameA})), expected) << "type " << type;
  }
}

TEST_F(Parser, RejectsTheHostsOwnGetReaderInfoCommand) {
  EXPECT_EQ(arrive(kGetReaderInfo), Events{kMessageError});
  EXPECT_EQ(kept(), kGetReaderInfo);
}

TEST_F(Parser, GoesOnWithTheByteAfterARejectedMessageType) {
  EXPECT_EQ(arrive(joined({{0xBB, 0x00}, kFrameA})), heard({{kMessageError}, kHeardA}));
}

TEST_F(Parser, TakesASecondPreambleDirectlyAfterOneAsAMessageType) {
  const Bytes frame = {0xBB, 0xBB, 0x03, 0x00, 0x00, 0x7E, 0xD7, 0x48};
  EXPECT_EQ(arrive(frame), (Events{"[RX BLE] <bbbb0300 007ed748>", "FRAME <bbbb0300 007ed748>"}));
}

TEST_F(Parser, MissesAFrameThatADoubledPreambleShifts) {
  // The type is read as the code, the code as the length's high byte: 0x0300 bytes are expected.
  EXPECT_EQ(arrive(joined({{0xBB}, kFrameA})), Events{});
  EXPECT_EQ(kept(), joined({{0xBB}, kFrameA}));
}

TEST_F(Parser, NeverExaminesTheCode) {
  for (int code = 0; code <= 0xFF; ++code) {
    const Bytes frame = referenceFrame(0x01, static_cast<std::uint8_t>(code), Bytes{0x10, 0x20});
    ASSERT_EQ(arrive(frame), heardOf(frame)) << "code " << code;
  }
}

TEST_F(Parser, ReadsTheLengthHighByteFirst) {
  const Bytes frame = referenceFrame(0x01, 0x22, Bytes(0x0102, 0x55));
  EXPECT_EQ(arrive(frame), heardOf(frame));
}

TEST_F(Parser, AcceptsAPayloadOf1021BytesAsAFrameOf1029) {
  const Bytes frame = referenceFrame(0x01, 0x22, Bytes(0x3FD, 0xBB));
  ASSERT_EQ(frame.size(), 1029U);
  EXPECT_EQ(arrive(frame), heardOf(frame));
  EXPECT_EQ(kept(), Bytes{});
}

TEST_F(Parser, RejectsAPayloadOf1022BytesAsSoonAsItsLengthIsThere) {
  EXPECT_EQ(arrive({0xBB, 0x01, 0x22, 0x03}), Events{});
  EXPECT_EQ(arrive({0xFE}), Events{kLengthError});
}

TEST_F(Parser, RejectsEveryLengthFrom1022On) {
  for (std::uint32_t length = 0; length <= 0xFFFF; ++length) {
    const Bytes header = {0xBB, 0x01, 0x22, static_cast<std::uint8_t>(length >> 8),
                          static_cast<std::uint8_t>(length & 0xFF)};
    // After a rejection the next frame is found at once and empties the buffer; an accepted length
    // takes that frame's bytes for payload, so the buffer is emptied by hand.
    if (length >= 1022) {
      ASSERT_EQ(arrive(joined({header, kFrameB})), heard({{kLengthError}, kHeardB})) << length;
    } else {
      ASSERT_EQ(arrive(header), Events{}) << length;
      KestrinBleMgrTestPeer::_mutableReceivedData(*manager)->setLength(0);
    }
  }
}

TEST_F(Parser, FindsTheEndOfAFrameByCountingAndNotByItsEndMark) {
  const Bytes frame = referenceFrame(0x01, 0x22, Bytes{0x7E, 0x00, 0x7E, 0x7E});
  EXPECT_EQ(arrive(frame), heardOf(frame));
}

TEST_F(Parser, TakesNoPreambleFromAPayload) {
  EXPECT_EQ(arrive(kFrameC), kHeardC);
  const Bytes whole = referenceFrame(0x01, 0x22, kFrameA);
  EXPECT_EQ(arrive(whole), heardOf(whole));
}

TEST_F(Parser, TakesNoPreambleOrEndMarkFromALength) {
  for (const std::size_t length : {0x7EU, 0xBBU}) {
    const Bytes frame = referenceFrame(0x01, 0x22, Bytes(length, 0x55));
    EXPECT_EQ(arrive(frame), heardOf(frame));
    EXPECT_EQ(kept(), Bytes{});
  }
}

TEST_F(Parser, TakesNoPreambleOrEndMarkFromACrc) {
  // Either value in either place.
  for (const Bytes& frame : {Bytes{0xBB, 0x01, 0xF0, 0x00, 0x00, 0x7E, 0xBB, 0x49},
                             Bytes{0xBB, 0x01, 0x24, 0x00, 0x00, 0x7E, 0xD9, 0xBB},
                             Bytes{0xBB, 0x01, 0x31, 0x00, 0x00, 0x7E, 0x7E, 0x59},
                             Bytes{0xBB, 0x01, 0xBA, 0x00, 0x00, 0x7E, 0xBD, 0x7E}}) {
    EXPECT_EQ(arrive(frame), heardOf(frame));
    EXPECT_EQ(kept(), Bytes{});
    // Nor is the frame that follows begun by it.
    EXPECT_EQ(arrive(joined({frame, kFrameA})), heard({heardOf(frame), kHeardA}));
  }
}

TEST_F(Parser, LogsAWrongEndMarkAndThenTheWholeBuffer) {
  EXPECT_EQ(arrive({0xBB, 0x01, 0x03, 0x00, 0x01, 0xB1, 0x7F, 0x20, 0x37}),
            endMarkError("7F", "<bb010300 01b17f20 37>"));
}

TEST_F(Parser, LogsAWrongEndMarkWithTwoUpperCaseDigits) {
  EXPECT_EQ(arrive({0xBB, 0x01, 0x03, 0x00, 0x00, 0x0A}), endMarkError("0A", "<bb010300 000a>"));
}

TEST_F(Parser, LogsTheBufferBeforeAndAfterTheWrongFrameToo) {
  EXPECT_EQ(arrive({0x00, 0x11, 0xBB, 0x01, 0x03, 0x00, 0x00, 0xEE, 0x55}),
            endMarkError("EE", "<0011bb01 030000ee 55>"));
}

TEST_F(Parser, JudgesAnEndMarkAsSoonAsItsByteIsThere) {
  EXPECT_EQ(arrive({0xBB, 0x01, 0x03, 0x00, 0x01, 0xB1}), Events{});
  EXPECT_EQ(arrive({0x00}), endMarkError("00", "<bb010300 01b100>"));
}

TEST_F(Parser, LogsACrcErrorForEveryFlippedBitThatTheCrcCovers) {
  const Bytes frame = referenceFrame(0x03, 0x22, Bytes{0x12, 0x34});
  // Not the preamble, not the length and the end mark, which other rules judge, and of the type
  // only bits that leave it valid.
  for (const std::size_t place : {1U, 2U, 5U, 6U, 8U, 9U}) {
    for (int bit = 0; bit < 8; ++bit) {
      Bytes broken = frame;
      broken[place] = static_cast<std::uint8_t>(broken[place] ^ (1 << bit));
      ASSERT_EQ(arrive(joined({broken, kFrameA})), heard({{kCrcError}, kHeardA}))
          << "place " << place << ", bit " << bit;
    }
  }
}

TEST_F(Parser, LogsACrcErrorWhenTheCrcBytesAreSwapped) {
  Bytes swapped = kFrameA;
  std::swap(swapped[7], swapped[8]);
  EXPECT_EQ(arrive(swapped), Events{kCrcError});
}

TEST_F(Parser, MissesAPreambleInARejectedHeader) {
  // The frame that begins at the code's place is whole and right, and is missed.
  const Bytes inner = {0xBB, 0xFF, 0xFF, 0x00, 0x00, 0x7E, 0x9F, 0x59};
  ASSERT_EQ(arrive(inner), heardOf(inner));
  EXPECT_EQ(arrive(joined({{0xBB, 0x01}, inner})), Events{kLengthError});
}

TEST_F(Parser, MissesAPreambleInThePayloadOfAFrameWithAWrongEndMark) {
  Bytes outer = referenceFrame(0x01, 0x22, kFrameB);
  outer[5 + kFrameB.size()] = 0x00;
  EXPECT_EQ(arrive(outer), endMarkError("00", NSData(outer).description()));
}

TEST_F(Parser, MissesAPreambleInThePayloadOfAFrameWithAWrongCrc) {
  Bytes outer = referenceFrame(0x01, 0x22, kFrameB);
  outer.back() = static_cast<std::uint8_t>(outer.back() ^ 0x01);
  EXPECT_EQ(arrive(outer), Events{kCrcError});
}

TEST_F(Parser, DoesNotLookAgainAtTheByteOfAWrongEndMark) {
  // The end mark's place holds the preamble of a frame that is right.
  const Bytes stream = joined({{0xBB, 0x01, 0x03, 0x00, 0x00}, kFrameB});
  EXPECT_EQ(arrive(stream), endMarkError("BB", "<bb010300 00bb0211 00007ea7 c5>"));
}

TEST_F(Parser, DoesNotLookAgainAtTheByteOfAWrongLength) {
  const Bytes stream = joined({{0xBB, 0x01, 0x03, 0x04}, kFrameB});
  EXPECT_EQ(arrive(stream), Events{kLengthError});
}

TEST_F(Parser, DoesNotLookAgainAtTheBytesOfAWrongCrc) {
  // Either CRC byte holds the preamble of a frame that is right.
  EXPECT_EQ(arrive(joined({{0xBB, 0x01, 0x03, 0x00, 0x00, 0x7E, 0x00}, kFrameB})),
            Events{kCrcError});
  KestrinBleMgrTestPeer::_mutableReceivedData(*manager)->setLength(0);
  EXPECT_EQ(arrive(joined({{0xBB, 0x01, 0x03, 0x00, 0x00, 0x7E}, kFrameB})), Events{kCrcError});
}

TEST_F(Parser, GoesOnWithTheByteAfterAWrongLength) {
  EXPECT_EQ(arrive(joined({{0xBB, 0x01, 0x22, 0xFF, 0xFF}, kFrameA})),
            heard({{kLengthError}, kHeardA}));
}

TEST_F(Parser, GoesOnWithTheByteAfterAWrongEndMark) {
  EXPECT_EQ(arrive(joined({{0xBB, 0x01, 0x22, 0x00, 0x00, 0x01}, kFrameB})),
            heard({endMarkError("01", "<bb012200 0001bb02 1100007e a7c5>"), kHeardB}));
}

TEST_F(Parser, GoesOnWithTheByteAfterAWrongCrc) {
  EXPECT_EQ(arrive(joined({{0xBB, 0x01, 0x22, 0x00, 0x00, 0x7E, 0x00, 0x01}, kFrameB})),
            heard({{kCrcError}, kHeardB}));
}

TEST_F(Parser, LogsRejectionsAndFramesInTheOrderOfTheirBytes) {
  const Bytes stream =
      joined({{0xBB, 0x04}, kFrameA, {0xBB, 0x01, 0x22, 0x04, 0x00}, kFrameB, {0xBB, 0x08}});
  EXPECT_EQ(arrive(stream),
            heard({{kMessageError}, kHeardA, {kLengthError}, kHeardB, {kMessageError}}));
}

TEST_F(Parser, DeliversAFrameOnceItsLastByteIsThereHoweverItIsSplitAfterItsType) {
  for (std::size_t place = 2; place < kFrameC.size(); ++place) {
    ASSERT_EQ(arrive(part(kFrameC, 0, place)), Events{}) << place;
    ASSERT_EQ(kept(), part(kFrameC, 0, place)) << place;
    ASSERT_EQ(arrive(from(kFrameC, place)), kHeardC) << place;
    ASSERT_EQ(kept(), Bytes{}) << place;
  }
}

TEST_F(Parser, RunsAgainOverTheKeptBytesOnAnArrivalOfNone) {
  arrive(part(kFrameA, 0, 5));
  EXPECT_EQ(arrive({}), Events{});
  EXPECT_EQ(kept(), part(kFrameA, 0, 5));
  EXPECT_EQ(arrive(from(kFrameA, 5)), kHeardA);
}

TEST_F(Parser, AnswersZeroWhateverItFound) {
  EXPECT_EQ(manager->readData(NSData()), 0);
  EXPECT_EQ(manager->readData(NSData(kGetReaderInfo)), 0);
  EXPECT_EQ(manager->readData(NSData(kFrameA)), 0);
  EXPECT_EQ(KestrinBleMgrTestPeer::parseRcpFrmReader(*manager), 0);
  manager->readData(NSData{0xBB, 0x00});
  EXPECT_EQ(KestrinBleMgrTestPeer::parseRcpFrmReader(*manager), 0);
}

TEST(RcpFrmReaderRecord, IsAllZeroOnceCleared) {
  RcpFrmReader reader{.state = RcpFrmState::Payload, .count = 17, .length = 300};
  KestrinBleMgrTestPeer::clearRcpFrmReader(&reader);
  EXPECT_EQ(reader.state, RcpFrmState::Preamble);
  EXPECT_EQ(reader.count, 0);
  EXPECT_EQ(reader.length, 0);
}

TEST(RcpFrmReaderRecord, NumbersTheStatesFromZeroToEight) {
  EXPECT_EQ(static_cast<int>(RcpFrmState::Preamble), 0);
  EXPECT_EQ(static_cast<int>(RcpFrmState::MessageType), 1);
  EXPECT_EQ(static_cast<int>(RcpFrmState::Code), 2);
  EXPECT_EQ(static_cast<int>(RcpFrmState::LengthHigh), 3);
  EXPECT_EQ(static_cast<int>(RcpFrmState::LengthLow), 4);
  EXPECT_EQ(static_cast<int>(RcpFrmState::Payload), 5);
  EXPECT_EQ(static_cast<int>(RcpFrmState::EndMark), 6);
  EXPECT_EQ(static_cast<int>(RcpFrmState::CrcHigh), 7);
  EXPECT_EQ(static_cast<int>(RcpFrmState::CrcLow), 8);
}

}  // namespace
}  // namespace kestrin::test
