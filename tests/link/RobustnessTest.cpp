// Unusual turns that the manager's life may take: delegates and log sinks that drop things, several
// managers, a run loop that ends.
#include <functional>
#include <memory>
#include <string_view>

#include "link/LinkTest.h"

namespace kestrin::test {
namespace {

class Robustness : public LinkTest {};

TEST_F(Robustness, ARecursiveScanFromItsOwnCallbackEndsWithTheOuterOne) {
  int depth = 0;
  delegate->onScanBleStatus = [&] {
    if (++depth == 1) manager->scanBLE();
  };
  EXPECT_TRUE(manager->scanBLE());
  EXPECT_EQ(platform.take(), R"(
delegate scanBleStatus 0
delegate scanBleStatus 0
central#1 initWithDelegate manager#1 queue (absent)
central#1 scanForPeripheralsWithServices (absent) options (absent)
central#1 stopScan
central#2 initWithDelegate manager#1 queue (absent)
central#1 released
central#2 scanForPeripheralsWithServices (absent) options (absent)
)");
}

TEST_F(Robustness, ConnectingInsideTheDiscoveryCallbackStopsTheScanAtOnce) {
  const auto reader = platform.peripheral("TQM_HOLV-1");
  scan();
  platform.take();
  delegate->onScanningBleDeive = [&] { manager->connectBLE(reader); };
  platform.didDiscover(reader);
  EXPECT_EQ(platform.take(), R"(
* central#1 didDiscoverPeripheral "TQM_HOLV-1"
log "DiscoverPeripheral  TQM_HOLV-1"
delegate scanningBleDeive "TQM_HOLV-1"
central#1 stopScan
peripheral "TQM_HOLV-1" setDelegate manager#1
central#1 connectPeripheral "TQM_HOLV-1" options (absent)
)");
}

TEST_F(Robustness, SendingInsideThePluggedReportGoesOut) {
  plugIn(standardReader());
  receiver->onPlugChangedStatus = [&] { EXPECT_TRUE(manager->send(NSData{0xAA})); };
  Peer::p_pluggedEvent(*manager);
  EXPECT_EQ(platform.take(), R"(
receiver plugChangedStatus true
peripheral "TQM_HOLV-1" writeValue <aa> to BA821001-3B5B-4654-85FE-E998B123ADEA type 0
log "[TX BLE] <aa>"
)");
}

TEST_F(Robustness, AReceiverThatDropsItselfIsToldNoMore) {
  plugIn(standardReader());
  receiver->onPlugChangedStatus = [&] { receiver.reset(); };
  manager->close();
  manager->close();
  EXPECT_EQ(platform.transcript().takeThoseThatBegin("receiver"), R"(
receiver plugChangedStatus false
receiver gone
)");
}

TEST_F(Robustness, ADelegateThatDropsItselfIsToldNoMoreOfTheSameScan) {
  delegate->onScanBleStatus = [&] { delegate.reset(); };
  manager->scanBLE();
  platform.didDiscover(platform.peripheral("TQM_HOLV-1"));
  EXPECT_EQ(platform.transcript().takeThoseThatBegin("delegate"), R"(
delegate scanBleStatus 0
delegate gone
)");
}

TEST_F(Robustness, AManagerThatIsDroppedInItsScanCallbackStillScansAndThenEnds) {
  delegate->onScanBleStatus = [&] { manager.reset(); };
  const std::weak_ptr<KestrinBleMgr> alive = manager;
  manager->scanBLE();
  EXPECT_TRUE(alive.expired());
  EXPECT_EQ(platform.take(), R"(
delegate scanBleStatus 0
central#1 initWithDelegate manager#1 queue (absent)
central#1 scanForPeripheralsWithServices (absent) options (absent)
central#1 released
)");
}

TEST_F(Robustness, ADroppedManagerHearsNothingMore) {
  const Reader reader = standardReader();
  plugIn(reader);
  const auto central = platform.central();
  manager.reset();
  platform.take();
  platform.didConnect(reader.peripheral);
  platform.didUpdateValue(reader.peripheral, reader.rx, kFrame);
  EXPECT_EQ(platform.take(), R"(
* central#1 didConnectPeripheral "TQM_HOLV-1" to nobody
* "TQM_HOLV-1" didUpdateValueForCharacteristic BA821002-3B5B-4654-85FE-E998B123ADEA <bb010300 01b17e20 37> to nobody
)");
}

TEST_F(Robustness, TwoManagersOnOnePlatformDoNotDisturbEachOther) {
  const auto second = platform.makeManager();
  const auto secondDelegate = std::make_shared<RecordingDelegate>(platform, "second delegate");
  second->setDelegate(secondDelegate);
  const Reader reader = standardReader();
  plugIn(reader);
  second->scanBLE();
  platform.didUpdateState(5);
  platform.didDiscover(reader.peripheral);
  EXPECT_EQ(platform.take(), R"(
second delegate scanBleStatus 0
central#2 initWithDelegate manager#2 queue (absent)
central#2 scanForPeripheralsWithServices (absent) options (absent)
* central#2 didUpdateState 5
log " CBManager is powered on"
log "start San"
central#2 scanForPeripheralsWithServices (absent) options (absent)
* central#2 didDiscoverPeripheral "TQM_HOLV-1"
log "DiscoverPeripheral  TQM_HOLV-1"
second delegate scanningBleDeive "TQM_HOLV-1"
)");
  EXPECT_TRUE(manager->open());
  EXPECT_FALSE(second->open());
  EXPECT_EQ(second->pripheral(), manager->pripheral());
  second->connectBLE(reader.peripheral);
  EXPECT_EQ(reader.peripheral->delegate(), Peer::asPeripheralDelegate(second));
}

TEST_F(Robustness, WithoutItsRunLoopAManagerArmsNothingAndAnswersEverything) {
  const Reader reader = standardReader();
  connect(reader.peripheral);
  platform.didDiscoverServices(reader.peripheral, {reader.service});
  reader.service->shownCharacteristics = {reader.rx, reader.tx};
  platform.dropRunLoop();
  platform.take();
  Peer::peripheral_didDiscoverCharacteristicsForService_error(*manager, reader.peripheral,
                                                              reader.service, std::nullopt);
  platform.enterBackground();
  EXPECT_TRUE(manager->open());
  EXPECT_TRUE(manager->send(NSData(std::vector<std::uint8_t>(20, 0x11))));
  manager->close();
  EXPECT_TRUE(manager->scanBLE());
  EXPECT_EQ(platform.take(), R"(
log "Found RX characteristic"
peripheral "TQM_HOLV-1" setNotifyValue true for BA821002-3B5B-4654-85FE-E998B123ADEA
log "Found TX characteristic"
log "Found TX - didDiscoverCharacteristicsForService"
* post UIApplicationDidEnterBackgroundNotification
peripheral "TQM_HOLV-1" writeValue <11111111 11111111 11111111 11111111 11111111> to BA821001-3B5B-4654-85FE-E998B123ADEA type 0
log "[TX BLE] <11111111 11111111 11111111 11111111 11111111>"
sleep 0.05
peripheral "TQM_HOLV-1" writeValue <> to BA821001-3B5B-4654-85FE-E998B123ADEA type 0
log "[TX BLE] <>"
central#1 cancelPeripheralConnection "TQM_HOLV-1"
central#1 stopScan
receiver plugChangedStatus false
delegate scanBleStatus 0
central#1 cancelPeripheralConnection "TQM_HOLV-1"
central#1 stopScan
central#2 initWithDelegate manager#1 queue (absent)
central#1 released
central#2 scanForPeripheralsWithServices (absent) options (absent)
)");
}

TEST_F(Robustness, ARunLoopThatEndsLetsGoOfTheManagersThatItsRequestsKept) {
  linkUp(standardReader());
  const std::weak_ptr<KestrinBleMgr> pending = manager;
  manager.reset();
  EXPECT_FALSE(pending.expired());
  platform.dropRunLoop();
  EXPECT_TRUE(pending.expired());
}

TEST_F(Robustness, TheConnectionQueryOutlivesALogSinkThatDropsTheManager) {
  useManagerWithMemoryOfItsOwn();
  connect(platform.peripheral("TQM_HOLV-1"));
  const std::weak_ptr<KestrinBleMgr> alive = manager;
  platform.onLog = [&](const std::string&) { manager.reset(); };
  EXPECT_TRUE(Peer::p_isConnectedBLE(*manager));
  EXPECT_TRUE(alive.expired());
}

/// A log sink that nobody but its manager keeps, and that drops the manager at the first line.
class DroppingSink final : public NSLogSink, public std::enable_shared_from_this<DroppingSink> {
 public:
  DroppingSink(std::shared_ptr<KestrinBleMgr>& manager, bool& outlivedTheLine)
      : manager_(manager), outlivedTheLine_(outlivedTheLine) {}
  void write(std::string_view /*line*/) noexcept override {
    // Copies: this object must not be looked at if it has gone.
    const std::weak_ptr<DroppingSink> self = weak_from_this();
    bool& outlived = outlivedTheLine_;
    manager_.reset();
    outlived = !self.expired();
  }

