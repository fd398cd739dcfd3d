// The machine's sleep, with a login service that the test plays on a bus of its own. The limits
// follow a clock that only the test moves on.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "BusLibrary.h"
#include "BusSleepWatch.h"
#include "KestrinBLESDK/platform/MainRunLoop.h"
#include "radios/bluez/BluezRadioTest.h"
#include "radios/bluez/ServiceLibrary.h"

namespace kestrin::bluez::test {
namespace {

constexpr char kLogin[] = "org.freedesktop.login1";
constexpr char kLoginManager[] = "org.freedesktop.login1.Manager";

/// A login service that grants delay locks and knows which are held.
class StandInLogin {
 public:
  explicit StandInLogin(const std::string& address, std::uint64_t longestDelay = 5'000'000)
      : connection_(sdbus::createSessionBusConnectionWithAddress(address)),
        object_(publishObject(
            *connection_, "/org/freedesktop/login1",
            {{.name = kLoginManager,
              .methods = {{"Inhibit", "ssss", "h",
                           [this](const sdbus::MethodCall& call) { inhibit(call); }}},
              .properties = {
                  {"InhibitDelayMaxUSec", "t",
                   [longestDelay](sdbus::PropertyGetReply& reply) { reply << longestDelay; }}}}})) {
    takeName(*connection_, kLogin);
    runner_ = std::thread([this] {
      try {
        connection_->enterEventLoop();
      } catch (const sdbus::Error&) {
        // The bus has gone; the test knows.
      }
    });
  }
  ~StandInLogin() {
    connection_->leaveEventLoop();
    runner_.join();
    for (const int descriptor : locks_) ::close(descriptor);
  }
  StandInLogin(const StandInLogin&) = delete;
  StandInLogin& operator=(const StandInLogin&) = delete;

  void announce(bool sleep) {
    object_->emitSignal("PrepareForSleep").onInterface(kLoginManager).withArguments(sleep);
  }
  [[nodiscard]] std::size_t locksTaken() {
    const std::scoped_lock guard(mutex_);
    return locks_.size();
  }
  [[nodiscard]] std::size_t locksHeld() {
    const std::scoped_lock guard(mutex_);
    std::size_t held = 0;
    for (const int descriptor : locks_) {
      pollfd end{descriptor, POLLIN, 0};
      ::poll(&end, 1, 0);
      if ((end.revents & POLLHUP) == 0) ++held;
    }
    return held;
  }
  [[nodiscard]] std::string lastRequest() {
    const std::scoped_lock guard(mutex_);
    return request_;
  }

 private:
  void inhibit(sdbus::MethodCall call) {
    std::string what;
    std::string who;
    std::string why;
    std::string mode;
    call >> what >> who >> why >> mode;
    auto reply = call.createReply();
    reply << lock(what + "|" + who + "|" + why + "|" + mode);
    reply.send();
  }
  sdbus::UnixFd lock(std::string request) {
    const std::scoped_lock guard(mutex_);
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) throw makeError("no.descriptors", "none left");
    request_ = std::move(request);
    locks_.push_back(ends[0]);
    return {ends[1], sdbus::adopt_fd};
  }

  std::mutex mutex_;
  std::vector<int> locks_;
  std::string request_;
  std::unique_ptr<sdbus::IConnection> connection_;
  std::unique_ptr<sdbus::IObject> object_;
  std::thread runner_;
};

class Lines final : public NSLogSink {
 public:
  void write(std::string_view line) noexcept override {
    const std::scoped_lock guard(mutex_);
    lines_.emplace_back(line);
  }
  [[nodiscard]] std::vector<std::string> all() {
    const std::scoped_lock guard(mutex_);
    return lines_;
  }

 private:
  std::mutex mutex_;
  std::vector<std::string> lines_;
};

class Sleep : public testing::Test {
 protected:
  Sleep() {
    platform_.mainRunLoop = loop_;
    platform_.log = lines_;
    platform_.notificationCenter = std::make_shared<NSNotificationCenter>();
    static constexpr SEL kHear{"hear", [](void* target, const std::shared_ptr<void>&) noexcept {
                                 static_cast<Sleep*>(target)->happened_ += "notified ";
                               }};
    platform_.notificationCenter->addObserver_selector_name_object(
        self_, kHear, UIApplicationDidEnterBackgroundNotification, nullptr);
  }

