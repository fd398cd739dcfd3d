// The live screen on a simulated radio in virtual time, with a file in place of the terminal.
#include "tools/kestrin/screen/MonitorScreen.h"

#include <KestrinBLESDK/RcpFrame.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "kestrin/Captured.h"
#include "kestrin/TerminalEmulator.h"
#include "kestrin/TestEnvironment.h"
#include "tools/kestrin/commands/Commands.h"
#include "tools/kestrin/screen/ScreenLog.h"
#include "tools/kestrin/screen/TerminalScreen.h"

namespace kestrin::app {
namespace {

using simulated::ReaderFamily;
using std::chrono::milliseconds;
using std::chrono::seconds;

class LiveMonitor : public testing::Test {
 public:
  // NOLINTNEXTLINE(concurrency-mt-unsafe): one thread.
  LiveMonitor() { EXPECT_EQ(::setenv("TERM", "xterm", 1), 0); }
  ~LiveMonitor() override { ::close(noKeys_); }
  LiveMonitor(const LiveMonitor&) = delete;
  LiveMonitor& operator=(const LiveMonitor&) = delete;

 protected:
  void at(Time time, std::function<void()> what) {
    environment_.loop().arm(time - now(), std::move(what));
  }
  int monitor(const std::string& name, double duration, std::shared_ptr<ScreenLog> log = {}) {
    MonitorRequest request;
    request.name = name;
    request.duration = duration;
    request.screen = &terminal_;
    request.log = std::move(log);
    return runMonitor(request, environment_, captured_.console);
  }
  [[nodiscard]] test::TerminalEmulator shown() const {
    test::TerminalEmulator emulator;
    emulator.take(shown_.text());
    return emulator;
  }
  std::shared_ptr<simulated::VirtualPeripheral> addReader(const std::string& name) {
    return environment_.radio().addReader(name, ReaderFamily::standard);
  }
  [[nodiscard]] Time now() const { return environment_.loop().now(); }

