// The application in a terminal: what its screen shows, and that the terminal is as it was whatever
// ends it. The radio is simulated and time virtual.
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <string>
#include <vector>

#include "kestrin/PtyProgram.h"

namespace kestrin::app::test {
namespace {

using Arguments = std::vector<std::string>;

Arguments monitor(Arguments arguments) {
  arguments.insert(arguments.begin(), "monitor");
  arguments.insert(arguments.end(), {"--radio", "simulated", "--virtual-time"});
  return arguments;
}

constexpr char kPlugged[] = "plugged in: KVR-0417 C0:00:00:00:00:02\n";

TEST(LiveScreen, ShowsTheLinkAndTheFramesTakenApartAndLeavesNothing) {
  PtyProgram program(monitor({"0417"}));
  ASSERT_TRUE(program.waitFor(kPlugged)) << program.screen().text();
  // A picture may arrive in pieces.
  for (const char* text :
       {"1 frame, 27 bytes\n1 link-up, 0 lost\nreaders seen\n",
        "\n> KVR-0417              C0:00:00:00:00:02\n", "01    03    19      39FE B1 56 69",
        "\nq or Ctrl-C ends, Ctrl-Z suspends\n"}) {
    EXPECT_TRUE(program.waitFor(text)) << text << " is not in\n" << program.screen().text();
  }
  EXPECT_FALSE(program.screen().hasCursor());
  program.type("q");
  EXPECT_EQ(program.finish(), 0);
  EXPECT_TRUE(program.isTerminalRight());
  EXPECT_EQ(program.screen().outside(), "");
  EXPECT_EQ(program.screen().strange(), "");
  EXPECT_EQ(program.screen().cutLetters(), 0U);
}

/// A way to end, the keys or else the signal.
struct Way {
  const char* name;
  const char* keys;
  int signal;
  int status;
};

class EveryWayOut : public testing::TestWithParam<Way> {};

TEST_P(EveryWayOut, PutsTheTerminalRight) {
  PtyProgram program(monitor({"0417"}));
  ASSERT_TRUE(program.waitFor(kPlugged)) << program.screen().text();
  EXPECT_FALSE(program.isTerminalRight());
  if (GetParam().signal == 0) {
    program.type(GetParam().keys);
  } else {
    program.signal(GetParam().signal);
  }
  EXPECT_EQ(program.finish(), GetParam().status);
  EXPECT_TRUE(program.isTerminalRight());
  EXPECT_EQ(program.screen().outside(), "");
}

INSTANTIATE_TEST_SUITE_P(Way, EveryWayOut,
                         testing::Values(Way{"q", "q", 0, 0}, Way{"CtrlC", "\x03", 0, 0},
                                         Way{"CtrlBackslash", "\x1c", 0, 128 + SIGQUIT},
                                         Way{"TERM", "", SIGTERM, 0}, Way{"HUP", "", SIGHUP, 0}),
                         [](const auto& value) { return std::string(value.param.name); });

TEST(LiveScreen, AFailureIsToldAfterTheScreenIsGone) {
  PtyProgram program(monitor({"nobody", "--timeout", "1"}));
  EXPECT_EQ(program.finish(), 1);
  EXPECT_TRUE(program.isTerminalRight());
  EXPECT_EQ(program.screen().outside(),
            "kestrin: no reader whose name contains 'nobody' was found within 1 s; in range: "
            "'KVR-0417', 'TQM_HOLV-1', 'KVR-Q62T 0012'\r\n");
}

TEST(LiveScreen, FollowsTheTerminalsSize) {
  PtyProgram program(monitor({"0417"}));
  ASSERT_TRUE(program.waitFor(kPlugged)) << program.screen().text();
  program.resize(30, 6);
  ASSERT_TRUE(program.waitFor([](const TerminalEmulator& screen) {
    return screen.rows().at(5) == "q or Ctrl-C ends, Ctrl-Z su...";
  })) << program.screen().text();
  EXPECT_TRUE(program.waitFor("plugged in: KVR-0417 C0:00:...\n")) << program.screen().text();
  program.resize(100, 30);
  ASSERT_TRUE(program.waitFor([](const TerminalEmulator& screen) {
    return screen.rows().at(29) == "q or Ctrl-C ends, Ctrl-Z suspends";
  })) << program.screen().text();
}

TEST(LiveScreen, ANumberPicksOneOfSeveralReadersAndACursorKeyNone) {
  PtyProgram program(monitor({}));
  ASSERT_TRUE(program.waitFor("  2  TQM_HOLV-1 ")) << program.screen().text();
  ASSERT_TRUE(program.waitFor("which reader? press its number\n")) << program.screen().text();
  program.type(
      "\x1b[1;5A\x1bOP"
      "9"
      "2");
  ASSERT_TRUE(program.waitFor("plugged in: TQM_HOLV-1 ")) << program.screen().text();
  program.type("q");
  EXPECT_EQ(program.finish(), 0);
}

TEST(LiveScreen, HasTheLogOnDemand) {
  PtyProgram program(monitor({"0417", "--log"}));
  ASSERT_TRUE(program.waitFor("\nlog\n")) << program.screen().text();
  ASSERT_TRUE(program.waitFor("[RX BLE] <bb010300 13b15669")) << program.screen().text();
  program.type("q");
  EXPECT_EQ(program.finish(), 0);
  EXPECT_EQ(program.screen().outside(), "");
}

TEST(LiveScreen, HasColoursUnlessTheyAreNotWanted) {
  const auto isColoured = [](const std::vector<std::string>& environment) {
    PtyProgram program(monitor({"0417"}), {.environment = environment});
    EXPECT_TRUE(program.waitFor(kPlugged)) << program.screen().text();
    return program.screen().wasStyled();
  };
  EXPECT_TRUE(isColoured({}));
  EXPECT_TRUE(isColoured({"NO_COLOR="})) << "set to nothing, which is not to be heeded";
  EXPECT_FALSE(isColoured({"NO_COLOR=1"}));
}

TEST(LiveScreen, IsNotShownWhereItCanNotBe) {
  const auto saysPlugged = [](const TerminalEmulator& screen) {
    return screen.outside().find("PLUGGED\r\n") != std::string::npos;
  };
  for (const PtyOptions& options :
       {PtyOptions{.environment = {"TERM=dumb"}}, PtyOptions{.environment = {"TERM="}},
        PtyOptions{.environment = {"TERM=no-such-terminal"}}, PtyOptions{.inForeground = false}}) {
    PtyProgram program(monitor({"0417"}), options);
    ASSERT_TRUE(program.waitFor(saysPlugged)) << program.screen().outside();
    program.signal(SIGTERM);
    EXPECT_EQ(program.finish(), 0);
    EXPECT_EQ(program.screen().outside().substr(0, 33), "READER KVR-0417 C0:00:00:00:00:02");
    EXPECT_EQ(program.screen().outside().find('\x1b'), std::string::npos);
    EXPECT_FALSE(program.screen().wasStyled());
  }
}

TEST(CtrlZ, GivesTheTerminalBackAndTheScreenComesAgainWithANewLink) {
  PtyProgram program(monitor({"0417"}));
  ASSERT_TRUE(program.waitFor(kPlugged)) << program.screen().text();
  for (const char* linkUps : {"2 link-ups, 0 lost", "3 link-ups, 0 lost"}) {
    program.type("\x1a");
    ASSERT_TRUE(program.waitUntilStopped()) << program.screen().text();
    EXPECT_TRUE(program.isTerminalRight());
    EXPECT_TRUE(program.screen().shows("in the background\n") ||
                program.screen().shows("in the background C0:"))
        << program.screen().text();
    program.goOn();
    ASSERT_TRUE(program.waitFor(linkUps)) << program.screen().text();
    ASSERT_TRUE(program.waitFor(kPlugged)) << program.screen().text();
    EXPECT_TRUE(program.screen().isSecondScreen());
  }
  program.type("q");
  EXPECT_EQ(program.finish(), 0);
  EXPECT_TRUE(program.isTerminalRight());
  EXPECT_EQ(program.screen().strange(), "");
}

TEST(CtrlZ, EndsTheLinkBeforeTheStopAndMakesItAgain) {
  PtyProgram program(monitor({"0417"}), {.environment = {"TERM=dumb"}});
  const auto said = [&](const std::string& text) {
    return program.waitFor(
        [&](const TerminalEmulator& screen) { return screen.outside().ends_with(text); });
  };
  ASSERT_TRUE(said("\nPLUGGED\r\n")) << program.screen().outside();
  program.type("\x1a");
  ASSERT_TRUE(program.waitUntilStopped());
  // The terminal shows the key as well.
  EXPECT_TRUE(program.screen().outside().ends_with("PLUGGED\r\n^ZUNPLUGGED\r\nUNPLUGGED\r\n"))
      << program.screen().outside();
  program.goOn();
  ASSERT_TRUE(said("\nPLUGGED\r\n")) << program.screen().outside();
  program.type("\x03");
  EXPECT_EQ(program.finish(), 0);
}

TEST(CtrlZ, AScanIsStoppedAndGoesOn) {
  PtyProgram program({"scan", "--radio", "simulated", "--virtual-time"});
  const auto sees = [&](const char* text) {
    return program.waitFor([&](const TerminalEmulator& screen) {
      return screen.outside().find(text) != std::string::npos;
    });
  };
  ASSERT_TRUE(sees("0012\tC0:00:00:00:00:06")) << program.screen().outside();
  program.type("\x1a");
  ASSERT_TRUE(program.waitUntilStopped());
  const std::size_t before = program.screen().outside().size();
  program.goOn();
  ASSERT_TRUE(program.waitFor([&](const TerminalEmulator& screen) {
    return screen.outside().find("KVR-0417\t", before) != std::string::npos;
  })) << program.screen().outside();
  program.type("\x03");
  EXPECT_EQ(program.finish(), 0);
}

}  // namespace
}  // namespace kestrin::app::test
