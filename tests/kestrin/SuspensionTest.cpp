// Commands whose process is suspended and goes on. Everything runs in virtual time, and the stop is
// a function of the test.
#include "tools/kestrin/radio/Suspension.h"

#include <KestrinBLESDK/platform/NSNotificationCenter.h>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <string>

#include "kestrin/Captured.h"
#include "kestrin/TestEnvironment.h"
#include "tools/kestrin/commands/Commands.h"

namespace kestrin::app {
namespace {

using simulated::ReaderFamily;
using std::chrono::milliseconds;
using std::chrono::seconds;

class Suspended : public testing::Test {
 protected:
  Suspended() {
    radio().addPeripheral("Speaker");
    reader_ = radio().addReader("KVR-1", ReaderFamily::standard);
  }
  [[nodiscard]] simulated::SimulatedRadio& radio() const { return environment_.radio(); }
  void at(Time time, std::function<void()> what) {
    environment_.loop().arm(time - now(), std::move(what));
  }
  void requestAt(Time time) {
    at(time, [&] { suspension_.request(); });
  }
  int monitor(double duration) {
    return runMonitor({.name = "KVR", .timeout = 30, .duration = duration}, environment_,
                      captured_.console);
  }
  [[nodiscard]] Time now() const { return environment_.loop().now(); }
  [[nodiscard]] std::string output() const { return captured_.output.text(); }
  [[nodiscard]] std::size_t count(const std::string& line) const {
    std::size_t lines = 0;
    const std::string text = "\n" + output();
    for (auto place = text.find("\n" + line + "\n"); place != std::string::npos;
         place = text.find("\n" + line + "\n", place + 1)) {
      ++lines;
    }
    return lines;
  }

