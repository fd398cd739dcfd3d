// How long a gateway waits before it connects again.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "tools/gateway/broker/ReconnectPause.h"

namespace kestrin::gateway {
namespace {

using std::chrono::milliseconds;
using std::chrono::minutes;
using std::chrono::seconds;

RandomSource always(double value) {
  return [value] { return value; };
}

TEST(ReconnectPause, DoublesFromHalfASecondToAMinute) {
  ReconnectPause pause({}, always(0.5));
  std::vector<double> found;
  found.reserve(9);
  for (int i = 0; i < 9; ++i)
    found.push_back(std::chrono::duration<double>(pause.after({})).count());
  EXPECT_EQ(found, (std::vector<double>{0.5, 1, 2, 4, 8, 16, 32, 60, 60}));
}

TEST(ReconnectPause, IsHalfMoreOrLessByChance) {
  ReconnectPause shortest({}, always(0));
  ReconnectPause longest({}, always(0.999999));
  EXPECT_EQ(shortest.after({}), milliseconds(250));
  EXPECT_GT(longest.after({}), milliseconds(749));
  for (int i = 0; i < 20; ++i) {
    EXPECT_GE(shortest.after({}), milliseconds(500));
    EXPECT_LE(longest.after({}), seconds(90));
  }
  EXPECT_EQ(shortest.after({}), seconds(30));
}

TEST(ReconnectPause, AThousandGatewaysDoNotComeBackTogether) {
  constexpr unsigned kSeed = 20;
  std::mt19937 engine(kSeed);
  ReconnectPause pause({.first = seconds(60)},
                       [&] { return std::uniform_real_distribution<double>(0, 1)(engine); });
  std::vector<int> perSecond(90);
  for (int i = 0; i < 1000; ++i) {
    ++perSecond.at(static_cast<std::size_t>(pause.after({}).count() / 1'000'000'000));
  }
  for (const int count : perSecond) EXPECT_LT(count, 40) << "seed " << kSeed;
}

TEST(ReconnectPause, BeginsAgainAfterAConnectionThatHeld) {
  ReconnectPause pause({}, always(0.5));
  pause.after({});
  pause.after({});
  EXPECT_EQ(pause.after({.up = seconds(4)}), seconds(2)) << "it was lost soon after it came up";
  EXPECT_EQ(pause.after({.up = seconds(5)}), milliseconds(500));
}

TEST(ReconnectPause, TwoGatewaysOfOneNameComeToTakeTurnsSlowly) {
  ReconnectPause pause({}, always(0.5));
  Time last{};
  // Each is taken over when the other one's pause is over, so it holds for about a pause.
  for (int i = 0; i < 12; ++i) last = pause.after({.up = last, .takenOver = true});
  EXPECT_EQ(last, seconds(60));
  EXPECT_EQ(pause.after({.up = minutes(3), .takenOver = true}), milliseconds(500))
      << "the other one was gone for long";
}

}  // namespace
}  // namespace kestrin::gateway
