// What came lately, minute by minute.
#include "tools/gateway/core/Activity.h"

#include <gtest/gtest.h>

#include <chrono>
#include <numeric>

namespace kestrin::gateway::test {
namespace {

using std::chrono::minutes;
using std::chrono::seconds;

std::uint64_t sumOf(const std::vector<std::uint64_t>& numbers) {
  return std::accumulate(numbers.begin(), numbers.end(), std::uint64_t{0});
}

TEST(Activity, CountsEachMinuteOfTheLastHour) {
  Activity activity;
  activity.count("R", minutes(100));
  activity.count("R", minutes(100) + seconds(59));
  activity.count("R", minutes(102));
  const auto now = activity.minutes("R", minutes(102));
  ASSERT_EQ(now.size(), 60U);
  EXPECT_EQ(now[59], 1U);
  EXPECT_EQ(now[58], 0U);
  EXPECT_EQ(now[57], 2U);
  EXPECT_EQ(sumOf(now), 3U);
  const auto later = activity.minutes("R", minutes(104));
  EXPECT_EQ(later[57], 1U);
  EXPECT_EQ(later[55], 2U);
}

TEST(Activity, LeavesOutWhatIsOlderThanAnHour) {
  Activity activity;
  activity.count("R", minutes(0));
  EXPECT_EQ(activity.minutes("R", minutes(59))[0], 1U);
  EXPECT_EQ(sumOf(activity.minutes("R", minutes(60))), 0U);
  activity.count("R", minutes(60));
  const auto now = activity.minutes("R", minutes(60));
  EXPECT_EQ(now[59], 1U);
  EXPECT_EQ(sumOf(now), 1U);
  // Behind a pause of days.
  activity.count("R", minutes(10'000));
  EXPECT_EQ(sumOf(activity.minutes("R", minutes(10'000))), 1U);
  EXPECT_EQ(activity.total("R"), 3U);
}

TEST(Activity, KnowsEachReaderByItself) {
  Activity activity;
  activity.count("A", minutes(1));
  activity.count("B", minutes(1));
  activity.count("B", minutes(1));
  EXPECT_EQ(activity.total("A"), 1U);
  EXPECT_EQ(activity.total("B"), 2U);
  EXPECT_EQ(activity.total("C"), 0U);
  EXPECT_EQ(sumOf(activity.minutes("C", minutes(1))), 0U);
  activity.forget("B");
  EXPECT_EQ(activity.total("B"), 0U);
}

TEST(Activity, KeepsTheLastFramesWithTheirNumbers) {
  Activity activity;
  Record record;
  for (RecordNumber number = 1; number <= Activity::kLastFrames + 5; ++number) {
    activity.keep(record, number);
  }
  ASSERT_EQ(activity.lastFrames().size(), Activity::kLastFrames);
  EXPECT_EQ(activity.lastFrames().front().number, 6U);
  EXPECT_EQ(activity.lastFrames().back().number, Activity::kLastFrames + 5);
  EXPECT_EQ(activity.kept(), Activity::kLastFrames + 5);
}

}  // namespace
}  // namespace kestrin::gateway::test
