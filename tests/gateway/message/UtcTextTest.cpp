// Times as payloads have them.
#include <gtest/gtest.h>

#include <limits>

#include "tools/gateway/message/Messages.h"

namespace kestrin::gateway {
namespace {

constexpr std::int64_t kLeast = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();

TEST(UtcText, ATimeIsWrittenAndReadBack) {
  const std::vector<std::pair<std::int64_t, std::string>> times{
      {0, "1970-01-01T00:00:00.000Z"},
      {-1, "1969-12-31T23:59:59.999Z"},
      {1'795'352'709'123, "2026-11-22T13:05:09.123Z"},
      {951'782'400'000, "2000-02-29T00:00:00.000Z"},
      {4'107'542'399'999, "2100-02-28T23:59:59.999Z"},
      {4'107'542'400'000, "2100-03-01T00:00:00.000Z"},
      {253'402'300'799'999, "9999-12-31T23:59:59.999Z"},
      {253'402'300'800'000, "+010000-01-01T00:00:00.000Z"},
      {-62'167'219'200'000, "0000-01-01T00:00:00.000Z"},
      {-62'167'219'200'001, "-000001-12-31T23:59:59.999Z"},
      {kMost, "+292278994-08-17T07:12:55.807Z"},
      {kLeast, "-292275055-05-16T16:47:04.192Z"},
  };
  for (const auto& [ms, text] : times) {
    EXPECT_EQ(utcText(ms), text);
    EXPECT_EQ(wallMsOf(text), ms) << text;
  }
}

TEST(UtcText, EveryDayOfFourHundredYearsComesBack) {
  constexpr std::int64_t kDay = 86'400'000;
  std::string before;
  for (std::int64_t day = 0; day < 146'097; ++day) {
    const std::string text = utcText(day * kDay + 1);
    EXPECT_EQ(wallMsOf(text), day * kDay + 1) << text;
    // The years here all have four digits, so that later texts are greater ones.
    EXPECT_LT(before, text);
    before = text;
  }
}

TEST(UtcText, WhatIsNotATimeIsAbsent) {
  for (const char* const text : {"",
                                 "2026-11-22",
                                 "2026-11-22T13:05:09Z",
                                 "2026-11-22T13:05:09.123",
                                 "2026-11-22 13:05:09.123Z",
                                 "2026-13-22T13:05:09.123Z",
                                 "2026-00-22T13:05:09.123Z",
                                 "2026-02-29T13:05:09.123Z",
                                 "2026-11-22T24:05:09.123Z",
                                 "2026-11-22T13:60:09.123Z",
                                 "2026-11-22T13:05:60.123Z",
                                 "+2026-11-22T13:05:09.123Z",
                                 "+002026-11-22T13:05:09.123Z",
                                 "-000000-11-22T13:05:09.123Z",
                                 "2026-11-22T13:05:09.12xZ",
                                 "x026-11-22T13:05:09.123Z",
                                 "20261-11-22T13:05:09.123Z",
                                 "+292278994-08-17T07:12:55.808Z",
                                 "-292275055-05-16T16:47:04.191Z",
                                 "+999999999-01-01T00:00:00.000Z",
                                 "-999999999-01-01T00:00:00.000Z",
                                 "+-99999999-01-01T00:00:00.000Z"}) {
    EXPECT_FALSE(wallMsOf(text)) << text;
  }
}

}  // namespace
}  // namespace kestrin::gateway
