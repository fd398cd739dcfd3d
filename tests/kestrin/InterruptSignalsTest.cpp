// SIGINT and SIGTERM, as a task and as the end.
#include "tools/kestrin/InterruptSignals.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>

namespace kestrin::app {
namespace {

class Interrupts : public testing::TestWithParam<int> {};

TEST_P(Interrupts, TheFirstSignalIsATaskOnTheLoop) {
  const BlockedInterruptSignals blocked;
  MainRunLoop loop;
  std::size_t interruptions = 0;
  std::thread::id thread;
  const InterruptSignals signals(loop, [&] {
    ++interruptions;
    thread = std::this_thread::get_id();
    loop.stop();
  });
  ASSERT_EQ(::kill(::getpid(), GetParam()), 0);
  loop.run();
  EXPECT_EQ(interruptions, 1U);
  EXPECT_EQ(thread, std::this_thread::get_id());
}

void interruptTwice(int signalNumber) {
  const BlockedInterruptSignals blocked;
  MainRunLoop loop;
  const InterruptSignals signals(loop, [&] { loop.stop(); });
  ::kill(::getpid(), signalNumber);
  loop.run();
  ::kill(::getpid(), signalNumber);
  while (true) ::pause();
}

TEST_P(Interrupts, ASecondSignalEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(interruptTwice(GetParam()), testing::KilledBySignal(GetParam()), "");
}

TEST_P(Interrupts, ASignalThatCameEarlyIsNotLost) {
  const BlockedInterruptSignals blocked;
  ASSERT_EQ(::kill(::getpid(), GetParam()), 0);
  MainRunLoop loop;
  bool interrupted = false;
  const InterruptSignals signals(loop, [&] {
    interrupted = true;
    loop.stop();
  });
  loop.run();
  EXPECT_TRUE(interrupted);
}

TEST(InterruptSignals, EndWithoutASignal) {
  const BlockedInterruptSignals blocked;
  MainRunLoop loop;
  for (int i = 0; i < 100; ++i) {
    const InterruptSignals signals(loop, [] { FAIL() << "nobody has sent a signal"; });
  }
  EXPECT_FALSE(loop.runOneTurn());
}

INSTANTIATE_TEST_SUITE_P(EachSignal, Interrupts, testing::Values(SIGINT, SIGTERM),
                         [](const auto& value) { return value.param == SIGINT ? "INT" : "TERM"; });

}  // namespace
}  // namespace kestrin::app
