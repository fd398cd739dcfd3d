// Every callback is optional: an absent delegate, one that implements only some, and one that
// decides at run time. Whether presence or implementation is looked at first cannot be seen: an
// absent delegate implements nothing and is asked nothing.
#include <type_traits>

#include "link/LinkTest.h"

namespace kestrin::test {
namespace {

struct HearsOnlyStatus final : KestrinBLEProtocols {
  void scanBleStatus(std::int64_t status) noexcept override { statuses.push_back(status); }
  std::vector<std::int64_t> statuses;
};

struct HearsOnlyReaders final : KestrinBLEProtocols {
  void scanningBleDeive(const std::shared_ptr<CBPeripheral>&) noexcept override { ++readers; }
  int readers = 0;
};

// Implements neither callback, and notes each that comes all the same.
struct HearsNothing final : KestrinBLEProtocols, RcpReceiver {
  bool respondsToSelector(Selector selector) const noexcept override {
    asked.push_back(selector);
    return false;
  }
  void scanBleStatus(std::int64_t) noexcept override { ++heard; }
  void scanningBleDeive(const std::shared_ptr<CBPeripheral>&) noexcept override { ++heard; }
  void plugChangedStatus(bool) noexcept override { ++heard; }
  void dispatchRcpFrmReader(const std::optional<NSData>&) noexcept override { ++heard; }
  mutable std::vector<Selector> asked;
  int heard = 0;
};

struct HearsOnlyPlugs final : RcpReceiver {
  void plugChangedStatus(bool plugged) noexcept override { plugs.push_back(plugged); }
  std::vector<bool> plugs;
};

struct HearsOnlyFrames final : RcpReceiver {
  void dispatchRcpFrmReader(const std::optional<NSData>& frame) noexcept override {
    frames.push_back(frame);
  }
  std::vector<std::optional<NSData>> frames;
};

struct EmptyDelegate final : KestrinBLEProtocols {};
struct EmptyReceiver final : RcpReceiver {};

class OptionalCallbacks : public LinkTest {
 protected:
  /// Everything that tells a delegate something, once each.
  void tellEverything() {
    const Reader standard = standardReader();
    plugIn(standard);
    platform.didUpdateValue(standard.peripheral, standard.rx, kFrame);
    const Reader kvr = kvrReader();
    manager->connectBLE(kvr.peripheral);
    platform.didUpdateValue(kvr.peripheral, kvr.rx, NSData{0x01});
    manager->close();
    platform.didDisconnect(standard.peripheral);
    manager->stopSacnBLE();
    platform.take();
  }
};

TEST_F(OptionalCallbacks, OfAnAbsentDelegateAreSkippedAndEverythingElseHappens) {
  manager->setDelegate(nullptr);
  EXPECT_TRUE(manager->scanBLE());
  manager->stopSacnBLE();
  platform.didDiscover(platform.peripheral("TQM_HOLV-1"));
  EXPECT_EQ(platform.take(), R"(
central#1 initWithDelegate manager#1 queue (absent)
central#1 scanForPeripheralsWithServices (absent) options (absent)
central#1 stopScan
* central#1 didDiscoverPeripheral "TQM_HOLV-1"
log "DiscoverPeripheral  TQM_HOLV-1"
)");
}

TEST_F(OptionalCallbacks, OfADelegateThatIsGoneAreSkipped) {
  delegate.reset();
  receiver.reset();
  platform.take();
  manager->scanBLE();
  manager->stopSacnBLE();
  manager->close();
  EXPECT_EQ(platform.take(), R"(
central#1 initWithDelegate manager#1 queue (absent)
central#1 scanForPeripheralsWithServices (absent) options (absent)
central#1 stopScan
central#1 stopScan
)");
}

TEST_F(OptionalCallbacks, OfADelegateWithoutAnyAreSkippedSilently) {
  const auto empty = std::make_shared<EmptyDelegate>();
  const auto emptyReceiver = std::make_shared<EmptyReceiver>();
  manager->setDelegate(empty);
  manager->setRcpReceiverDelegate(emptyReceiver);
  EXPECT_TRUE(manager->scanBLE());
  manager->stopSacnBLE();
  manager->close();
  EXPECT_EQ(platform.take(), R"(
central#1 initWithDelegate manager#1 queue (absent)
central#1 scanForPeripheralsWithServices (absent) options (absent)
central#1 stopScan
central#1 stopScan
)");
  for (const Selector selector : {Selector::scanBleStatus, Selector::scanningBleDeive}) {
    EXPECT_FALSE(empty->respondsToSelector(selector));
  }
}

TEST_F(OptionalCallbacks, AreHeardByADelegateThatImplementsOnlyOne) {
  const auto status = std::make_shared<HearsOnlyStatus>();
  manager->setDelegate(status);
  EXPECT_TRUE(status->respondsToSelector(Selector::scanBleStatus));
  EXPECT_FALSE(status->respondsToSelector(Selector::scanningBleDeive));
  tellEverything();
  EXPECT_EQ(status->statuses, (std::vector<std::int64_t>{0, 1}));

  const auto readers = std::make_shared<HearsOnlyReaders>();
  manager->setDelegate(readers);
  EXPECT_FALSE(readers->respondsToSelector(Selector::scanBleStatus));
  tellEverything();
  EXPECT_EQ(readers->readers, 1);
}

TEST_F(OptionalCallbacks, AreHeardByAReceiverThatImplementsOnlyOne) {
  const auto plugs = std::make_shared<HearsOnlyPlugs>();
  manager->setRcpReceiverDelegate(plugs);
  EXPECT_FALSE(plugs->respondsToSelector(Selector::dispatchRcpFrmReader));
  tellEverything();
  EXPECT_EQ(plugs->plugs, (std::vector<bool>{true, false, false}));

  const auto frames = std::make_shared<HearsOnlyFrames>();
  manager->setRcpReceiverDelegate(frames);
  EXPECT_FALSE(frames->respondsToSelector(Selector::plugChangedStatus));
  tellEverything();
  EXPECT_EQ(frames->frames, (std::vector<std::optional<NSData>>{kFrame, NSData{0x01}}));
}

TEST_F(OptionalCallbacks, AreAskedForBeforeEachAndComeOnlyWhenTheAnswerIsYes) {
  const auto deaf = std::make_shared<HearsNothing>();
  manager->setDelegate(deaf);
  manager->setRcpReceiverDelegate(deaf);
  tellEverything();
  EXPECT_EQ(deaf->heard, 0);
  EXPECT_EQ(deaf->asked, (std::vector{Selector::scanBleStatus, Selector::scanningBleDeive,
                                      Selector::plugChangedStatus, Selector::dispatchRcpFrmReader,
                                      Selector::dispatchRcpFrmReader, Selector::plugChangedStatus,
                                      Selector::plugChangedStatus, Selector::scanBleStatus}));
}

TEST_F(OptionalCallbacks, CanBeDecidedAnewBeforeEach) {
  struct Moody final : KestrinBLEProtocols {
    bool respondsToSelector(Selector) const noexcept override { return listens; }
    void scanBleStatus(std::int64_t) noexcept override { ++heard; }
    bool listens = false;
    int heard = 0;
  };
  const auto moody = std::make_shared<Moody>();
  manager->setDelegate(moody);
  manager->stopSacnBLE();
  EXPECT_EQ(moody->heard, 0);
  moody->listens = true;
  manager->stopSacnBLE();
  EXPECT_EQ(moody->heard, 1);
  moody->listens = false;
  manager->scanBLE();
  EXPECT_EQ(moody->heard, 1);
}

TEST_F(OptionalCallbacks, GoToTheDelegateThatIsSetAtThatMoment) {
  const auto second = std::make_shared<RecordingDelegate>(platform, "second");
  delegate->onScanBleStatus = [&] { manager->setDelegate(second); };
  manager->stopSacnBLE();
  manager->stopSacnBLE();
  EXPECT_EQ(platform.take(), R"(
delegate scanBleStatus 1
second scanBleStatus 1
)");
}

TEST(DelegateTypes, APointerToTheBaseClassTellsNothingOfWhatIsImplemented) {
  static_assert(!detail::isTelling<KestrinBLEProtocols>(
      detail::implementedScanCallbacks<KestrinBLEProtocols>()));
  static_assert(
      !detail::isTelling<RcpReceiver>(detail::implementedReceiverCallbacks<RcpReceiver>()));
  constexpr SelectorTable both = detail::implementedScanCallbacks<RecordingDelegate>();
  EXPECT_TRUE(both.contains(Selector::scanBleStatus));
  EXPECT_TRUE(both.contains(Selector::scanningBleDeive));
  EXPECT_FALSE(both.contains(Selector::plugChangedStatus));
  EXPECT_FALSE(both.contains(Selector::dispatchRcpFrmReader));
}

}  // namespace
}  // namespace kestrin::test