 private:
  std::shared_ptr<KestrinBleMgr>& manager_;
  bool& outlivedTheLine_;
};

TEST_F(Robustness, ASinkThatOnlyItsManagerKeepsOutlivesTheLineThatDropsTheManager) {
  const std::function<void(KestrinBleMgr&)> operations[] = {
      [](KestrinBleMgr& m) { EXPECT_FALSE(m.writeRawData(kFrame)); },
      [](KestrinBleMgr& m) { EXPECT_FALSE(m.send(kFrame)); },
      [](KestrinBleMgr& m) { EXPECT_EQ(m.readData(kFrame), 0); },
      [](KestrinBleMgr& m) { EXPECT_FALSE(Peer::p_isConnectedBLE(m)); },
  };
  for (const auto& operation : operations) {
    bool outlivedTheLine = false;
    std::shared_ptr<KestrinBleMgr> dropped;
    Platform noLogOfItsOwn = platform.platform();
    noLogOfItsOwn.log = std::make_shared<DroppingSink>(dropped, outlivedTheLine);
    dropped = KestrinBleMgr::init(noLogOfItsOwn);
    noLogOfItsOwn.log.reset();
    operation(*dropped);
    EXPECT_EQ(dropped, nullptr);
    EXPECT_TRUE(outlivedTheLine);
  }
}

}  // namespace
}  // namespace kestrin::test
