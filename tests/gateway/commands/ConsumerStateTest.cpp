// What a consumer keeps in its file: written whole, read strictly.
#include "tools/gateway/commands/ConsumerState.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "gateway/support/ChildProcess.h"
#include "gateway/support/TestFolder.h"

namespace kestrin::gateway {
namespace {

const ConsumerPositions kPositions{{LogIdentity(32, 'a'), 48214}, {LogIdentity(32, 'b'), 1}};

class ConsumerStateTest : public testing::Test {
 protected:
  std::unique_ptr<ConsumerState> open(const std::string& consumer = "wms") {
    return ConsumerState::open(systemFiles(), path, "hall-1", consumer, error);
  }

  const TestFolder folder;
  const std::string path = folder.pathOf("wms.state");
  std::string error;
};

TEST_F(ConsumerStateTest, AFileThatIsNotThereIsABeginning) {
  const auto state = open();
  ASSERT_TRUE(state) << error;
  EXPECT_TRUE(state->positions().empty());
}

TEST_F(ConsumerStateTest, WhatWasSavedIsThereAgain) {
  auto state = open();
  EXPECT_EQ(state->save(kPositions), std::nullopt);
  state.reset();
  state = open();
  ASSERT_TRUE(state) << error;
  EXPECT_EQ(state->positions(), kPositions);
}

TEST_F(ConsumerStateTest, WhatAKillLeftOfASavingIsNoHindrance) {
  folder.write("wms.state.new", "half of");
  const auto state = open();
  ASSERT_TRUE(state) << error;
  EXPECT_EQ(state->save(kPositions), std::nullopt);
  EXPECT_EQ(contentsOf(path), stateText("hall-1", "wms", kPositions));
}

TEST_F(ConsumerStateTest, AFileThatCannotBeReplacedIsSaidAndStaysAsItWas) {
  const auto state = open();
  EXPECT_EQ(state->save({{LogIdentity(32, 'a'), 2}}), std::nullopt);
  const std::string before = contentsOf(path);
  std::filesystem::create_directories(path + ".new/in-the-way");
  const auto why = state->save(kPositions);
  ASSERT_TRUE(why);
  EXPECT_NE(why->find(path), std::string::npos) << *why;
  EXPECT_EQ(contentsOf(path), before);
}

TEST_F(ConsumerStateTest, EveryChangedOrMissingByteIsNoticed) {
  const std::string right = stateText("hall-1", "wms", kPositions);
  for (std::size_t place = 0; place < right.size(); ++place) {
    std::string wrong = right;
    wrong[place] = wrong[place] == '1' ? '2' : '1';
    EXPECT_FALSE(statePositions(wrong, "hall-1", "wms", error)) << place;
    EXPECT_FALSE(statePositions(right.substr(0, place), "hall-1", "wms", error)) << place;
  }
  EXPECT_EQ(statePositions(right, "hall-1", "wms", error), kPositions);
}

TEST_F(ConsumerStateTest, ADamagedFileIsRefusedWithItsNameAndWhatToDo) {
  std::string text = stateText("hall-1", "wms", kPositions);
  text[text.find("48214")] = '9';
  folder.write("wms.state", text);
  EXPECT_FALSE(open());
  EXPECT_EQ(error.find(path + ": is damaged"), 0U) << error;
  EXPECT_NE(error.find("put a good copy back"), std::string::npos) << error;
  EXPECT_EQ(contentsOf(path), text);
}

TEST_F(ConsumerStateTest, AnotherConsumersFileIsRefused) {
  EXPECT_EQ(open()->save(kPositions), std::nullopt);
  EXPECT_FALSE(open("erp"));
  EXPECT_NE(error.find("another consumer"), std::string::npos) << error;
}

TEST_F(ConsumerStateTest, AFolderInItsPlaceIsRefused) {
  std::filesystem::create_directory(path);
  EXPECT_FALSE(open());
  EXPECT_NE(error.find(path), std::string::npos) << error;
}

}  // namespace
}  // namespace kestrin::gateway
