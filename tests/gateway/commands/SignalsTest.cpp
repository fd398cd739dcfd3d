// The signals that steer the program, as tasks on its run loop.
#include "tools/gateway/commands/Signals.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

namespace kestrin::gateway {
namespace {

class SignalsTest : public testing::Test {
 protected:
  /// Turns the loop until so much has been asked for.
  bool comes(const std::string& text) {
    return loop.runUntil(loop.now() + std::chrono::seconds(60), [&] { return said == text; });
  }

  MainRunLoop loop;
  std::string said;
  Signals signals{loop,
                  {.end = [this] { said += "end "; }, .reload = [this] { said += "reload "; }}};
};

TEST_F(SignalsTest, HangUpAsksForAnotherLookAndTerminationForTheEnd) {
  ASSERT_TRUE(signals.isWatching());
  ::raise(SIGHUP);
  EXPECT_TRUE(comes("reload ")) << said;
  ::raise(SIGHUP);
  EXPECT_TRUE(comes("reload reload ")) << said;
  ::raise(SIGTERM);
  EXPECT_TRUE(comes("reload reload end ")) << said;
}

TEST_F(SignalsTest, InterruptAsksForTheEnd) {
  ::raise(SIGINT);
  EXPECT_TRUE(comes("end ")) << said;
}

TEST(SignalsDeathTest, ASecondOneEndsTheProcessAtOnce) {
  const auto twice = [] {
    MainRunLoop loop;
    Signals signals(loop, {.end = [] { ::raise(SIGTERM); }, .reload = {}});
    ::raise(SIGTERM);
    loop.runFor(std::chrono::seconds(60));
  };
  EXPECT_EXIT(twice(), testing::KilledBySignal(SIGTERM), "");
}

TEST(SignalsDeathTest, WithoutAnythingToReloadHangUpAsksForTheEnd) {
  const auto hangUp = [] {
    MainRunLoop loop;
    Signals signals(loop, {.end = [] { ::_exit(7); }, .reload = {}});
    ::raise(SIGHUP);
    loop.runFor(std::chrono::seconds(60));
  };
  EXPECT_EXIT(hangUp(), testing::ExitedWithCode(7), "");
}

}  // namespace
}  // namespace kestrin::gateway
