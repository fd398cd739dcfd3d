#include "gateway/commands/GatewayProgram.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

namespace kestrin::gateway {

GatewayProgram::GatewayProgram(const TestFolder& folder, const std::string& name,
                               const std::vector<std::string>& arguments)
    : base_(folder.pathOf(name)) {
  // ChildProcess has one file for both, which the shell takes apart.
  std::vector<std::string> command{
      "/bin/sh", "-c", R"(exec "$0" "$@" >>")" + base_ + R"(.out" 2>>")" + base_ + R"(.err")",
      GATEWAY_PROGRAM};
  command.insert(command.end(), arguments.begin(), arguments.end());
  EXPECT_TRUE(process_.start(command, base_ + ".sh"));
}

int GatewayProgram::finish() {
  constexpr int kSignalled = 128;
  return process_.wait().value_or(kSignalled);
}

ProgramOutcome runProgram(const std::vector<std::string>& arguments) {
  const TestFolder folder;
  GatewayProgram program(folder, "run", arguments);
  ProgramOutcome outcome;
  outcome.status = program.finish();
  outcome.output = program.output();
  outcome.errors = program.errors();
  return outcome;
}

bool comesTrue(const std::function<bool()>& condition) {
  const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > limit) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return true;
}

}  // namespace kestrin::gateway
