// Structs of other versions of the library, as programs bring them that were compiled with those.
#include "StructSize.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace kestrin::c {
namespace {

/// A struct in its third version.
struct Settings {
  std::size_t struct_size;
  std::uint64_t first;
  std::uint64_t second;  // Since the second version.
  const char* third;     // Since the third.
};

std::optional<Settings> read(const Settings& given) {
  return readStruct(given, "settings",
                    {offsetof(Settings, second), offsetof(Settings, third), sizeof(Settings)});
}

Settings settingsOf(std::size_t size) { return {size, 1, 2, "three"}; }

TEST(StructSize, AllOfAStructOfThisVersionIsRead) {
  const auto known = read(settingsOf(sizeof(Settings)));
  ASSERT_TRUE(known);
  EXPECT_EQ(known->first, 1U);
  EXPECT_EQ(known->second, 2U);
  EXPECT_STREQ(known->third, "three");
}

TEST(StructSize, WhatAnEarlierVersionDoesNotHaveIsAbsent) {
  const auto second = read(settingsOf(offsetof(Settings, third)));
  ASSERT_TRUE(second);
  EXPECT_EQ(second->second, 2U);
  EXPECT_EQ(second->third, nullptr);
  const auto first = read(settingsOf(offsetof(Settings, second)));
  ASSERT_TRUE(first);
  EXPECT_EQ(first->first, 1U);
  EXPECT_EQ(first->second, 0U);
  EXPECT_EQ(first->third, nullptr);
}

TEST(StructSize, NothingBehindAnEarlierStructIsLookedAt) {
  // Of its own size, so that AddressSanitizer sees every byte too many.
  const std::size_t size = offsetof(Settings, second);
  const auto memory = std::make_unique<std::byte[]>(size);
  auto* const earlier = reinterpret_cast<Settings*>(memory.get());
  std::memcpy(memory.get(), &size, sizeof size);
  EXPECT_TRUE(read(*earlier));
}

TEST(StructSize, ASizeThatNoVersionHasIsRefusedInWords) {
  for (const std::size_t size : {std::size_t{0}, std::size_t{8}, offsetof(Settings, second) - 1,
                                 sizeof(Settings) - 1, sizeof(Settings) + 8}) {
    EXPECT_FALSE(read(settingsOf(size)));
    EXPECT_EQ(std::string(kestrin_last_error()), "settings.struct_size is " + std::to_string(size) +
                                                     "; it is to be sizeof(settings), which is " +
                                                     std::to_string(sizeof(Settings)) +
                                                     " for this library");
  }
}

}  // namespace
}  // namespace kestrin::c