  test::TestEnvironment environment_{CBManagerState::poweredOn};
  test::Captured captured_;
  std::shared_ptr<simulated::VirtualPeripheral> reader_;
  /// What happens while the process is stopped.
  std::function<void()> whileStopped_ = [] {};
  std::size_t stops_ = 0;
  Suspension suspension_{environment_, [this] {
                           ++stops_;
                           whileStopped_();
                         }};
};

TEST_F(Suspended, AMonitorHasNoLinkWhileItIsStoppedAndMakesItAgain) {
  bool linkedBefore = false;
  at(seconds(9), [&] { linkedBefore = reader_->connected(); });
  requestAt(seconds(10));
  bool linked = true;
  Time stoppedAt{};
  whileStopped_ = [&] {
    linked = reader_->connected();
    stoppedAt = now();
    captured_.console.line("STOPPED");
  };
  EXPECT_EQ(monitor(20), kSuccess);
  EXPECT_TRUE(linkedBefore);
  EXPECT_FALSE(linked);
  EXPECT_EQ(stops_, 1U);
  EXPECT_LT(stoppedAt, seconds(11));
  EXPECT_NE(output().find("PLUGGED\nUNPLUGGED\nUNPLUGGED\nSTOPPED\n"), std::string::npos)
      << output();
  EXPECT_EQ(count("PLUGGED"), 2U) << output();
  EXPECT_EQ(reader_->connectionAttempts(), 2U);
}

TEST_F(Suspended, TheNotificationThatApplicationsHearIsPosted) {
  struct Listener {
    int heard = 0;
  };
  const auto listener = std::make_shared<Listener>();
  static constexpr SEL kHear{"hear", [](void* target, const std::shared_ptr<void>&) noexcept {
                               ++static_cast<Listener*>(target)->heard;
                             }};
  environment_.platform().completed().notificationCenter->addObserver_selector_name_object(
      listener, kHear, UIApplicationDidEnterBackgroundNotification, nullptr);
  int heardWhenStopped = 0;
  whileStopped_ = [&] { heardWhenStopped = listener->heard; };
  requestAt(seconds(5));
  EXPECT_EQ(monitor(10), kSuccess);
  EXPECT_EQ(heardWhenStopped, 1);
  EXPECT_EQ(listener->heard, 1);
}

TEST_F(Suspended, AnAttemptToConnectIsGivenUpAndMadeAgain) {
  reader_->simulateConnectionNeverCompleting();
  requestAt(seconds(5));
  whileStopped_ = [&] { reader_->simulateConnectionNeverCompleting(false); };
  EXPECT_EQ(monitor(1), kSuccess);
  EXPECT_EQ(count("PLUGGED"), 1U) << output();
  EXPECT_EQ(reader_->connectionAttempts(), 2U);
}

TEST_F(Suspended, ASearchGoesOn) {
  requestAt(milliseconds(1));
  EXPECT_EQ(monitor(1), kSuccess);
  EXPECT_EQ(stops_, 1U);
  EXPECT_EQ(count("PLUGGED"), 1U) << output();
}

TEST_F(Suspended, TheTimeAwayCountsAgainstNoLimit) {
  reader_->simulateConnectionNeverCompleting();
  requestAt(seconds(5));
  whileStopped_ = [&] {
    environment_.loop().sleepFor(seconds(1000));
    reader_->simulateConnectionNeverCompleting(false);
  };
  EXPECT_EQ(monitor(1), kSuccess);
  EXPECT_EQ(count("PLUGGED"), 1U) << output();
  EXPECT_GT(now(), seconds(1000));
}

TEST_F(Suspended, ALinkThatDoesNotEndHoldsTheStopUpForThreeSecondsAtMost) {
  Time stoppedAt{};
  whileStopped_ = [&] { stoppedAt = now(); };
  class NeverDown final : public Background {
    void leave() override {}
    [[nodiscard]] bool isDown() const override { return false; }
    void comeBack() override {}
  } never;
  environment_.setBackground(&never);
  suspension_.request();
  environment_.loop().runFor(seconds(10));
  EXPECT_EQ(stops_, 1U);
  EXPECT_GE(stoppedAt, Suspension::kLongestTeardown);
  EXPECT_LT(stoppedAt, Suspension::kLongestTeardown + milliseconds(100));
  EXPECT_FALSE(environment_.leaving());
}

TEST_F(Suspended, ASecondWishStopsTheProcessAtOnceAndOnlyOnce) {
  bool linked = false;
  whileStopped_ = [&] { linked = reader_->connected(); };
  at(seconds(10), [&] {
    suspension_.request();
    suspension_.request();
  });
  EXPECT_EQ(monitor(20), kSuccess);
  EXPECT_TRUE(linked);
  EXPECT_EQ(stops_, 1U);
  EXPECT_EQ(count("PLUGGED"), 2U) << output();
}

TEST_F(Suspended, AProcessThatGoesOnBeforeItWasStoppedIsNotStopped) {
  at(seconds(10), [&] {
    suspension_.request();
    suspension_.continued();
  });
  EXPECT_EQ(monitor(20), kSuccess);
  EXPECT_EQ(stops_, 0U);
  EXPECT_EQ(count("PLUGGED"), 2U) << output();
}

TEST_F(Suspended, AnInterruptedMonitorDoesNotConnectAgain) {
  at(seconds(10), [&] {
    suspension_.request();
    environment_.interrupt();
  });
  EXPECT_EQ(monitor(20), kSuccess);
  EXPECT_FALSE(reader_->connected());
  EXPECT_EQ(reader_->connectionAttempts(), 1U);
}

TEST_F(Suspended, ASendThatListensIsStoppedAndThenTellsThatTheLinkIsGone) {
  SendRequest request;
  request.name = "KVR";
  request.duration = 60;
  ASSERT_TRUE(readFrames({"BB 00 03 00 01 B1 7E 65 97"}, request, captured_.console));
  requestAt(seconds(10));
  EXPECT_EQ(runSend(request, environment_, captured_.console), kFailure);
  EXPECT_EQ(stops_, 1U);
  EXPECT_EQ(captured_.errors.text(),
            "kestrin: KVR-1: the link was lost after the last frame was sent\n");
}

TEST_F(Suspended, AScanFindsReadersAgain) {
  requestAt(seconds(10));
  whileStopped_ = [&] { radio().addReader("KVR-late", ReaderFamily::standard); };
  EXPECT_EQ(runScan({20.0}, environment_, captured_.console), kSuccess);
  EXPECT_EQ(stops_, 1U);
  EXPECT_NE(output().find("KVR-late\t"), std::string::npos) << output();
}

}  // namespace
}  // namespace kestrin::app
