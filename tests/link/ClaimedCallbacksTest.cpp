// A delegate that answers yes for every callback and implements none: each is called and does
// nothing, and the link lives as with any other delegate.
#include "link/LinkTest.h"

namespace kestrin::test {
namespace {

/// How often it was asked.
struct Asked {
  mutable int times = 0;
};

class ClaimingDelegate final : public KestrinBLEProtocols, public Asked {
 public:
  [[nodiscard]] bool respondsToSelector(Selector /*selector*/) const noexcept override {
    ++times;
    return true;
  }
};

class ClaimingReceiver final : public RcpReceiver, public Asked {
 public:
  [[nodiscard]] bool respondsToSelector(Selector /*selector*/) const noexcept override {
    ++times;
    return true;
  }
};

class ClaimedCallbacks : public LinkTest {};

TEST_F(ClaimedCallbacks, ThatAreNotImplementedDoNothing) {
  const auto claiming = std::make_shared<ClaimingDelegate>();
  const auto claimingReceiver = std::make_shared<ClaimingReceiver>();
  manager->setDelegate(claiming);
  manager->setRcpReceiverDelegate(claimingReceiver);
  const Reader reader = kvrReader();
  linkUp(reader);
  EXPECT_EQ(claiming->times, 2) << "scanBleStatus and scanningBleDeive";
  platform.didUpdateValue(reader.peripheral, reader.rx, NSData{0x01});
  platform.run(2.0);
  EXPECT_EQ(claimingReceiver->times, 2) << "dispatchRcpFrmReader and plugChangedStatus";
  EXPECT_TRUE(manager->isOpened());
  EXPECT_EQ(manager->pripheral(), reader.peripheral);
}

}  // namespace
}  // namespace kestrin::test