  test::TestEnvironment environment_{CBManagerState::poweredOn};
  test::Captured captured_;
  test::CapturedStream shown_;
  const int noKeys_ = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
  TerminalScreen terminal_{noKeys_, shown_.descriptor()};
};

TEST_F(LiveMonitor, ShowsWhatHappensToTheLink) {
  const auto reader = addReader("KVR-1");
  reader->simulateConnectionNeverCompleting();
  at(seconds(2), [&] {
    EXPECT_EQ(shown().rows().at(0), "connecting to KVR-1 " + reader->identifier());
    reader->simulateConnectionNeverCompleting(false);
  });
  at(milliseconds(100), [&] {
    EXPECT_EQ(shown().rows().at(0), "searching for 'KVR'");
    EXPECT_FALSE(shown().hasCursor());
  });
  EXPECT_EQ(monitor("KVR", 1), kSuccess);
  EXPECT_FALSE(shown().isSecondScreen());
  EXPECT_TRUE(shown().hasCursor());
}

TEST_F(LiveMonitor, CountsLinkUpsLostLinksAndFrames) {
  const auto reader = addReader("KVR-1");
  at(seconds(10), [&] { reader->simulateLinkLoss(); });
  at(milliseconds(10'200),
     [&] { EXPECT_EQ(shown().rows().at(0).substr(0, 10), "link lost,") << shown().text(); });
  at(seconds(11), [&] {
    EXPECT_EQ(shown().rows().at(0).substr(0, 21), "linked, not ready yet") << shown().text();
  });
  at(seconds(19), [&] {
    EXPECT_EQ(shown().rows().at(0), "plugged in: KVR-1 " + reader->identifier());
    EXPECT_TRUE(shown().shows("2 link-ups, 1 lost\n")) << shown().text();
    EXPECT_TRUE(shown().shows("; 2 frames, 54 bytes\n")) << shown().text();
  });
  EXPECT_EQ(monitor("KVR", 20), kSuccess);
  EXPECT_EQ(captured_.output.text(), "");
  EXPECT_EQ(captured_.errors.text(), "");
  EXPECT_EQ(shown().outside(), "");
}

TEST_F(LiveMonitor, TheCloseAtTheEndIsNoLostLink) {
  addReader("KVR-1");
  EXPECT_EQ(monitor("KVR", 5), kSuccess);
  EXPECT_TRUE(shown().shows("1 link-up, 0 lost\n")) << shown().text();
}

TEST_F(LiveMonitor, NamesFromTheAirCanNotSteerTheTerminal) {
  const std::string name =
      "KVR\x1b[2J\x1b]0;t\x07\x9b"
      "5n\n";
  addReader(name);
  const auto log = std::make_shared<ScreenLog>(nullptr);
  log->write("DiscoverPeripheral  " + name);
  EXPECT_EQ(monitor("KVR", 2, log), kSuccess);
  EXPECT_EQ(shown().strange(), "");
  EXPECT_TRUE(shown().shows("\nDiscoverPeripheral  KVR\\x1b[2J\\x1b]0;t\\x07\\x9b5n\\x0a\n"))
      << shown().text();
  EXPECT_TRUE(shown().shows("KVR\\x1b[2J\\x1b]0;t\\x07\\x9b5n\\x0a")) << shown().text();
}

TEST_F(LiveMonitor, DrawsAtMostTenTimesASecond) {
  const auto reader = addReader("KVR-1");
  const CBUUID rx = simulated::readerCharacteristics(ReaderFamily::standard).rx;
  std::uint8_t number = 0;
  for (int i = 0; i < 1000; ++i) {
    at(seconds(10) + milliseconds(i), [&] {
      const std::uint8_t payload[] = {++number};
      reader->simulateNotification(rx, *buildRcpFrame(0x02, 0x22, payload));
    });
  }
  std::vector<Time> drawings;
  std::size_t bytes = 0;
  for (int i = 0; i < 2000; ++i) {
    at(seconds(10) + milliseconds(i) + std::chrono::microseconds(500), [&] {
      if (shown_.text().size() != bytes) drawings.push_back(now());
      bytes = shown_.text().size();
    });
  }
  at(milliseconds(11'500), [&] {
    EXPECT_TRUE(shown().shows("; 1001 frames, ")) << shown().text();
    EXPECT_EQ(drawings.size() < 20 && drawings.size() > 8, true) << drawings.size();
    for (std::size_t i = 1; i < drawings.size(); ++i) {
      EXPECT_GE(drawings[i] - drawings[i - 1], milliseconds(99));
    }
  });
  EXPECT_EQ(monitor("KVR", 12), kSuccess);
}

TEST_F(LiveMonitor, WritesNothingWhileNothingChanges) {
  addReader("KVR-1");
  std::size_t before = 0;
  at(seconds(20), [&] { before = shown_.text().size(); });
  at(seconds(500), [&] {
    EXPECT_GT(before, 0U);
    EXPECT_EQ(shown_.text().size(), before);
  });
  EXPECT_EQ(monitor("KVR", 600), kSuccess);
}

TEST_F(LiveMonitor, SaysWhatIsTheMatterWithTheRadio) {
  environment_.radio().simulateState(CBManagerState::poweredOff);
  at(seconds(1), [&] {
    EXPECT_TRUE(shown().shows("switched off; simulate the state powered on")) << shown().text();
    EXPECT_EQ(captured_.errors.text(), "") << "as long as the screen is there";
  });
  EXPECT_EQ(monitor("KVR", 1), kFailure);
  EXPECT_NE(captured_.errors.text().find("kestrin: no reader whose name contains 'KVR'"),
            std::string::npos);
}

TEST_F(LiveMonitor, SeveralReadersWithoutKeysAreAFailure) {
  addReader("KVR-1");
  addReader("KVR-2");
  EXPECT_EQ(monitor("KVR", 1), kFailure);
  EXPECT_NE(captured_.errors.text().find("'KVR' fits several readers"), std::string::npos);
}

class Screen : public LiveMonitor {
 protected:
  [[nodiscard]] test::TerminalEmulator screen() const {
    test::TerminalEmulator emulator(size_.columns, size_.rows);
    emulator.take(shown_.text());
    return emulator;
  }
  const ScreenSize size_{};
};

TEST_F(Screen, ShowsEachPartInItsStyle) {
  terminal_.enter();
  terminal_.show({{{"plain"}, {"good", Style::good}, {"bad", Style::bad}},
                  {{"busy", Style::busy}, {"dim", Style::dim}, {"bold", Style::bold}}},
                 size_);
  EXPECT_EQ(screen().rows().at(0), "plaingoodbad");
  EXPECT_EQ(screen().styleAt(0, 0), "");
  EXPECT_EQ(screen().styleAt(0, 5), "1;32");
  EXPECT_EQ(screen().styleAt(0, 9), "1;31");
  EXPECT_EQ(screen().styleAt(1, 0), "1;33");
  EXPECT_EQ(screen().styleAt(1, 4), "2");
  EXPECT_EQ(screen().styleAt(1, 7), "1");
  terminal_.leave();
}

TEST_F(Screen, HasNoStyleWhereColoursAreNotWanted) {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): one thread.
  ASSERT_EQ(::setenv("NO_COLOR", "1", 1), 0);
  TerminalScreen plain(noKeys_, shown_.descriptor());
  // NOLINTNEXTLINE(concurrency-mt-unsafe): one thread.
  ASSERT_EQ(::unsetenv("NO_COLOR"), 0);
  plain.enter();
  plain.show({{{"good", Style::good}, {"bold", Style::bold}, {"dim", Style::dim}}}, size_);
  EXPECT_EQ(screen().rows().at(0), "goodbolddim");
  EXPECT_FALSE(screen().wasStyled());
  plain.leave();
}

TEST_F(Screen, TextBeyondAsciiIsShownAsItIs) {
  terminal_.enter();
  terminal_.show({{{"L\u00e4sare e\u0301 \u20ac"}}}, size_);
  EXPECT_TRUE(screen().shows("L\u00e4sare e\u0301 \u20ac\n")) << screen().text();
  terminal_.leave();
}

TEST_F(Screen, WhatADisturbedTerminalLostIsShownAgain) {
  terminal_.enter();
  terminal_.show({{{"first"}}, {{"second"}}}, size_);
  const std::size_t before = shown_.text().size();
  terminal_.show({{{"first"}}, {{"second"}}}, size_);
  EXPECT_EQ(shown_.text().size(), before);
  terminal_.forget();
  terminal_.show({{{"first"}}, {{"second"}}}, size_);
  const std::string again = shown_.text().substr(before);
  EXPECT_NE(again.find("first"), std::string::npos);
  EXPECT_NE(again.find("second"), std::string::npos);
  terminal_.leave();
}

TEST_F(Screen, NothingIsShownWhileItIsAside) {
  terminal_.enter();
  terminal_.stepAside();
  EXPECT_FALSE(screen().isSecondScreen());
  const std::size_t before = shown_.text().size();
  terminal_.show({{{"hidden"}}}, size_);
  EXPECT_EQ(shown_.text().size(), before);
  terminal_.comeBack();
  EXPECT_TRUE(screen().isSecondScreen());
  terminal_.show({{{"back"}}}, size_);
  EXPECT_TRUE(screen().shows("back\n"));
  terminal_.leave();
  EXPECT_FALSE(screen().isSecondScreen());
}

TEST_F(Screen, ASuspensionOnItsWayIsNotLostWhileItPaints) {
  sigset_t suspension{};
  sigset_t before{};
  sigemptyset(&suspension);
  sigaddset(&suspension, SIGTSTP);
  ASSERT_EQ(pthread_sigmask(SIG_BLOCK, &suspension, &before), 0);
  terminal_.enter();
  ASSERT_EQ(pthread_kill(pthread_self(), SIGTSTP), 0);
  terminal_.show({{{"painted"}}}, size_);
  terminal_.leave();
  sigset_t pending{};
  ASSERT_EQ(sigpending(&pending), 0);
  ASSERT_EQ(sigismember(&pending, SIGTSTP), 1);
  int taken = 0;
  EXPECT_EQ(sigwait(&suspension, &taken), 0);
  EXPECT_EQ(pthread_sigmask(SIG_SETMASK, &before, nullptr), 0);
  struct sigaction action {};
  ASSERT_EQ(sigaction(SIGTSTP, nullptr, &action), 0);
  EXPECT_EQ(action.sa_handler, SIG_DFL);
}

TEST(ScreenLog, KeepsTheLastLinesAndPassesAllOn) {
  class Counted final : public NSLogSink {
   public:
    void write(std::string_view /*line*/) noexcept override { ++lines; }
    std::size_t lines = 0;
  };
  const auto counted = std::make_shared<Counted>();
  ScreenLog log(counted);
  for (std::size_t i = 0; i < 250; ++i) log.write("line " + std::to_string(i));
  const auto lines = log.take();
  EXPECT_EQ(counted->lines, 250U);
  ASSERT_EQ(lines.size(), ScreenLog::kMostLines);
  EXPECT_EQ(lines.back(), "line 249");
  EXPECT_TRUE(log.take().empty());
}

}  // namespace
}  // namespace kestrin::app
