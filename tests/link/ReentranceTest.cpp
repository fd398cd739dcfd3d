// Delegates that turn on the manager: whatever a callback or a log sink does, the manager goes on
// or ends cleanly. Run under AddressSanitizer, which sees what is used after it has gone.
#include <algorithm>
#include <functional>
#include <utility>

#include "link/LinkTest.h"

namespace kestrin::test {
namespace {

const NSData kTwoFrames{0xBB, 0x01, 0x03, 0x00, 0x01, 0xB1, 0x7E, 0x20, 0x37,
                        0xBB, 0x01, 0x03, 0x00, 0x01, 0xB1, 0x7E, 0x20, 0x37};

/// What a callback does. Each acts on a fixture's members, which may be null by then.
struct Action {
  std::string name;
  std::function<void()> act;
};

class Reentrance : public LinkTest {
 public:
  std::vector<Action> actions() {
    return {
        {"drops the manager", [this] { manager.reset(); }},
        {"drops the delegate", [this] { delegate.reset(); }},
        {"drops the receiver", [this] { receiver.reset(); }},
        {"drops everything",
         [this] {
           delegate.reset();
           receiver.reset();
           manager.reset();
         }},
        {"calls close", [this] { ifThere(&KestrinBleMgr::close); }},
        {"calls scanBLE", [this] { ifThere(&KestrinBleMgr::scanBLE); }},
        {"calls stopSacnBLE", [this] { ifThere(&KestrinBleMgr::stopSacnBLE); }},
        {"connects to another reader",
         [this] {
           if (manager) manager->connectBLE(another);
         }},
        {"connects to none",
         [this] {
           if (manager) manager->connectBLE(nullptr);
         }},
        {"sends",
         [this] {
           if (manager) manager->send(kFrame);
         }},
        {"feeds bytes",
         [this] {
           if (manager) manager->readData(kFrame);
         }},
        {"unsets the delegates",
         [this] {
           if (!manager) return;
           manager->setDelegate(nullptr);
           manager->setRcpReceiverDelegate(nullptr);
         }},
        {"enters the background", [this] { platform.enterBackground(); }},
    };
  }

 protected:
  template <class Operation>
  void ifThere(Operation operation) {
    if (manager) (manager.get()->*operation)();
  }

  /// A life of the manager in which every callback and every log line comes at least once. Each
  /// step asks whether the manager is still there.
  void live(const Reader& reader) {
    const std::weak_ptr<KestrinBleMgr> alive = manager;
    const Reader kvr = kvrReader();
    const auto step = [&](const std::function<void()>& work) {
      if (!alive.expired()) work();
    };
    const auto call = [&](const std::function<void(KestrinBleMgr&)>& work) {
      if (manager) work(*manager);
    };
    call([](auto& m) { m.scanBLE(); });
    step([&] { platform.didUpdateState(5); });
    step([&] { platform.didDiscover(reader.peripheral); });
    call([](auto& m) { m.stopSacnBLE(); });
    for (const Reader& each : {reader, kvr}) {
      call([&](auto& m) { m.connectBLE(each.peripheral); });
      step([&] { platform.didConnect(each.peripheral); });
      platform.didDiscoverServices(each.peripheral, {each.service});
      platform.failToDiscoverServices(each.peripheral, kError);
      platform.didDiscoverCharacteristics(each.peripheral, each.service,
                                          {characteristicOf("2A27"), each.rx, each.tx});
      platform.failToDiscoverCharacteristics(each.peripheral, each.service, kError);
      platform.didUpdateNotificationState(each.peripheral, each.rx, kError);
      platform.run(2.0);
      platform.didUpdateValue(each.peripheral, each.rx, kTwoFrames);
      platform.didUpdateValue(each.peripheral, each.rx, kFrame, kError);
      platform.didUpdateValue(each.peripheral, characteristicOf("2A29"), kFrame);
      call([](auto& m) { m.send(NSData(std::vector<std::uint8_t>(45, 0x11))); });
      call([](auto& m) { m.writeRawData(kFrame); });
      call([](auto& m) { m.close(); });
      step([&] { platform.didDisconnect(each.peripheral); });
      platform.enterBackground();
      platform.runOneTurn();
    }
    platform.run(5.0);
  }

