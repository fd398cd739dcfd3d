// Sizes, times, addresses and hosts as a configuration writes them.
#include "tools/gateway/config/Quantities.h"

#include <gtest/gtest.h>

namespace kestrin::gateway {
namespace {

using namespace std::chrono_literals;

TEST(Quantities, ASizeIsAWholeNumberAndItsUnit) {
  EXPECT_EQ(sizeOf("0 B"), 0U);
  EXPECT_EQ(sizeOf("4096B"), 4096U);
  EXPECT_EQ(sizeOf("2 kB"), 2000U);
  EXPECT_EQ(sizeOf("2 KiB"), 2048U);
  EXPECT_EQ(sizeOf("3 MB"), 3'000'000U);
  EXPECT_EQ(sizeOf("3 MiB"), 3U << 20U);
  EXPECT_EQ(sizeOf("5 GB"), 5'000'000'000U);
  EXPECT_EQ(sizeOf("5 GiB"), 5ULL << 30U);
  EXPECT_EQ(sizeOf("1 TB"), 1'000'000'000'000U);
  EXPECT_EQ(sizeOf("16777215 TiB"), 0xFFFFFF0000000000U);
}

TEST(Quantities, WhatIsNotASizeIsAbsent) {
  for (const char* const text :
       {"", " ", "4", "GiB", "4 gib", "4  GiB", "-4 GiB", "4.5 GiB", "4 GiB ", " 4 GiB", "4 ms",
        "16777216 TiB", "18446744073709551616 B"}) {
    EXPECT_FALSE(sizeOf(text)) << text;
  }
}

TEST(Quantities, ATimeIsAWholeNumberAndItsUnit) {
  EXPECT_EQ(durationOf("50 ms"), 50ms);
  EXPECT_EQ(durationOf("30s"), 30s);
  EXPECT_EQ(durationOf("5 min"), 5min);
  EXPECT_EQ(durationOf("1 h"), 1h);
  for (const char* const text : {"", "50", "ms", "50 m", "1.5 s", "-1 s", "1 s ",
                                 "18446744073709551615 ms", "18446744073709551615 h"}) {
    EXPECT_FALSE(durationOf(text)) << text;
  }
}

TEST(Quantities, AnAddressIsMadeToCapitals) {
  EXPECT_EQ(addressOf("c0:aB:00:19:fF:01"), "C0:AB:00:19:FF:01");
  for (const char* const text : {"", "C0:00:00:00:00", "C0:00:00:00:00:1", "C0:00:00:00:00:0G",
                                 "C0-00-00-00-00-01", "C0:00:00:00:00:01:", "C00:0:00:00:00:01"}) {
    EXPECT_FALSE(addressOf(text)) << text;
  }
}

TEST(Quantities, LoopbackIsThisMachineOnly) {
  for (const char* const host : {"localhost", "LocalHost", "127.0.0.1", "127.255.0.255", "::1"}) {
    EXPECT_TRUE(isLoopback(host)) << host;
  }
  for (const char* const host : {"", "localhost.example", "128.0.0.1", "127.0.0", "127.0.0.1.1",
                                 "127.0.0.256", "127.0.0.1.", "127..0.1", "127.0.0.1.example",
                                 "::2", "0.0.0.0", "10.0.0.1", "0127.0.0.1", "127.0.0.01"}) {
    EXPECT_FALSE(isLoopback(host)) << host;
  }
}

TEST(Quantities, ATextOfSomebodyElsesIsShownOnOneLine) {
  EXPECT_EQ(shownText("Lager Süd"), "Lager Süd");
  EXPECT_EQ(shownText("a\nb\x1B[2Jc\x7F\xC2\x85"
                      "d"),
            "a?b?[2Jc??d");
  EXPECT_EQ(shownText(std::string(60, 'x')), std::string(60, 'x'));
  EXPECT_EQ(shownText(std::string(61, 'x')), std::string(60, 'x') + "...");
  EXPECT_EQ(shownText(std::string(59, 'x') + "€€"), std::string(59, 'x') + "€...");
}

}  // namespace
}  // namespace kestrin::gateway