  void startLogin(std::uint64_t longestDelay = 5'000'000) {
    login_ = std::make_unique<StandInLogin>(bus_.address(), longestDelay);
  }
  /// Watches, and waits for the first lock if there is somebody to give it.
  void watch(bool withIsDown = true) {
    SleepOptions options;
    options.busAddress = bus_.address();
    options.beforeSleep = [this] { happened_ += "before "; };
    if (withIsDown) options.isDown = [this] { return isDown_; };
    options.afterWake = [this] { happened_ += "awake "; };
    watch_ = std::make_unique<BusSleepWatch>(platform_, std::move(options), clock_);
    // What the service says from now on comes behind its answers.
    if (login_) {
      ASSERT_TRUE(turnUntil([this] { return login_->locksHeld() == 1; }));
    }
  }
  /// Turns the main run loop until `done`; the clock stands still unless `pass` is given.
  bool turnUntil(const std::function<bool()>& done, Time pass = Time::zero()) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    while (!done()) {
      if (std::chrono::steady_clock::now() > end) return false;
      clock_->sleepFor(pass);
      if (!loop_->runOneTurn()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
  }
  bool hasHappened(const std::string& what) {
    return turnUntil([&] { return happened_ == what; });
  }
  bool noLockIsHeld(Time pass = Time::zero()) {
    return turnUntil([this] { return login_->locksHeld() == 0; }, pass);
  }

  const std::shared_ptr<HandClock> clock_ = std::make_shared<HandClock>();
  const std::shared_ptr<MainRunLoop> loop_ = std::make_shared<MainRunLoop>(clock_);
  const std::shared_ptr<Lines> lines_ = std::make_shared<Lines>();
  const std::shared_ptr<void> self_{static_cast<void*>(this), [](void*) {}};
  Platform platform_;
  std::string happened_;
  bool isDown_ = false;
  PrivateBus bus_;
  std::unique_ptr<StandInLogin> login_;
  std::unique_ptr<BusSleepWatch> watch_;
};

TEST_F(Sleep, IsDelayedUntilEverythingIsDownAndALockIsTakenAnewAfterIt) {
  startLogin();
  watch();
  EXPECT_EQ(login_->lastRequest(), "sleep|KestrinBLESDK|Links to readers are closed first|delay");
  for (std::size_t round = 1; round <= 2; ++round) {
    happened_.clear();
    isDown_ = false;
    login_->announce(true);
    ASSERT_TRUE(hasHappened("before notified "));
    clock_->sleepFor(2s);
    while (loop_->runOneTurn()) clock_->sleepFor(1ms);
    EXPECT_EQ(login_->locksHeld(), 1U);
    isDown_ = true;
    ASSERT_TRUE(noLockIsHeld(10ms));
    login_->announce(false);
    ASSERT_TRUE(hasHappened("before notified awake "));
    ASSERT_TRUE(turnUntil([&] { return login_->locksTaken() == round + 1; }));
    ASSERT_TRUE(turnUntil([&] { return login_->locksHeld() == 1; }));
  }
  EXPECT_TRUE(lines_->all().empty());
}

TEST_F(Sleep, WhatTheRadioWasAskedLastHasAMomentToLeave) {
  startLogin();
  watch();
  isDown_ = true;
  login_->announce(true);
  ASSERT_TRUE(hasHappened("before notified "));
  clock_->sleepFor(100ms);
  loop_->runOneTurn();
  EXPECT_EQ(login_->locksHeld(), 1U);
  EXPECT_TRUE(noLockIsHeld(10ms));
}

TEST_F(Sleep, WithoutAWordOnWhatIsDownIsDelayedForASecond) {
  startLogin();
  watch(false);
  login_->announce(true);
  ASSERT_TRUE(hasHappened("before notified "));
  clock_->sleepFor(990ms);
  loop_->runOneTurn();
  EXPECT_EQ(login_->locksHeld(), 1U);
  EXPECT_TRUE(noLockIsHeld(10ms));
}

/// The thread looks at its clock again whenever it hears something.
void pokeWatch(StandInLogin& login) { login.announce(true); }

TEST_F(Sleep, IsNotHeldUpByAMainLoopThatIsStuck) {
  startLogin();
  watch();
  login_->announce(true);
  ASSERT_TRUE(hasHappened("before notified "));
  clock_->sleepFor(SleepCore::kLongestDelay - 10ms);
  pokeWatch(*login_);
  EXPECT_EQ(login_->locksHeld(), 1U);
  clock_->sleepFor(10ms);
  // The main run loop is not turned any more.
  const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
  while (login_->locksHeld() == 1 && std::chrono::steady_clock::now() < end) {
    pokeWatch(*login_);
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  EXPECT_EQ(login_->locksHeld(), 0U);
  EXPECT_EQ(happened_, "before notified ") << "a sleep that is announced twice is one";
}

TEST_F(Sleep, IsNotHeldUpLongerThanTheServiceGrants) {
  startLogin(1'000'000);
  watch();
  login_->announce(true);
  ASSERT_TRUE(hasHappened("before notified "));
  clock_->sleepFor(800ms);
  EXPECT_TRUE(turnUntil([this] {
    pokeWatch(*login_);
    return login_->locksHeld() == 0;
  }));
  EXPECT_LT(clock_->now(), Time(1s));
}

TEST_F(Sleep, AWakeUpThatNoSleepCameBeforeIsNothing) {
  startLogin();
  watch();
  login_->announce(false);
  login_->announce(true);
  ASSERT_TRUE(hasHappened("before notified "));
  EXPECT_EQ(login_->locksTaken(), 1U);
}

TEST_F(Sleep, AServiceThatGoesInItTakesItBackAndItsSuccessorGivesALock) {
  startLogin();
  watch();
  login_->announce(true);
  ASSERT_TRUE(hasHappened("before notified "));
  login_.reset();
  ASSERT_TRUE(hasHappened("before notified awake "));
  startLogin();
  EXPECT_TRUE(turnUntil([this] { return login_->locksHeld() == 1; }));
  EXPECT_TRUE(lines_->all().empty());
}

TEST_F(Sleep, WithoutALoginServiceIsNotWatchedWhichIsToldOnce) {
  watch();
  ASSERT_TRUE(turnUntil([this] { return !lines_->all().empty(); }));
  startLogin();
  EXPECT_TRUE(turnUntil([this] { return login_->locksHeld() == 1; })) << "one that comes later";
  login_.reset();
  EXPECT_EQ(lines_->all(),
            std::vector<std::string>{
                "the machine's sleep is not watched: no login service (logind) is there"});
  EXPECT_EQ(happened_, "");
}

TEST_F(Sleep, WithoutAMessageBusIsNotWatchedWhichIsToldOnce) {
  bus_.kill();
  watch();
  ASSERT_TRUE(turnUntil([this] { return !lines_->all().empty(); }));
  watch_.reset();
  ASSERT_EQ(lines_->all().size(), 1U);
  EXPECT_EQ(lines_->all().front().find("the machine's sleep is not watched: no message bus: "), 0U);
}

TEST_F(Sleep, TheEndOfTheBusIsToldAndTakesASleepBack) {
  startLogin();
  watch();
  login_->announce(true);
  ASSERT_TRUE(hasHappened("before notified "));
  bus_.kill();
  ASSERT_TRUE(hasHappened("before notified awake "));
  ASSERT_TRUE(turnUntil([this] { return !lines_->all().empty(); }));
  EXPECT_EQ(lines_->all(),
            std::vector<std::string>{"the machine's sleep is not watched: the connection to the "
                                     "message bus was lost"});
}

TEST_F(Sleep, AfterTheDropNothingIsCalledAndNoLockIsHeld) {
  startLogin();
  watch();
  login_->announce(true);
  ASSERT_TRUE(hasHappened("before notified "));
  watch_.reset();
  ASSERT_TRUE(noLockIsHeld());
  login_->announce(false);
  isDown_ = true;
  for (int i = 0; i < 100; ++i) {
    clock_->sleepFor(100ms);
    loop_->runOneTurn();
  }
  EXPECT_EQ(happened_, "before notified ");
}

#ifdef KESTRIN_PROGRAM
/// `kestrin scan` on the bus, ended with the object.
class RunningScan {
 public:
  explicit RunningScan(const std::string& bus) {
    std::array<std::string, 2> arguments{KESTRIN_PROGRAM, "scan"};
    std::array<char*, 3> pointers{arguments[0].data(), arguments[1].data(), nullptr};
    std::string variable = "DBUS_SYSTEM_BUS_ADDRESS=" + bus;
    std::array<char*, 2> environment{variable.data(), nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    for (const int descriptor : {STDOUT_FILENO, STDERR_FILENO}) {
      posix_spawn_file_actions_addopen(&actions, descriptor, "/dev/null", O_WRONLY, 0);
    }
    EXPECT_EQ(
        ::posix_spawn(&child_, pointers[0], &actions, nullptr, pointers.data(), environment.data()),
        0);
    posix_spawn_file_actions_destroy(&actions);
  }
  ~RunningScan() {
    ::kill(child_, SIGTERM);
    int status = -1;
    ::waitpid(child_, &status, 0);
    EXPECT_EQ(status, 0);
  }
  RunningScan(const RunningScan&) = delete;
  RunningScan& operator=(const RunningScan&) = delete;

 private:
  pid_t child_ = -1;
};

TEST_F(Sleep, OfAMachineOnWhichKestrinScansEndsTheScanAndTheWakeUpBeginsItAnew) {
  startLogin();
  const StandInDaemon daemon(bus_.address());
  const RunningScan scan(bus_.address());
  ASSERT_TRUE(turnUntil([&] { return login_->locksHeld() == 1; }));
  ASSERT_TRUE(turnUntil([&] { return daemon.count("StartDiscovery") == 1; }));
  login_->announce(true);
  ASSERT_TRUE(turnUntil([&] { return daemon.count("StopDiscovery") == 1; }));
  ASSERT_TRUE(noLockIsHeld());
  EXPECT_EQ(daemon.count("StartDiscovery"), 1U);
  login_->announce(false);
  EXPECT_TRUE(turnUntil([&] { return daemon.count("StartDiscovery") == 2; }));
  EXPECT_TRUE(turnUntil([&] { return login_->locksHeld() == 1; }));
}
#endif

}  // namespace
}  // namespace kestrin::bluez::test
