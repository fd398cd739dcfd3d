// Byte buffers.
#include "KestrinBLESDK/platform/NSData.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <numeric>
#include <random>
#include <utility>

namespace kestrin::test {
namespace {

using Bytes = std::vector<std::uint8_t>;
constexpr std::size_t kEverything = std::numeric_limits<std::size_t>::max();

Bytes bytesOf(const NSData& data) { return Bytes(data.begin(), data.end()); }

TEST(NSDataBytes, AreNoneAtFirst) {
  EXPECT_EQ(NSData().length(), 0U);
  EXPECT_EQ(NSData().bytes(), nullptr);
  EXPECT_EQ(NSData(Bytes{}), NSData());
}

TEST(NSDataBytes, AreCopiedFromWhatTheyAreMadeOf) {
  Bytes source = {1, 2, 3};
  const NSData fromSpan(source);
  const NSData fromPointer = NSData::dataWithBytes_length(source.data(), 2);
  source.assign(3, 9);
  EXPECT_EQ(fromSpan, (NSData{1, 2, 3}));
  EXPECT_EQ(fromPointer, (NSData{1, 2}));
}

TEST(NSDataBytes, AreNoneOfAnAbsentSource) {
  EXPECT_EQ(NSData::dataWithBytes_length(nullptr, 5), NSData());
  EXPECT_EQ(NSData::dataWithBytes_length("x", 0), NSData());
}

TEST(NSDataBytes, AreSharedByCopies) {
  const NSData data = {1, 2, 3};
  const NSData copied(data);  // NOLINT(performance-unnecessary-copy-initialization)
  EXPECT_EQ(copied.bytes(), data.bytes());
  EXPECT_EQ(data.copy().bytes(), data.bytes());
  EXPECT_EQ(NSData::dataWithData(data).bytes(), data.bytes());
}

TEST(NSDataBytes, OutliveEveryCopyButTheLast) {
  NSData last;
  {
    const NSData data(Bytes(1000, 0x5A));
    last = data;
  }
  EXPECT_EQ(bytesOf(last), Bytes(1000, 0x5A));
}

TEST(NSDataBytes, MakeBuffersEqualByContentAndLength) {
  EXPECT_EQ((NSData{1, 2}), (NSData{1, 2}));
  EXPECT_NE((NSData{1, 2}), (NSData{1, 3}));
  EXPECT_NE((NSData{1, 2}), (NSData{1, 2, 0}));
}

TEST(NSDataSubdata, IsTheRangesPart) {
  const NSData data = {0, 1, 2, 3, 4};
  EXPECT_EQ(data.subdataWithRange({1, 3}), (NSData{1, 2, 3}));
  EXPECT_EQ(data.subdataWithRange({0, 5}), data);
  EXPECT_EQ(data.subdataWithRange({2, 0}), NSData());
}

TEST(NSDataSubdata, IsOnlyWhatLiesWithinTheBuffer) {
  const NSData data = {0, 1, 2, 3, 4};
  EXPECT_EQ(data.subdataWithRange({3, 10}), (NSData{3, 4}));
  EXPECT_EQ(data.subdataWithRange({5, 1}), NSData());
  EXPECT_EQ(data.subdataWithRange({6, 1}), NSData());
  EXPECT_EQ(data.subdataWithRange({1, kEverything}), (NSData{1, 2, 3, 4}));
  EXPECT_EQ(data.subdataWithRange({kEverything, kEverything}), NSData());
}

TEST(NSDataSubdata, IsACopy) {
  const NSData data = {0, 1, 2};
  EXPECT_NE(data.subdataWithRange({0, 3}).bytes(), data.bytes());
}

TEST(NSDataDescription, GroupsFourBytes) {
  EXPECT_EQ((NSData{0xBB, 0x00, 0x03, 0x00, 0x01, 0xB1, 0x7E, 0x65, 0x97}).description(),
            "<bb000300 01b17e65 97>");
}

TEST(NSDataDescription, HasNoSpaceBehindAFullGroup) {
  EXPECT_EQ((NSData{0x0A, 0xFF, 0x10, 0x01}).description(), "<0aff1001>");
  EXPECT_EQ((NSData{1, 2, 3, 4, 5, 6, 7, 8}).description(), "<01020304 05060708>");
  EXPECT_EQ((NSData{1, 2, 3, 4, 5}).description(), "<01020304 05>");
}

TEST(NSDataDescription, IsAPairOfBracketsWithoutBytes) { EXPECT_EQ(NSData().description(), "<>"); }

TEST(NSDataDescription, IsNeverShortened) {
  const std::string text = NSData(Bytes(4096, 0xAB)).description();
  EXPECT_EQ(text.size(), 2U + 2 * 4096 + 4096 / 4 - 1);
  EXPECT_TRUE(text.ends_with("abababab>"));
}

TEST(NSMutableDataBytes, GrowByWhatIsAppended) {
  NSMutableData data;
  EXPECT_EQ(data.length(), 0U);
  data.appendData(NSData{1, 2});
  data.appendData(NSData());
  data.appendData(NSData{3});
  EXPECT_EQ(data.copy(), (NSData{1, 2, 3}));
}

TEST(NSMutableDataBytes, AreCutOrFilledWithZeroByTheLength) {
  NSMutableData data(Bytes{1, 2, 3});
  data.setLength(2);
  EXPECT_EQ(data.copy(), (NSData{1, 2}));
  data.setLength(4);
  EXPECT_EQ(data.copy(), (NSData{1, 2, 0, 0}));
  data.setLength(0);
  EXPECT_EQ(data.copy(), NSData());
}

TEST(NSMutableDataBytes, GiveWayToOthersInARange) {
  const Bytes others = {7, 8, 9};
  NSMutableData data(Bytes{1, 2, 3, 4});
  data.replaceBytesInRange_withBytes_length({1, 2}, others.data(), others.size());
  EXPECT_EQ(data.copy(), (NSData{1, 7, 8, 9, 4}));
  data.replaceBytesInRange_withBytes_length({5, 0}, others.data(), 1);
  EXPECT_EQ(data.copy(), (NSData{1, 7, 8, 9, 4, 7}));
}

TEST(NSMutableDataBytes, AreTakenOutWhereNothingComesInTheirPlace) {
  NSMutableData data(Bytes{1, 2, 3, 4});
  data.replaceBytesInRange_withBytes_length({0, 2}, nullptr, 0);
  EXPECT_EQ(data.copy(), (NSData{3, 4}));
}

TEST(NSMutableDataBytes, OutsideTheBufferAreNoneToReplace) {
  const Bytes other = {7};
  NSMutableData data(Bytes{1, 2, 3});
  data.replaceBytesInRange_withBytes_length({2, SIZE_MAX}, nullptr, 0);
  EXPECT_EQ(data.copy(), (NSData{1, 2}));
  data.replaceBytesInRange_withBytes_length({9, 9}, other.data(), 1);
  EXPECT_EQ(data.copy(), (NSData{1, 2, 7}));
}

TEST(NSMutableDataBytes, AreGoneFromWhereTheyWereTakenOver) {
  NSMutableData first(Bytes{1, 2, 3});
  NSMutableData second = std::move(first);
  EXPECT_EQ(second.copy(), (NSData{1, 2, 3}));
  // NOLINTBEGIN(bugprone-use-after-move): that is what is looked at.
  EXPECT_EQ(first.length(), 0U);
  first.appendData(NSData{4});
  EXPECT_EQ(first.copy(), NSData{4});
  first = std::move(second);
  EXPECT_EQ(first.copy(), (NSData{1, 2, 3}));
  second.appendData(NSData{5});
  EXPECT_EQ(second.copy(), NSData{5});
  // NOLINTEND(bugprone-use-after-move)
}

TEST(NSMutableDataBytes, AreTakenOverAndCopiedWithoutThoseThatWereTakenOut) {
  NSMutableData first(Bytes{1, 2, 3});
  first.replaceBytesInRange_withBytes_length({0, 1}, nullptr, 0);
  NSMutableData second = first;
  EXPECT_EQ(second.copy(), (NSData{2, 3}));
  const NSMutableData third = std::move(first);
  EXPECT_EQ(third.copy(), (NSData{2, 3}));
  NSMutableData fourth(Bytes{7});
  fourth = std::move(second);
  EXPECT_EQ(fourth.copy(), (NSData{2, 3}));
  // NOLINTBEGIN(bugprone-use-after-move): that is what is looked at.
  first.appendData(NSData{4});
  EXPECT_EQ(first.copy(), NSData{4});
  second.appendData(NSData{5});
  EXPECT_EQ(second.copy(), NSData{5});
  // NOLINTEND(bugprone-use-after-move)
}

TEST(NSMutableDataBytes, StayInOrderWhenTheRoomRunsOutBehindAFewThatWereTakenOut) {
  for (std::size_t taken = 1; taken <= 3; ++taken) {
    Bytes list(512);
    std::iota(list.begin(), list.end(), std::uint8_t{0});
    NSMutableData data{list};
    data.replaceBytesInRange_withBytes_length({0, taken}, nullptr, 0);
    list.erase(list.begin(), list.begin() + static_cast<std::ptrdiff_t>(taken));
    const Bytes more(taken + 1, 0x77);
    data.appendData(NSData(more));
    list.insert(list.end(), more.begin(), more.end());
    EXPECT_EQ(Bytes(data.span().begin(), data.span().end()), list) << taken << " taken out";
  }
}

/// As a receive buffer does that never runs empty.
TEST(NSMutableDataBytes, TakeNoMoreRoomHoweverManyPass) {
  constexpr std::size_t kPiece = 20;
  NSMutableData data(Bytes(kPiece / 2));
  const NSData piece(Bytes(kPiece, 1));
  data.appendData(piece);  // From now on there is as much room as a growing buffer has at least.
  std::uintptr_t lowest = UINTPTR_MAX;
  std::uintptr_t highest = 0;
  for (int i = 0; i < 20'000; ++i) {
    data.replaceBytesInRange_withBytes_length({0, kPiece}, nullptr, 0);
    data.appendData(piece);
    const auto at = reinterpret_cast<std::uintptr_t>(data.bytes());
    lowest = std::min(lowest, at);
    highest = std::max(highest, at);
  }
  EXPECT_LT(highest - lowest, 1024U);
}

/// Beside a plain vector, on which the same is done in the standard library's own way.
TEST(NSMutableDataBytes, AreThoseOfAPlainListWhateverIsDoneToThem) {
  std::mt19937 random(417);
  const auto upTo = [&](std::size_t most) { return random() % (most + 1); };
  NSMutableData data;
  Bytes list;
  for (int step = 0; step < 20'000; ++step) {
    // Mostly as few as a link's arrivals hold; now and then more than there can be room for.
    Bytes some(upTo(step % 50 == 0 ? 700 : 40));
    for (std::uint8_t& byte : some) byte = static_cast<std::uint8_t>(random());
    const std::size_t first = upTo(list.size());
    const std::size_t count = upTo(list.size() - first);
    const auto at = list.begin() + static_cast<std::ptrdiff_t>(first);
    switch (upTo(4)) {
      case 0:
      case 1:
        data.appendData(NSData(some));
        list.insert(list.end(), some.begin(), some.end());
        break;
      case 2:
        data.setLength(first + count + some.size());
        list.resize(first + count + some.size());
        break;
      case 3:
        data.replaceBytesInRange_withBytes_length({0, count}, nullptr, 0);
        list.erase(list.begin(), list.begin() + static_cast<std::ptrdiff_t>(count));
        break;
      default:
        data.replaceBytesInRange_withBytes_length({first, count}, some.data(), some.size());
        list.insert(list.erase(at, at + static_cast<std::ptrdiff_t>(count)), some.begin(),
                    some.end());
        break;
    }
    ASSERT_EQ(Bytes(data.span().begin(), data.span().end()), list) << "step " << step;
  }
}

TEST(NSMutableDataBytes, AreSharedWithNobody) {
  const NSData original = {1, 2, 3};
  NSMutableData changed = original.mutableCopy();
  const NSData before = changed.copy();
  changed.setLength(1);
  EXPECT_EQ(original, (NSData{1, 2, 3}));
  EXPECT_EQ(before, (NSData{1, 2, 3}));
  EXPECT_EQ(changed.copy(), NSData{1});
}

TEST(NSMutableDataDescription, IsThatOfTheBytes) {
  EXPECT_EQ(descriptionOfBytes(NSMutableData(Bytes{1, 2, 3, 4, 5}).span()), "<01020304 05>");
}

}  // namespace
}  // namespace kestrin::test
