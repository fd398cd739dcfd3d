// The platform as one group, and the system's own.
#include "KestrinBLESDK/platform/Platform.h"

#include "RunLoopTest.h"
#include "support/RecordingLog.h"

namespace kestrin::test {
namespace {

struct StateListener final : CBCentralManagerDelegate {
  void centralManagerDidUpdateState(
      const std::shared_ptr<CBCentralManager>& central) noexcept override {
    states.push_back(central->state());
    reportedBy = central;
  }
  std::vector<CBManagerState> states;
  std::weak_ptr<CBCentralManager> reportedBy;
};

/// A radio that remembers what it was asked for and makes nothing.
struct NamedRadio final : Radio {
  std::shared_ptr<CBCentralManager> initWithDelegate_queue(
      std::weak_ptr<CBCentralManagerDelegate> delegate, std::shared_ptr<RunLoop> queue) override {
    ++made;
    lastDelegate = std::move(delegate);
    lastQueue = std::move(queue);
    return nullptr;
  }
  [[nodiscard]] std::string stateReason() const override { return "switched off by a test"; }
  int made = 0;
  std::weak_ptr<CBCentralManagerDelegate> lastDelegate;
  std::shared_ptr<RunLoop> lastQueue;
};

/// Puts the process back to having no radio.
class SystemPlatform : public RunLoopTest {
 protected:
  void TearDown() override { Platform::installRadio(nullptr); }
  const std::shared_ptr<StateListener> listener = std::make_shared<StateListener>();
  const std::vector<CBManagerState> unsupported = {CBManagerState::unsupported};
};

TEST_F(SystemPlatform, IsWhole) {
  const Platform system = Platform::systemDefault();
  EXPECT_NE(system.radio, nullptr);
  EXPECT_EQ(system.mainRunLoop.lock(), MainRunLoop::main());
  EXPECT_NE(system.thread, nullptr);
  EXPECT_EQ(system.notificationCenter, NSNotificationCenter::defaultCenter());
  EXPECT_NE(system.dispatch, nullptr);
  EXPECT_EQ(system.log, defaultLogSink());
}

TEST_F(SystemPlatform, ReportsUnsupportedOnceUntilARadioIsInstalled) {
  const auto central = Platform::systemDefault().radio->initWithDelegate_queue(listener, loop);
  EXPECT_EQ(central->state(), CBManagerState::unknown);
  EXPECT_TRUE(listener->states.empty());
  loop->run();
  EXPECT_EQ(central->state(), CBManagerState::unsupported);
  EXPECT_EQ(static_cast<int>(central->state()), 2);
  EXPECT_EQ(listener->states, unsupported);
  EXPECT_EQ(listener->reportedBy.lock(), central);
}

TEST_F(SystemPlatform, ReportsOnTheMainRunLoopWithoutAQueue) {
  const auto central = Platform::systemDefault().radio->initWithDelegate_queue(listener, nullptr);
  MainRunLoop::main()->runOneTurn();
  EXPECT_EQ(listener->states, unsupported);
}

TEST_F(SystemPlatform, IgnoresRequestsWithoutARadio) {
  const auto central = Platform::systemDefault().radio->initWithDelegate_queue(listener, loop);
  central->scanForPeripheralsWithServices_options(std::nullopt, std::nullopt);
  central->connectPeripheral_options(nullptr, std::nullopt);
  central->cancelPeripheralConnection(nullptr);
  central->stopScan();
  loop->run();
  EXPECT_EQ(listener->states, unsupported);
}

TEST_F(SystemPlatform, ReportsNothingFromACentralManagerThatWasDropped) {
  Platform::systemDefault().radio->initWithDelegate_queue(listener, loop).reset();
  loop->run();
  EXPECT_TRUE(listener->states.empty());
}

TEST_F(SystemPlatform, KeepsNoDelegate) {
  auto brief = std::make_shared<StateListener>();
  const std::weak_ptr<StateListener> alive = brief;
  const auto central = Platform::systemDefault().radio->initWithDelegate_queue(brief, loop);
  brief.reset();
  EXPECT_TRUE(alive.expired());
  loop->run();
  EXPECT_EQ(central->state(), CBManagerState::unsupported);
}

TEST_F(SystemPlatform, SaysWhatToDoWithoutARadio) {
  EXPECT_EQ(Platform::systemDefault().radio->stateReason(),
            "no radio is installed: call a radio library's install function, for example "
            "kestrin::bluez::install(), before the first scan");
}

TEST_F(SystemPlatform, UsesTheInstalledRadioFromThenOn) {
  const Platform before = Platform::systemDefault();
  const auto radio = std::make_shared<NamedRadio>();
  Platform::installRadio(radio);
  for (const Platform& platform : {before, Platform::systemDefault()}) {
    platform.radio->initWithDelegate_queue(listener, loop);
    EXPECT_EQ(platform.radio->stateReason(), "switched off by a test");
  }
  EXPECT_EQ(radio->made, 2);
  EXPECT_EQ(radio->lastDelegate.lock(), listener);
  EXPECT_EQ(radio->lastQueue, loop);
}

TEST_F(SystemPlatform, LeavesEarlierCentralManagersTheirRadio) {
  const auto central = Platform::systemDefault().radio->initWithDelegate_queue(listener, loop);
  const auto radio = std::make_shared<NamedRadio>();
  Platform::installRadio(radio);
  loop->run();
  EXPECT_EQ(listener->states, unsupported);
  EXPECT_EQ(radio->made, 0);
}

TEST_F(SystemPlatform, UsesTheRadioInstalledLast) {
  const auto first = std::make_shared<NamedRadio>();
  const auto second = std::make_shared<NamedRadio>();
  Platform::installRadio(first);
  Platform::installRadio(second);
  Platform::systemDefault().radio->initWithDelegate_queue(listener, loop);
  EXPECT_EQ(first->made, 0);
  EXPECT_EQ(second->made, 1);
}

TEST(CompletedPlatform, TakesEveryEmptyMemberFromTheSystem) {
  const Platform whole = Platform{}.completed();
  const Platform system = Platform::systemDefault();
  EXPECT_EQ(whole.radio, system.radio);
  EXPECT_EQ(whole.mainRunLoop.lock(), MainRunLoop::main());
  EXPECT_NE(whole.thread, nullptr);
  EXPECT_EQ(whole.notificationCenter, NSNotificationCenter::defaultCenter());
  EXPECT_EQ(whole.dispatch, Dispatch::system());
  EXPECT_EQ(whole.log, defaultLogSink());
}

TEST(CompletedPlatform, KeepsEveryMemberThatIsGiven) {
  const auto loop = std::make_shared<MainRunLoop>(std::make_shared<simulated::VirtualClock>());
  Platform given;
  given.radio = std::make_shared<NamedRadio>();
  given.mainRunLoop = loop;
  given.thread = sleepOn(loop);
  given.notificationCenter = std::make_shared<NSNotificationCenter>();
  given.dispatch = std::make_shared<Dispatch>();
  given.log = std::make_shared<RecordingLog>();
  const Platform whole = given.completed();
  EXPECT_EQ(whole.radio, given.radio);
  EXPECT_EQ(whole.mainRunLoop.lock(), loop);
  EXPECT_EQ(whole.thread, given.thread);
  EXPECT_EQ(whole.notificationCenter, given.notificationCenter);
  EXPECT_EQ(whole.dispatch, given.dispatch);
  EXPECT_EQ(whole.log, given.log);
}

TEST(CompletedPlatform, DoesNotReplaceALoopThatIsGone) {
  auto loop = std::make_shared<MainRunLoop>(std::make_shared<simulated::VirtualClock>());
  Platform given;
  given.mainRunLoop = loop;
  loop.reset();
  EXPECT_EQ(given.completed().mainRunLoop.lock(), nullptr);
}

TEST(CompletedPlatform, KeepsNoLoopAlive) {
  auto loop = std::make_shared<MainRunLoop>(std::make_shared<simulated::VirtualClock>());
  const std::weak_ptr<MainRunLoop> alive = loop;
  Platform given;
  given.mainRunLoop = loop;
  const Platform whole = given.completed();
  loop.reset();
  EXPECT_TRUE(alive.expired());
}

}  // namespace
}  // namespace kestrin::test
