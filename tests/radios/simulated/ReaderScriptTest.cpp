#include "kestrin/simulated/ReaderScript.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "KestrinBLESDK/RcpFrame.h"
#include "radios/simulated/SimulatedRadioTest.h"

namespace kestrin::simulated {
namespace {

NSData frame(std::uint8_t code, const std::vector<std::uint8_t>& payload, std::uint8_t type = 0) {
  return buildRcpFrame(type, code, payload).value();
}

NSData joined(const std::vector<NSData>& parts) {
  NSMutableData bytes;
  for (const auto& part : parts) bytes.appendData(part);
  return bytes.copy();
}

/// As a host writes a frame: full slices, then the rest, which may be empty.
std::vector<NSData> slicesOf(const NSData& command) {
  auto slices = cutIntoPieces(command, 20);
  if (command.length() % 20 == 0) slices.emplace_back();
  return slices;
}

std::vector<NSData> takeAll(ReaderConversation& conversation, const std::vector<NSData>& slices) {
  std::vector<NSData> replies;
  for (const auto& slice : slices) {
    for (const auto& reply : conversation.take(slice)) replies.push_back(reply);
  }
  return replies;
}

/// A script that answers each command with the command itself.
ReaderScript mirror() {
  return [](const NSData& command) { return std::vector<NSData>{command}; };
}

TEST(DefaultReaderScript, GetReaderInfoIsAnsweredWithReaderInfo) {
  const auto replies = defaultReaderScript()(kGetReaderInfo);
  ASSERT_EQ(replies.size(), 1U);
  EXPECT_EQ(replies[0], readerInfoReply());
  const auto bytes = replies[0].span();
  EXPECT_EQ(bytes[0], 0xBB);
  EXPECT_NE(bytes[1] & 3, 0) << "a host takes no other message type";
  EXPECT_EQ(bytes[2], 0x03);
  EXPECT_EQ(bytes[5], 0xB1);
  EXPECT_EQ(rcpFrameCrc(bytes.subspan(1)), 0);
}

TEST(DefaultReaderScript, EveryOtherFrameIsEchoedWithAReplysType) {
  for (const std::size_t length : {0U, 1U, 37U, 1021U}) {
    const std::vector<std::uint8_t> payload(length, 0xBB);
    EXPECT_EQ(defaultReaderScript()(frame(0x22, payload)),
              std::vector<NSData>{frame(0x22, payload, 0x01)});
  }
}

TEST(DefaultReaderScript, TheCodeOfGetReaderInfoWithAnotherPayloadIsEchoed) {
  EXPECT_EQ(defaultReaderScript()(frame(0x03, {0xB2})),
            std::vector<NSData>{frame(0x03, {0xB2}, 0x01)});
}

TEST(ReaderConversation, AFrameInOneSliceIsAnswered) {
  ReaderConversation conversation;
  EXPECT_EQ(conversation.take(kGetReaderInfo), std::vector<NSData>{readerInfoReply()});
  EXPECT_EQ(conversation.waiting(), 0U);
}

TEST(ReaderConversation, AFrameIsAnsweredWithItsLastSliceWhateverItsLength) {
  for (const std::size_t payload : {0U, 11U, 12U, 13U, 32U, 37U, 1021U}) {
    SCOPED_TRACE(payload);
    const NSData command = frame(0x22, std::vector<std::uint8_t>(payload, 0x5A));
    ReaderConversation conversation(mirror());
    EXPECT_EQ(takeAll(conversation, slicesOf(command)), std::vector<NSData>{command});
    EXPECT_EQ(conversation.waiting(), 0U);
  }
}

TEST(ReaderConversation, AnEmptySliceIsNoCommand) {
  ReaderConversation conversation;
  EXPECT_EQ(conversation.take(NSData()), std::vector<NSData>());
}

TEST(ReaderConversation, SeveralFramesInOneSliceAreAllAnsweredInOrder) {
  const NSData first = frame(1, {});
  const NSData second = frame(2, {});
  ReaderConversation conversation(mirror());
  EXPECT_EQ(conversation.take(joined({first, second})), (std::vector<NSData>{first, second}));
}

TEST(ReaderConversation, BytesBeforeAFrameAreSkipped) {
  ReaderConversation conversation(mirror());
  const NSData command = frame(1, {9});
  EXPECT_EQ(conversation.take(joined({NSData{1, 2, 3}, command})), std::vector<NSData>{command});
  EXPECT_EQ(conversation.take(NSData{7, 8}), std::vector<NSData>());
  EXPECT_EQ(conversation.waiting(), 0U);
}

TEST(ReaderConversation, AFrameWithAWrongCrcOrEndMarkIsSkippedAndTheNextOneIsFound) {
  const NSData good = frame(1, {9});
  for (const std::size_t wrong : {6U, 7U, 8U}) {
    SCOPED_TRACE(wrong);
    std::vector<std::uint8_t> bytes(kGetReaderInfo.begin(), kGetReaderInfo.end());
    bytes[wrong] ^= 0x10;
    ReaderConversation conversation(mirror());
    EXPECT_EQ(conversation.take(NSData(bytes)), std::vector<NSData>());
    EXPECT_EQ(conversation.take(good), std::vector<NSData>{good});
  }
}

TEST(ReaderConversation, ALengthThatNoCommandHasIsNotWaitedFor) {
  ReaderConversation conversation(mirror());
  EXPECT_EQ(conversation.take(NSData{0xBB, 0x00, 0x01, 0x03, 0xFE}), std::vector<NSData>());
  EXPECT_EQ(conversation.waiting(), 0U);
}

TEST(ReaderConversation, APreambleInAPayloadBeginsNoFrame) {
  // The payload holds a whole frame, which is there before the outer one is.
  std::vector<std::uint8_t> payload(kGetReaderInfo.begin(), kGetReaderInfo.end());
  payload.resize(40, 0xBB);
  const NSData outer = frame(0x22, payload);
  ReaderConversation conversation(mirror());
  EXPECT_EQ(takeAll(conversation, slicesOf(outer)), std::vector<NSData>{outer});
}

TEST(ReaderConversation, ACommandCutShortIsGivenUpForTheNextWholeOne) {
  const NSData longCommand = frame(0x22, std::vector<std::uint8_t>(200, 0x11));
  const NSData next = frame(0x33, {1, 2, 3});
  ReaderConversation conversation(mirror());
  EXPECT_EQ(conversation.take(slicesOf(longCommand).front()), std::vector<NSData>());
  EXPECT_EQ(conversation.take(next), std::vector<NSData>{next});
  EXPECT_EQ(conversation.waiting(), 0U);
}

TEST(ReaderConversation, AFrameInSlicesOfAnySizeIsAnswered) {
  const NSData command = frame(0x22, std::vector<std::uint8_t>(60, 0xBB));
  for (std::size_t size = 1; size <= 20; ++size) {
    SCOPED_TRACE(size);
    ReaderConversation conversation(mirror());
    EXPECT_EQ(takeAll(conversation, cutIntoPieces(command, size)), std::vector<NSData>{command});
  }
}

TEST(ReaderConversation, NoMoreThanOneFramesBytesAreKept) {
  static constexpr std::size_t kLongestFrame = 1029;
  std::mt19937 generator(1);
  ReaderConversation conversation;
  for (int i = 0; i < 20'000; ++i) {
    std::vector<std::uint8_t> slice(20);
    // Preambles and small lengths are frequent, so that much looks like a frame's beginning.
    for (auto& byte : slice) byte = generator() % 3 == 0 ? 0xBB : generator() % 4;
    conversation.take(NSData(slice));
    ASSERT_LE(conversation.waiting(), kLongestFrame);
  }
}

TEST(ReaderConversation, ResettingForgetsAnIncompleteFrame) {
  const NSData command = frame(0x22, std::vector<std::uint8_t>(20, 1));
  const auto slices = slicesOf(command);
  ReaderConversation conversation(mirror());
  conversation.take(slices[0]);
  EXPECT_EQ(conversation.waiting(), 20U);
  conversation.reset();
  EXPECT_EQ(conversation.waiting(), 0U);
  EXPECT_EQ(conversation.take(slices[1]), std::vector<NSData>());
}

TEST(ReaderConversation, AScriptMayGiveSeveralRepliesOrNone) {
  ReaderConversation conversation([](const NSData&) {
    return std::vector<NSData>{NSData{1}, NSData{2}};
  });
  EXPECT_EQ(conversation.take(kGetReaderInfo), (std::vector<NSData>{NSData{1}, NSData{2}}));
  conversation.setScript(nullptr);
  EXPECT_EQ(conversation.take(kGetReaderInfo), std::vector<NSData>());
  EXPECT_EQ(conversation.waiting(), 0U);
}

TEST(ReaderConversation, AScriptMayBeReplacedFromInside) {
  ReaderConversation conversation(nullptr);
  conversation.setScript([&conversation](const NSData&) {
    conversation.setScript(mirror());
    return std::vector<NSData>();
  });
  EXPECT_EQ(conversation.take(kGetReaderInfo), std::vector<NSData>());
  EXPECT_EQ(conversation.take(kGetReaderInfo), std::vector<NSData>{kGetReaderInfo});
}

TEST(CutIntoPieces, ThePiecesHaveTheSizesAskedForAndMakeUpTheWhole) {
  const NSData bytes{1, 2, 3, 4, 5, 6, 7};
  std::size_t next = 0;
  const auto pieces = cutIntoPieces(bytes, [&next] { return ++next; });
  EXPECT_EQ(pieces, (std::vector<NSData>{{1}, {2, 3}, {4, 5, 6}, {7}}));
  EXPECT_EQ(cutIntoPieces(bytes, 7), std::vector<NSData>{bytes});
  EXPECT_EQ(cutIntoPieces(bytes, 100), std::vector<NSData>{bytes});
  EXPECT_EQ(cutIntoPieces(NSData(), 5), std::vector<NSData>());
}

TEST(CutIntoPieces, ASizeOfZeroCountsAsOne) {
  EXPECT_EQ(cutIntoPieces(NSData{1, 2}, 0), (std::vector<NSData>{{1}, {2}}));
}

}  // namespace
}  // namespace kestrin::simulated
