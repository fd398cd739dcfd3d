#include "ValueInbox.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <thread>
#include <vector>

namespace kestrin::bluez {
namespace {

using Bytes = std::vector<std::uint8_t>;

bool add(ValueInbox& inbox, const Bytes& value) {
  const std::array<ValueBytes, 1> one{value};
  return inbox.add(one);
}

std::vector<Bytes> take(ValueInbox& inbox) {
  const Values& taken = inbox.take();
  std::vector<Bytes> values;
  for (std::size_t i = 0; i < taken.size(); ++i)
    values.emplace_back(taken[i].begin(), taken[i].end());
  return values;
}

TEST(ValueInbox, WakesOnceForABatchAndAgainAfterItWasTaken) {
  ValueInbox inbox;
  EXPECT_FALSE(inbox.open());
  EXPECT_TRUE(add(inbox, {1}));
  EXPECT_FALSE(add(inbox, {}));
  EXPECT_EQ(take(inbox), std::vector<Bytes>({{1}, {}}));
  EXPECT_TRUE(take(inbox).empty());
  EXPECT_TRUE(add(inbox, {2}));
}

TEST(ValueInbox, HoldsValuesBackUntilItIsOpened) {
  ValueInbox inbox;
  EXPECT_FALSE(add(inbox, {1}));
  EXPECT_FALSE(add(inbox, {2}));
  EXPECT_TRUE(inbox.open());
  EXPECT_FALSE(add(inbox, {3}));
  EXPECT_EQ(take(inbox), std::vector<Bytes>({{1}, {2}, {3}}));
}

TEST(ValueInbox, ValuesThatCameTogetherStayApartAndInOrder) {
  ValueInbox inbox;
  inbox.open();
  const std::vector<Bytes> sent{{}, {1, 2, 3}, {}, {4}, Bytes(512, 5), {}};
  const std::vector<ValueBytes> together(sent.begin(), sent.end());
  EXPECT_TRUE(inbox.add(together));
  EXPECT_FALSE(inbox.add(together));
  auto twice = sent;
  twice.insert(twice.end(), sent.begin(), sent.end());
  EXPECT_EQ(take(inbox), twice);
}

TEST(ValueInbox, IsFilledOnOneThreadWhileAnotherTakes) {
  constexpr int kValues = 20'000;
  ValueInbox inbox;
  inbox.open();
  std::atomic<bool> allAdded = false;
  std::thread adding([&] {
    for (int number = 0; number < kValues; ++number) {
      add(inbox, {static_cast<std::uint8_t>(number >> 8), static_cast<std::uint8_t>(number)});
    }
    allAdded = true;
  });
  int next = 0;
  for (bool last = false; !last; std::this_thread::yield()) {
    last = allAdded;  // What was added before is taken now.
    for (const Bytes& value : take(inbox)) {
      EXPECT_EQ(value[0] << 8 | value[1], next);
      ++next;
    }
  }
  adding.join();
  EXPECT_EQ(next, kValues);
}

TEST(ValueInbox, NothingAddedWakesNobody) {
  ValueInbox inbox;
  inbox.open();
  EXPECT_FALSE(inbox.add({}));
  EXPECT_TRUE(add(inbox, {1}));
}

TEST(ValueInbox, TheMemoryOfABacklogIsGivenBackAndThatOfFewValuesIsKept) {
  ValueInbox inbox;
  inbox.open();
  for (int round = 0; round < 4; ++round) {
    add(inbox, Bytes(500, 1));
    take(inbox);
  }
  EXPECT_GE(inbox.take().capacity(), 500U);
  for (const std::size_t length : {500U, 0U}) {
    for (int value = 0; value < 20'000; ++value) add(inbox, Bytes(length, 1));
    EXPECT_GE(inbox.take().capacity(), 100'000U);
    for (int round = 0; round < 4; ++round) {
      EXPECT_LT(inbox.take().capacity(), 100'000U);
    }
  }
}

}  // namespace
}  // namespace kestrin::bluez
