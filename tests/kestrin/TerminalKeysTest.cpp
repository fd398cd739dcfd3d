// Keys of a terminal, of which a pipe is as good as one.
#include "tools/kestrin/screen/TerminalKeys.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>

#include "kestrin/simulated/VirtualClock.h"
#include "support/Pipe.h"

namespace kestrin::app {
namespace {

class TerminalKeysTest : public testing::Test {
 protected:
  std::unique_ptr<TerminalKeys> keysOf(int input) {
    return std::make_unique<TerminalKeys>(input, loop, [this](char key) {
      pressed += key;
      if (onKey) onKey();
    });
  }

  MainRunLoop loop{std::make_shared<simulated::VirtualClock>()};
  kestrin::test::Pipe terminal;
  std::string pressed;
  std::function<void()> onKey;
};

TEST_F(TerminalKeysTest, ComeOneByOneInTheirOrder) {
  const auto keys = keysOf(terminal.reading.number());
  terminal.writing.write("ab");
  loop.runOneTurn();
  terminal.writing.write("c");
  loop.runOneTurn();
  EXPECT_EQ(pressed, "abc");
}

TEST_F(TerminalKeysTest, AreOverWithTheirInput) {
  const auto keys = keysOf(terminal.reading.number());
  terminal.writing.write("a");
  terminal.writing.close();
  loop.run();
  EXPECT_EQ(pressed, "a");
}

TEST_F(TerminalKeysTest, AreNoneWithoutAnInput) {
  const auto keys = keysOf(-1);
  EXPECT_FALSE(loop.runOneTurn());
}

TEST_F(TerminalKeysTest, AreNotHeardAfterTheDrop) {
  auto keys = keysOf(terminal.reading.number());
  keys.reset();
  terminal.writing.write("a");
  EXPECT_FALSE(loop.runOneTurn());
  EXPECT_EQ(pressed, "");
}

TEST_F(TerminalKeysTest, MayDropTheirListenerFromWithinAKey) {
  auto keys = keysOf(terminal.reading.number());
  onKey = [&] { keys.reset(); };
  terminal.writing.write("abc");
  loop.runOneTurn();
  EXPECT_EQ(pressed, "a");
  EXPECT_FALSE(loop.runOneTurn());
}

}  // namespace
}  // namespace kestrin::app
