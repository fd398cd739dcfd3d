// The checksum against its published check value, and both ways to compute it against each other.
#include "tools/gateway/log/Crc32c.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

namespace kestrin::gateway {
namespace {

std::vector<std::uint8_t> bytesOf(const std::string& text) { return {text.begin(), text.end()}; }

TEST(Crc32c, HasThePublishedCheckValue) {
  EXPECT_EQ(crc32c(bytesOf("123456789")), 0xE3069283U);
  EXPECT_EQ(crc32cByTable(bytesOf("123456789")), 0xE3069283U);
}

TEST(Crc32c, HasThePublishedValuesOfLongerInputs) {
  EXPECT_EQ(crc32c(std::vector<std::uint8_t>(32, 0)), 0x8A9136AAU);
  EXPECT_EQ(crc32c(std::vector<std::uint8_t>(32, 0xFF)), 0x62A8AB43U);
  EXPECT_EQ(crc32cByTable(std::vector<std::uint8_t>(32, 0)), 0x8A9136AAU);
  EXPECT_EQ(crc32cByTable(std::vector<std::uint8_t>(32, 0xFF)), 0x62A8AB43U);
}

TEST(Crc32c, IsTheSameWithAndWithoutTheProcessor) {
  std::mt19937 random(1);
  for (std::size_t length = 0; length < 200; ++length) {
    std::vector<std::uint8_t> bytes(length);
    for (auto& byte : bytes) byte = static_cast<std::uint8_t>(random());
    EXPECT_EQ(crc32c(bytes), crc32cByTable(bytes)) << length << " bytes";
  }
}

}  // namespace
}  // namespace kestrin::gateway
