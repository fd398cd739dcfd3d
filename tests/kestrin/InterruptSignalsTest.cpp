// The signals that steer the process, as tasks and as the end.
#include "tools/kestrin/radio/InterruptSignals.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <string>

namespace kestrin::app {
namespace {

class Interrupts : public testing::TestWithParam<int> {};

TEST_P(Interrupts, TheFirstSignalIsATaskOnTheLoop) {
  const BlockedInterruptSignals blocked;
  MainRunLoop loop;
  std::size_t interruptions = 0;
  std::thread::id thread;
  const InterruptSignals signals(loop, {.interrupt = [&] {
                                   ++interruptions;
                                   thread = std::this_thread::get_id();
                                   loop.stop();
                                 }});
  ASSERT_EQ(::kill(::getpid(), GetParam()), 0);
  loop.run();
  EXPECT_EQ(interruptions, 1U);
  EXPECT_EQ(thread, std::this_thread::get_id());
}

void interruptTwice(int signalNumber) {
  const BlockedInterruptSignals blocked;
  MainRunLoop loop;
  const InterruptSignals signals(loop, {.interrupt = [&] { loop.stop(); },
                                        .beforeEnd = [] { std::fputs("put right", stderr); }});
  ::kill(::getpid(), signalNumber);
  loop.run();
  ::kill(::getpid(), signalNumber);
  while (true) ::pause();
}

TEST_P(Interrupts, ASecondSignalEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(interruptTwice(GetParam()), testing::KilledBySignal(GetParam()), "put right");
}

TEST_P(Interrupts, ASignalThatCameEarlyIsNotLost) {
  const BlockedInterruptSignals blocked;
  ASSERT_EQ(::kill(::getpid(), GetParam()), 0);
  MainRunLoop loop;
  bool interrupted = false;
  const InterruptSignals signals(loop, {.interrupt = [&] {
                                   interrupted = true;
                                   loop.stop();
                                 }});
  loop.run();
  EXPECT_TRUE(interrupted);
}

TEST(InterruptSignals, EndWithoutASignal) {
  const BlockedInterruptSignals blocked;
  MainRunLoop loop;
  for (int i = 0; i < 100; ++i) {
    const InterruptSignals signals(loop,
                                   {.interrupt = [] { FAIL() << "nobody has sent a signal"; }});
  }
  EXPECT_FALSE(loop.runOneTurn());
}

INSTANTIATE_TEST_SUITE_P(EachSignal, Interrupts, testing::Values(SIGINT, SIGTERM, SIGHUP),
                         [](const auto& value) {
                           return std::string(::sigabbrev_np(value.param));
                         });

class Tellings : public testing::TestWithParam<int> {};

TEST_P(Tellings, AreATaskOfTheirOwnEachTime) {
  const BlockedInterruptSignals blocked;
  MainRunLoop loop;
  int told = 0;
  const auto tell = [&](int number) {
    return [&told, &loop, number] {
      told = number;
      loop.stop();
    };
  };
  const InterruptSignals signals(loop, {.interrupt = tell(SIGINT),
                                        .suspend = tell(SIGTSTP),
                                        .continued = tell(SIGCONT),
                                        .resized = tell(SIGWINCH)});
  for (int i = 0; i < 2; ++i) {
    told = 0;
    ASSERT_EQ(::kill(::getpid(), GetParam()), 0);
    loop.run();
    EXPECT_EQ(told, GetParam());
  }
}

INSTANTIATE_TEST_SUITE_P(EachSignal, Tellings, testing::Values(SIGTSTP, SIGCONT, SIGWINCH),
                         [](const auto& value) {
                           return std::string(::sigabbrev_np(value.param));
                         });

void quit() {
  const BlockedInterruptSignals blocked;
  MainRunLoop loop;
  const InterruptSignals signals(loop, {.beforeEnd = [] { std::fputs("put right", stderr); }});
  const rlimit noCore{0, 0};
  ::setrlimit(RLIMIT_CORE, &noCore);
  ::kill(::getpid(), SIGQUIT);
  while (true) ::pause();
}

TEST(InterruptSignals, AQuitEndsTheProcessAtOnceAfterTheTerminalWasPutRight) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(quit(), testing::KilledBySignal(SIGQUIT), "put right");
}

void hangUpIgnored() {
  ::signal(SIGHUP, SIG_IGN);
  const BlockedInterruptSignals blocked;
  MainRunLoop loop;
  bool interrupted = false;
  const InterruptSignals signals(
      loop, {.interrupt = [&] { interrupted = true; }, .resized = [&] { loop.stop(); }});
  ::kill(::getpid(), SIGHUP);
  ::kill(::getpid(), SIGWINCH);
  loop.run();
  ::_exit(interrupted ? 1 : 0);
}

TEST(InterruptSignals, AHangUpThatTheParentHadIgnoredStaysIgnored) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(hangUpIgnored(), testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace kestrin::app
