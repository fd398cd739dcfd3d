// What the gateway says where it cannot run.
#include <gtest/gtest.h>
#include <unistd.h>

#include <vector>

#include "gateway/support/TestFolder.h"
#include "tools/gateway/commands/Commands.h"

namespace kestrin::gateway {
namespace {

class RunCommand : public testing::Test {
 protected:
  int run(const std::string& config) {
    Output output(STDOUT_FILENO, STDERR_FILENO);
    output.noteIn([this](const Line& line) {
      said_.push_back(line);
      return true;
    });
    return runGateway({.config = folder_.write("gateway.toml", config)}, output);
  }

  const TestFolder folder_;
  std::vector<Line> said_;
};

TEST_F(RunCommand, WhatKeepsItFromRunningIsAnErrorInTheJournal) {
  EXPECT_EQ(run("[gateway]\n"), kWrongUsage);
  ASSERT_FALSE(said_.empty());
  for (const Line& each : said_) EXPECT_EQ(each.weight, Weight::error) << each.text;
  said_.clear();
  folder_.write("log", "not a folder");
  EXPECT_EQ(run("reader = []\n[gateway]\nname = \"g\"\n[radio]\nkind = \"simulated\"\n[log]\n"
                "directory = \"log\"\n[broker]\nhost = \"127.0.0.1\"\n"),
            kFailure);
  ASSERT_EQ(said_.size(), 1U);
  EXPECT_EQ(said_.front().weight, Weight::error) << said_.front().text;
}

}  // namespace
}  // namespace kestrin::gateway
