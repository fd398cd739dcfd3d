// Events of a scan whose log line makes the application drop the manager: what was begun is ended.
#include "link/LinkTest.h"

namespace kestrin::test {
namespace {

class DroppedWhileScanning : public LinkTest {
 protected:
  void SetUp() override {
    useManagerWithMemoryOfItsOwn();
    manager->scanBLE();
    central = std::dynamic_pointer_cast<RecordingCentral>(Peer::centralManager(*manager));
    ASSERT_NE(central, nullptr);
    alive = manager;
    platform.take();
    platform.onLog = [this](const std::string&) {
      manager.reset();
      managerWasThereAtTheLine = !alive.expired();
    };
  }
  void TearDown() override { platform.onLog = nullptr; }

  std::shared_ptr<RecordingCentral> central;
  std::weak_ptr<KestrinBleMgr> alive;
  bool managerWasThereAtTheLine = false;
};

TEST_F(DroppedWhileScanning, APoweredOnReportIsWrittenWholeAndStartsItsScan) {
  central->shownState = CBManagerState::poweredOn;
  Peer::centralManagerDidUpdateState(*manager, central);
  EXPECT_TRUE(managerWasThereAtTheLine);
  EXPECT_TRUE(alive.expired());
  EXPECT_EQ(platform.take(), R"(
log " CBManager is powered on"
log "start San"
central#1 scanForPeripheralsWithServices (absent) options (absent)
)");
}

TEST_F(DroppedWhileScanning, ASightingIsStillAcceptedAndTold) {
  const auto reader = platform.peripheral("KVR-1");
  Peer::centralManager_didDiscoverPeripheral_advertisementData_RSSI(*manager, central, reader, {},
                                                                    -50);
  EXPECT_TRUE(managerWasThereAtTheLine);
  EXPECT_TRUE(alive.expired());
  EXPECT_EQ(platform.take(), R"(
log "DiscoverPeripheral  KVR-1"
delegate scanningBleDeive "KVR-1"
)");
}

}  // namespace
}  // namespace kestrin::test
