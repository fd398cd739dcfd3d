// Which bytes the assembler keeps after an arrival, and what becomes of them on the next.
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

#include "AssemblerTest.h"
#include "KestrinBLESDK/rcp/Trimming.h"

namespace kestrin::test {
namespace {

using ReceiveBuffer = AssemblerTest;

const Bytes kNoise = {0x01, 0x02, 0x03};
const Bytes kWrongCrc = {0xBB, 0x01, 0x03, 0x00, 0x01, 0xB1, 0x7E, 0x20, 0x36};
const Bytes kWrongEndMark = {0xBB, 0x02, 0x11, 0x00, 0x00, 0x7D};

TEST_F(ReceiveBuffer, IsAbsentUntilTheFirstArrival) {
  EXPECT_FALSE(KestrinBleMgrTestPeer::_mutableReceivedData(*manager).has_value());
  EXPECT_EQ(arrive({}), Events{});
  EXPECT_TRUE(KestrinBleMgrTestPeer::_mutableReceivedData(*manager).has_value());
  EXPECT_EQ(kept(), Bytes{});
}

TEST_F(ReceiveBuffer, IsEmptiedByAFrameThatEndsOnItsLastByte) {
  arrive(kFrameA);
  EXPECT_EQ(kept(), Bytes{});
  arrive(joined({kNoise, kWrongCrc, kWrongEndMark, kFrameB}));
  EXPECT_EQ(kept(), Bytes{});
}

TEST_F(ReceiveBuffer, KeepsADeliveredFrameWithABehindItByteThatIsNoPreamble) {
  EXPECT_EQ(arrive(joined({kFrameA, {0x00}})), kHeardA);
  EXPECT_EQ(kept(), joined({kFrameA, {0x00}}));
}

TEST_F(ReceiveBuffer, DeliversAKeptFrameAgainOnEveryArrival) {
  arrive(joined({kFrameA, {0x00}}));
  EXPECT_EQ(arrive({}), kHeardA);
  EXPECT_EQ(arrive({}), kHeardA);
  EXPECT_EQ(arrive({0x11, 0x22}), kHeardA);
  EXPECT_EQ(kept(), joined({kFrameA, {0x00, 0x11, 0x22}}));
}

TEST_F(ReceiveBuffer, DeliversAKeptFrameOnceMoreWhenANewPreambleFollowsIt) {
  arrive(joined({kFrameA, {0x00}}));
  EXPECT_EQ(arrive({0xBB, 0x02}), kHeardA);
  EXPECT_EQ(kept(), (Bytes{0xBB, 0x02}));
  EXPECT_EQ(arrive(from(kFrameB, 2)), kHeardB);
  EXPECT_EQ(kept(), Bytes{});
}

TEST_F(ReceiveBuffer, DeliversAKeptFrameOnceMoreBeforeTheFrameThatEndsOnTheLastByte) {
  arrive(joined({kFrameA, {0x00}}));
  EXPECT_EQ(arrive(kFrameB), heard({kHeardA, kHeardB}));
  EXPECT_EQ(kept(), Bytes{});
}

TEST_F(ReceiveBuffer, KeepsOnlyTheLastOfSeveralFramesThatAByteFollows) {
  EXPECT_EQ(arrive(joined({kFrameA, kFrameB, {0x00}})), heard({kHeardA, kHeardB}));
  EXPECT_EQ(kept(), joined({kFrameB, {0x00}}));
}

TEST_F(ReceiveBuffer, KeepsExactlyTheBeginningOfASecondFrame) {
  EXPECT_EQ(arrive(joined({kFrameA, part(kFrameB, 0, 3)})), kHeardA);
  EXPECT_EQ(kept(), part(kFrameB, 0, 3));
  EXPECT_EQ(arrive(part(kFrameB, 3, 4)), Events{});
  EXPECT_EQ(arrive({kFrameB.back()}), kHeardB);
  EXPECT_EQ(kept(), Bytes{});
}

TEST_F(ReceiveBuffer, LosesAFrameThatIsSplitAfterItsPreamble) {
  EXPECT_EQ(arrive({0xBB}), Events{});
  EXPECT_EQ(kept(), Bytes{});
  EXPECT_EQ(arrive(from(kFrameA, 1)), Events{});
  EXPECT_EQ(kept(), from(kFrameA, 1));
}

TEST_F(ReceiveBuffer, KeepsAFrameThatIsSplitAfterItsType) {
  EXPECT_EQ(arrive({0xBB, 0x01}), Events{});
  EXPECT_EQ(kept(), (Bytes{0xBB, 0x01}));
  EXPECT_EQ(arrive(from(kFrameA, 2)), kHeardA);
}

TEST_F(ReceiveBuffer, LosesAFrameThatComesByteByByte) {
  for (const std::uint8_t byte : kFrameA) EXPECT_EQ(arrive({byte}), Events{});
  // Its first bytes came alone, one after another, and each was dropped.
  EXPECT_EQ(kept(), Bytes{});
}

TEST_F(ReceiveBuffer, IsEmptiedWhenItHoldsExactlyOneByte) {
  for (int byte = 0; byte <= 0xFF; ++byte) {
    EXPECT_EQ(arrive({static_cast<std::uint8_t>(byte)}), Events{});
    ASSERT_EQ(kept(), Bytes{}) << byte;
  }
}

TEST_F(ReceiveBuffer, KeepsAPreambleThatIsTheLastByteBehindAFrame) {
  EXPECT_EQ(arrive(joined({kFrameA, {0xBB}})), kHeardA);
  EXPECT_EQ(kept(), Bytes{0xBB});
  EXPECT_EQ(arrive(from(kFrameB, 1)), kHeardB);
}

TEST_F(ReceiveBuffer, DropsAPreambleKeptAloneOnAnArrivalOfNone) {
  arrive(joined({kFrameA, {0xBB}}));
  EXPECT_EQ(arrive({}), Events{});
  EXPECT_EQ(kept(), Bytes{});
}

TEST_F(ReceiveBuffer, IsKeptWholeWithoutAPreamble) {
  arrive(kNoise);
  EXPECT_EQ(kept(), kNoise);
  arrive({0x7E, 0x00});
  EXPECT_EQ(kept(), joined({kNoise, {0x7E, 0x00}}));
  arrive(Bytes(5000, 0x42));
  EXPECT_EQ(kept(), joined({kNoise, {0x7E, 0x00}, Bytes(5000, 0x42)}));
  EXPECT_EQ(arrive(kFrameA), kHeardA);
  EXPECT_EQ(kept(), Bytes{});
}

TEST_F(ReceiveBuffer, IsKeptFromTheMostRecentPreambleOn) {
  arrive(joined({kNoise, part(kFrameA, 0, 4)}));
  EXPECT_EQ(kept(), part(kFrameA, 0, 4));
}

TEST_F(ReceiveBuffer, IsKeptFromTheMostRecentPreambleOnHoweverMuchStandsInFront) {
  const Bytes beginning(kFrameA.begin(), kFrameA.begin() + 5);
  const Bytes rest(kFrameA.begin() + 5, kFrameA.end());
  for (const std::size_t waiting : {1U, 4090U, 4091U, 4092U, 100'000U}) {
    EXPECT_EQ(arrive(joined({Bytes(waiting, 0x00), beginning})), Events());
    EXPECT_EQ(kept(), beginning) << "behind " << waiting;
    EXPECT_EQ(arrive(rest), kHeardA) << "behind " << waiting;
    EXPECT_EQ(kept(), Bytes());
  }
}

TEST_F(ReceiveBuffer, IsNotTrimmedToAPreambleInsideAPayload) {
  arrive(joined({kNoise, part(kFrameC, 0, 8)}));
  EXPECT_EQ(kept(), part(kFrameC, 0, 8));
}

TEST_F(ReceiveBuffer, IsKeptFromAPreambleThatIsTheLastByte) {
  arrive(joined({kNoise, {0xBB}}));
  EXPECT_EQ(kept(), Bytes{0xBB});
  EXPECT_EQ(arrive(from(kFrameA, 1)), kHeardA);
}

TEST_F(ReceiveBuffer, KeepsAFrameWithAWrongCrcAndLogsItAgainOnEveryArrival) {
  EXPECT_EQ(arrive(kWrongCrc), Events{kCrcError});
  EXPECT_EQ(kept(), kWrongCrc);
  EXPECT_EQ(arrive({}), Events{kCrcError});
  EXPECT_EQ(arrive({0x10}), Events{kCrcError});
  EXPECT_EQ(kept(), joined({kWrongCrc, {0x10}}));
}

TEST_F(ReceiveBuffer, KeepsAFrameWithAWrongEndMarkAndLogsItAgainOnEveryArrival) {
  EXPECT_EQ(arrive(kWrongEndMark),
            (Events{"[ERROR]parseFrmReader:ENDMARK abyte = 7D", "[Test] <bb021100 007d>"}));
  EXPECT_EQ(kept(), kWrongEndMark);
  EXPECT_EQ(arrive({0x10}),
            (Events{"[ERROR]parseFrmReader:ENDMARK abyte = 7D", "[Test] <bb021100 007d10>"}));
  EXPECT_EQ(kept(), joined({kWrongEndMark, {0x10}}));
}

TEST_F(ReceiveBuffer, KeepsARejectedTypeAndLogsItAgainOnEveryArrival) {
  arrive(kGetReaderInfo);
  EXPECT_EQ(arrive({}), Events{kMessageError});
  EXPECT_EQ(kept(), kGetReaderInfo);
}

TEST_F(ReceiveBuffer, DropsARejectedFrameWhenALaterPreambleIsSeen) {
  arrive(kWrongCrc);
  EXPECT_EQ(arrive({0xBB, 0x02}), Events{kCrcError});
  EXPECT_EQ(kept(), (Bytes{0xBB, 0x02}));
}

TEST_F(ReceiveBuffer, DropsARejectedFrameWhenALaterFrameEndsOnTheLastByte) {
  arrive(kWrongCrc);
  EXPECT_EQ(arrive(kFrameB), heard({{kCrcError}, kHeardB}));
  EXPECT_EQ(kept(), Bytes{});
}

TEST_F(ReceiveBuffer, DropsADeliveredFrameThatARejectedOneFollows) {
  EXPECT_EQ(arrive(joined({kFrameA, kWrongCrc})), heard({kHeardA, {kCrcError}}));
  EXPECT_EQ(kept(), kWrongCrc);
}

TEST_F(ReceiveBuffer, IsNotEmptiedByARejectedFrameThatEndsOnItsLastByte) {
  arrive(joined({kNoise, kWrongCrc}));
  EXPECT_EQ(kept(), kWrongCrc);
}

TEST_F(ReceiveBuffer, SurvivesCloseAndBackground) {
  arrive(part(kFrameA, 0, 4));
  manager->close();
  KestrinBleMgrTestPeer::accessoryDidDisconnect(*manager);
  EXPECT_EQ(kept(), part(kFrameA, 0, 4));
  EXPECT_EQ(arrive(from(kFrameA, 4)), kHeardA);
}

TEST_F(ReceiveBuffer, SurvivesTheEndOfALinkAndTheBeginningOfTheNext) {
  arrive(part(kFrameA, 0, 4));
  KestrinBleMgrTestPeer::centralManager_didDisconnectPeripheral_error(*manager, nullptr, nullptr,
                                                                      std::nullopt);
  manager->connectBLE(nullptr);
  EXPECT_EQ(kept(), part(kFrameA, 0, 4));
  log->take();
  EXPECT_EQ(arrive(from(kFrameA, 4)), kHeardA);
}

TEST_F(ReceiveBuffer, LeavesTheIdleByteAreaAlone) {
  arrive(joined({kFrameA, kNoise}));
  EXPECT_EQ(KestrinBleMgrTestPeer::_buf(*manager), (std::array<std::uint8_t, 255>{}));
  EXPECT_EQ(KestrinBleMgrTestPeer::_bufHead(*manager), 0);
}

// The rule on lengths that no test can allocate.
constexpr std::uint64_t kTwoGiB = 0x8000'0000;
constexpr std::uint64_t kFourGiB = 0x1'0000'0000;
using rcp::keptAfterParse;
using rcp::KeptBytes;

TEST(TrimmingRule, CountsTheLengthIn32BitsWithASign) {
  EXPECT_EQ(rcp::countOf(0), 0);
  EXPECT_EQ(rcp::countOf(kTwoGiB - 1), 0x7FFF'FFFF);
  EXPECT_EQ(rcp::countOf(kTwoGiB), std::numeric_limits<std::int32_t>::min());
  EXPECT_EQ(rcp::countOf(kFourGiB - 1), -1);
  EXPECT_EQ(rcp::countOf(kFourGiB), 0);
  EXPECT_EQ(rcp::countOf(3 * kFourGiB + 5), 5);
}

TEST(TrimmingRule, KeepsWhatFollowsTheLastPreambleUpToTheCount) {
  EXPECT_EQ(keptAfterParse(100, 0, 0), (KeptBytes{0, 100}));
  EXPECT_EQ(keptAfterParse(100, 30, 0), (KeptBytes{30, 70}));
  EXPECT_EQ(keptAfterParse(100, 30, 98), (KeptBytes{30, 70}));
  EXPECT_EQ(keptAfterParse(kTwoGiB - 1, 0x7FFF'FFFE, 0), (KeptBytes{0x7FFF'FFFE, 1}));
}

TEST(TrimmingRule, KeepsNothingWhenAFrameEndsOnTheCountsLastByte) {
  EXPECT_EQ(keptAfterParse(100, 30, 99), (KeptBytes{0, 0}));
  EXPECT_EQ(keptAfterParse(kTwoGiB - 1, 30, 0x7FFF'FFFD + 1), (KeptBytes{0, 0}));
}

TEST(TrimmingRule, KeepsNothingOfACountOfOne) {
  EXPECT_EQ(keptAfterParse(1, 0, 0), (KeptBytes{0, 0}));
  EXPECT_EQ(keptAfterParse(kFourGiB + 1, 0, 0), (KeptBytes{0, 0}));
}

TEST(TrimmingRule, KeepsAllOfABufferWhoseCountIsNegative) {
  EXPECT_EQ(keptAfterParse(kTwoGiB, 0, 0), (KeptBytes{0, kTwoGiB}));
  EXPECT_EQ(keptAfterParse(kFourGiB - 1, 0, 0), (KeptBytes{0, kFourGiB - 1}));
}

TEST(TrimmingRule, KeepsNothingBehindTheCountFromFourGiBOn) {
  EXPECT_EQ(keptAfterParse(kFourGiB, 0, 0), (KeptBytes{0, 0}));
  EXPECT_EQ(keptAfterParse(kFourGiB + 100, 30, 0), (KeptBytes{30, 70}));
  EXPECT_EQ(keptAfterParse(kFourGiB + 100, 30, 99), (KeptBytes{0, 0}));
}

}  // namespace
}  // namespace kestrin::test