  /// Whether a manager that is still there still works; whether one that was dropped is gone.
  void expectCleanEnd(const std::weak_ptr<KestrinBleMgr>& alive, const std::string& what) {
    platform.onLog = nullptr;
    if (!manager) {
      EXPECT_TRUE(alive.expired()) << what;
      return;
    }
    if (delegate) delegate->onScanBleStatus = nullptr;
    platform.take();
    EXPECT_TRUE(manager->scanBLE()) << what;
    EXPECT_NE(platform.take().find("scanForPeripherals"), std::string::npos) << what;
  }

  const std::shared_ptr<RecordingPeripheral> another = platform.peripheral("KVR-Q62T another");
};

/// Runs one action the nth time that one callback comes.
class CallbackRun : public Reentrance {
 public:
  void TestBody() override {}

  /// Returns false when the callback does not come that often.
  bool run(std::size_t callback, std::size_t occurrence, std::size_t action) {
    useManagerWithMemoryOfItsOwn();
    std::function<void()>* const callbacks[] = {
        &delegate->onScanBleStatus, &delegate->onScanningBleDeive, &receiver->onPlugChangedStatus,
        &receiver->onDispatchRcpFrmReader};
    const Action chosen = actions().at(action);
    std::size_t seen = 0;
    *callbacks[callback] = [&] {
      if (seen++ == occurrence) chosen.act();
    };
    const std::weak_ptr<KestrinBleMgr> alive = manager;
    live(standardReader());
    const bool acted = seen > occurrence;
    expectCleanEnd(alive, chosen.name + " the time after " + std::to_string(occurrence));
    return acted;
  }
};

/// Each callback, with how often at least a life brings it.
class InsideACallback : public ::testing::TestWithParam<std::pair<std::size_t, std::size_t>> {};

TEST_P(InsideACallback, AnythingMayBeDone) {
  const auto [callback, atLeast] = GetParam();
  for (std::size_t action = 0; action < CallbackRun().actions().size(); ++action) {
    std::size_t occurrence = 0;
    while (CallbackRun().run(callback, occurrence, action)) ++occurrence;
    EXPECT_GE(occurrence, atLeast);
  }
}

INSTANTIATE_TEST_SUITE_P(EveryCallback, InsideACallback,
                         ::testing::Values(std::pair<std::size_t, std::size_t>{0, 2},
                                           std::pair<std::size_t, std::size_t>{1, 1},
                                           std::pair<std::size_t, std::size_t>{2, 8},
                                           std::pair<std::size_t, std::size_t>{3, 3}));

/// Runs one action at one line of the log.
class LogRun : public Reentrance {
 public:
  void TestBody() override {}

  /// Returns false when the life has fewer lines.
  bool run(std::size_t line, std::size_t action) {
    useManagerWithMemoryOfItsOwn();
    const Action chosen = actions().at(action);
    std::size_t seen = 0;
    platform.onLog = [&](const std::string&) {
      if (seen++ == line) chosen.act();
    };
    const std::weak_ptr<KestrinBleMgr> alive = manager;
    live(standardReader());
    const bool acted = seen > line;
    expectCleanEnd(alive, chosen.name + " at line " + std::to_string(line));
    return acted;
  }
};

TEST(InsideALogLine, AnythingMayBeDone) {
  std::size_t lines = 0;
  for (std::size_t action = 0; action < CallbackRun().actions().size(); ++action) {
    std::size_t line = 0;
    while (LogRun().run(line, action)) ++line;
    lines = std::max(lines, line);
  }
  EXPECT_GT(lines, 30U);
}

}  // namespace
}  // namespace kestrin::test
