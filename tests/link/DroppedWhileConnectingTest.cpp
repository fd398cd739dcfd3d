// Events of a link whose log line makes the application drop the manager: what was begun is ended.
#include "link/LinkTest.h"

namespace kestrin::test {
namespace {

class DroppedWhileConnecting : public LinkTest {
 protected:
  void SetUp() override {
    useManagerWithMemoryOfItsOwn();
    connect(reader.peripheral);
    platform.take();
    alive = manager;
    platform.onLog = [this](const std::string&) {
      manager.reset();
      managerWasThereAtEachLine = managerWasThereAtEachLine && !alive.expired();
    };
  }
  void TearDown() override { platform.onLog = nullptr; }

  void expectThatItWasThereUntilTheEnd() {
    EXPECT_EQ(manager, nullptr) << "no line was logged";
    EXPECT_TRUE(managerWasThereAtEachLine);
  }

  const Reader reader = standardReader();
  std::weak_ptr<KestrinBleMgr> alive;
  bool managerWasThereAtEachLine = true;
};

TEST_F(DroppedWhileConnecting, AConnectionStillAsksForTheServices) {
  Peer::centralManager_didConnectPeripheral(*manager, nullptr, reader.peripheral);
  expectThatItWasThereUntilTheEnd();
  EXPECT_TRUE(alive.expired());
  EXPECT_EQ(platform.take(), R"(
log "BLE Connected"
peripheral "TQM_HOLV-1" discoverServices [BA821000-3B5B-4654-85FE-E998B123ADEA]
central#1 released
)");
}

TEST_F(DroppedWhileConnecting, FoundServicesAreStillAskedForTheirCharacteristics) {
  reader.peripheral->shownServices = {{reader.service}};
  Peer::peripheral_didDiscoverServices(*manager, reader.peripheral, std::nullopt);
  expectThatItWasThereUntilTheEnd();
  EXPECT_TRUE(alive.expired());
  EXPECT_NE(platform.take().find("discoverCharacteristics"), std::string::npos);
}

TEST_F(DroppedWhileConnecting, FoundCharacteristicsStillArmTheDelayedRequests) {
  reader.service->shownCharacteristics = {{reader.rx, reader.tx}};
  Peer::peripheral_didDiscoverCharacteristicsForService_error(*manager, reader.peripheral,
                                                              reader.service, std::nullopt);
  expectThatItWasThereUntilTheEnd();
  // The delayed requests keep it: the reader is plugged in all the same.
  EXPECT_FALSE(alive.expired());
  platform.onLog = nullptr;
  platform.run(2.0);
  EXPECT_NE(platform.take().find("receiver plugChangedStatus true"), std::string::npos);
  EXPECT_TRUE(alive.expired());
}

TEST_F(DroppedWhileConnecting, ALostLinkIsStillTold) {
  Peer::centralManager_didDisconnectPeripheral_error(*manager, nullptr, reader.peripheral,
                                                     std::nullopt);
  expectThatItWasThereUntilTheEnd();
  EXPECT_TRUE(alive.expired());
  EXPECT_EQ(platform.take(), R"(
log "BLE Disconnected"
receiver plugChangedStatus false
central#1 released
)");
}

}  // namespace
}  // namespace kestrin::test
