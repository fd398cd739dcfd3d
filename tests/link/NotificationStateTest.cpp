// A notification-state event whose error line makes the application drop the manager.
#include "link/LinkTest.h"

namespace kestrin::test {
namespace {

class NotificationState : public LinkTest {};

TEST_F(NotificationState, StillHandlesItsValueWhenALogSinkDropsTheManagerAtItsError) {
  useManagerWithMemoryOfItsOwn();
  const Reader reader = standardReader();
  const std::weak_ptr<KestrinBleMgr> alive = manager;
  KestrinBleMgr& dropped = *manager;
  platform.onLog = [this](const std::string&) { manager.reset(); };
  reader.rx->shownValue = NSData{0xBB, 0x02, 0x11, 0x00, 0x00, 0x7E, 0xA7, 0xC5};
  Peer::peripheral_didUpdateNotificationStateForCharacteristic_error(dropped, reader.peripheral,
                                                                     reader.rx, kError);
  platform.onLog = nullptr;
  EXPECT_TRUE(alive.expired());
  EXPECT_EQ(platform.take(), R"(
log "[ERROR]: Unlikely Error"
log "[RX BLE] <bb021100 007ea7c5>"
dispatch_sync priority 2
dispatch_sync priority 2
receiver dispatchRcpFrmReader <bb021100 007ea7c5>
)");
}

}  // namespace
}  // namespace kestrin::test
