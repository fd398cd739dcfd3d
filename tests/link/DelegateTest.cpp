// What a delegate's class implements is found when it is set, however the class came to implement
// it; and a delegate may leave, or send another away, from inside a callback.
#include <string>
#include <vector>

#include "link/LinkTest.h"

namespace kestrin::test {
namespace {

constexpr Selector kStatus = Selector::scanBleStatus;
constexpr Selector kReaders = Selector::scanningBleDeive;
constexpr Selector kPlugs = Selector::plugChangedStatus;
constexpr Selector kFrames = Selector::dispatchRcpFrmReader;
using Selectors = std::vector<Selector>;

Selectors implementedBy(const SelectorResponder& delegate) {
  Selectors answered;
  for (const Selector selector : {kStatus, kReaders, kPlugs, kFrames}) {
    if (delegate.respondsToSelector(selector)) answered.push_back(selector);
  }
  return answered;
}

struct HearsStatus : KestrinBLEProtocols {
  void scanBleStatus(std::int64_t status) noexcept override { statuses.push_back(status); }
  std::vector<std::int64_t> statuses;
};

class Delegates : public LinkTest {
 protected:
  /// What is found in a class when an object of it is set as scan delegate.
  template <class Delegate>
  Selectors foundIn() {
    const auto one = std::make_shared<Delegate>();
    manager->setDelegate(one);
    return implementedBy(*one);
  }
  template <class Receiver>
  Selectors foundInReceiver() {
    const auto one = std::make_shared<Receiver>();
    manager->setRcpReceiverDelegate(one);
    return implementedBy(*one);
  }
};

TEST_F(Delegates, ImplementWhatABaseBetweenThemAndTheLibrarysImplements) {
  struct Silent : HearsStatus {};
  struct HearsBoth : Silent {
    void scanningBleDeive(const std::shared_ptr<CBPeripheral>&) noexcept override {}
  };
  struct OverridesAgain : HearsStatus {
    void scanBleStatus(std::int64_t status) noexcept override {
      HearsStatus::scanBleStatus(-status);
    }
  };
  EXPECT_EQ(foundIn<Silent>(), Selectors{kStatus});
  EXPECT_EQ(foundIn<HearsBoth>(), (Selectors{kStatus, kReaders}));
  EXPECT_EQ(foundIn<OverridesAgain>(), Selectors{kStatus});
  const auto again = std::make_shared<OverridesAgain>();
  manager->setDelegate(again);
  manager->stopSacnBLE();
  EXPECT_EQ(again->statuses, std::vector<std::int64_t>{-1});
}

TEST_F(Delegates, ImplementWhatOneOfSeveralBasesImplements) {
  struct HearsStatusToo : virtual KestrinBLEProtocols {
    void scanBleStatus(std::int64_t) noexcept override {}
  };
  struct HearsReaders : virtual KestrinBLEProtocols {
    void scanningBleDeive(const std::shared_ptr<CBPeripheral>&) noexcept override {}
  };
  struct Unrelated {
    virtual ~Unrelated() = default;
    virtual void plugChangedStatus() {}
  };
  struct Composed final : Unrelated, HearsStatusToo, HearsReaders {};
  EXPECT_EQ(foundIn<Composed>(), (Selectors{kStatus, kReaders}));
}

TEST_F(Delegates, ImplementACallbackBesideOneOfTheSameNameWithOtherArguments) {
  struct Overloads : RcpReceiver {
    void plugChangedStatus(bool plugged) noexcept override { heard = plugged; }
    void plugChangedStatus(const std::string&) {}
    bool heard = false;
  };
  EXPECT_EQ(foundInReceiver<Overloads>(), Selectors{kPlugs});
}

TEST_F(Delegates, ImplementNothingByNamingTheLibrarysOwnCallback) {
  struct Names final : RcpReceiver {
    using RcpReceiver::plugChangedStatus;
    void dispatchRcpFrmReader(const std::optional<NSData>&) noexcept override {}
  };
  EXPECT_EQ(foundInReceiver<Names>(), Selectors{kFrames});
}

TEST_F(Delegates, OfAFinalClassMayImplementNothing) {
  struct Nothing final : KestrinBLEProtocols, RcpReceiver {};
  EXPECT_EQ(foundIn<Nothing>(), Selectors{});
  EXPECT_EQ(foundInReceiver<Nothing>(), Selectors{});
}

TEST_F(Delegates, ImplementWhatTheClassImplementsThatTheyAreSetAs) {
  struct HearsBoth final : HearsStatus {
    void scanningBleDeive(const std::shared_ptr<CBPeripheral>&) noexcept override { ++readers; }
    int readers = 0;
  };
  const auto both = std::make_shared<HearsBoth>();
  manager->setDelegate(std::shared_ptr<HearsStatus>(both));
  EXPECT_EQ(implementedBy(*both), Selectors{kStatus});
  scan();
  platform.didDiscover(platform.peripheral("TQM_HOLV-1"));
  EXPECT_EQ(both->statuses, std::vector<std::int64_t>{0});
  EXPECT_EQ(both->readers, 0);

  manager->setDelegate(both);
  EXPECT_EQ(implementedBy(*both), (Selectors{kStatus, kReaders}));
  platform.didDiscover(platform.peripheral("TQM_HOLV-2"));
  EXPECT_EQ(both->readers, 1);

  // Known better from the other place, it stays known.
  manager->setDelegate(std::shared_ptr<HearsStatus>(both));
  EXPECT_EQ(implementedBy(*both), (Selectors{kStatus, kReaders}));
}

TEST_F(Delegates, AreFoundOutWhenTheyAreSetAndNotBefore) {
  struct Both final : KestrinBLEProtocols, RcpReceiver {
    void scanBleStatus(std::int64_t) noexcept override {}
    void plugChangedStatus(bool) noexcept override {}
  };
  const auto both = std::make_shared<Both>();
  EXPECT_EQ(implementedBy(*both), Selectors{});
  manager->setDelegate(both);
  EXPECT_EQ(implementedBy(*both), Selectors{kStatus});
  manager->setRcpReceiverDelegate(both);
  EXPECT_EQ(implementedBy(*both), (Selectors{kStatus, kPlugs}));
  // A copy is an object of its own, which was set nowhere.
  EXPECT_EQ(implementedBy(Both(*both)), Selectors{});
  *both = Both();
  EXPECT_EQ(implementedBy(*both), (Selectors{kStatus, kPlugs}));
}

TEST_F(Delegates, DecideAtRunTimeAlsoForCallbacksOfAClassThatIsNotKnown) {
  struct Decides : KestrinBLEProtocols {
    bool respondsToSelector(Selector selector) const noexcept override {
      return selector == answersTo;
    }
    Selector answersTo = kReaders;
  };
  struct Hears final : Decides {
    void scanBleStatus(std::int64_t) noexcept override { ++statuses; }
    void scanningBleDeive(const std::shared_ptr<CBPeripheral>&) noexcept override { ++readers; }
    int statuses = 0;
    int readers = 0;
  };
  const auto hears = std::make_shared<Hears>();
  // A class that decides for itself may be handed over by whichever pointer there is.
  manager->setDelegate(std::shared_ptr<Decides>(hears));
  scan();
  platform.didDiscover(platform.peripheral("TQM_HOLV-1"));
  EXPECT_EQ(hears->statuses, 0);
  EXPECT_EQ(hears->readers, 1);
  hears->answersTo = kStatus;
  manager->stopSacnBLE();
  platform.didDiscover(platform.peripheral("TQM_HOLV-2"));
  EXPECT_EQ(hears->statuses, 1);
  EXPECT_EQ(hears->readers, 1);
}

TEST_F(Delegates, AreTakenByAWeakPointerAsByASharedOne) {
  const auto status = std::make_shared<HearsStatus>();
  manager->setDelegate(std::weak_ptr<HearsStatus>(status));
  EXPECT_EQ(manager->delegate(), status);
  manager->stopSacnBLE();
  EXPECT_EQ(status->statuses, std::vector<std::int64_t>{1});
  EXPECT_EQ(status.use_count(), 1);
}

TEST_F(Delegates, ThatAreGoneWhenTheyAreSetReplaceTheOneBefore) {
  std::weak_ptr<HearsStatus> gone = std::make_shared<HearsStatus>();
  manager->setDelegate(gone);
  EXPECT_EQ(manager->delegate(), nullptr);
  manager->setDelegate(delegate);
  manager->setDelegate(std::shared_ptr<HearsStatus>());
  EXPECT_EQ(manager->delegate(), nullptr);
  manager->stopSacnBLE();
  EXPECT_EQ(platform.take(), kNothing);
}

TEST_F(Delegates, EmbeddedInTheirOwnerLiveAsLongAsItDoes) {
  struct Application {
    HearsStatus listener;
  };
  auto application = std::make_shared<Application>();
  {
    const std::shared_ptr<HearsStatus> aliased(application, &application->listener);
    manager->setDelegate(std::weak_ptr<HearsStatus>(aliased));
  }
  manager->stopSacnBLE();
  EXPECT_EQ(application->listener.statuses, std::vector<std::int64_t>{1});
  EXPECT_EQ(application.use_count(), 1);
  const std::weak_ptr<Application> alive = application;
  application.reset();
  EXPECT_TRUE(alive.expired());
  EXPECT_EQ(manager->delegate(), nullptr);
}

TEST_F(Delegates, ThatDropThemselvesLiveUntilTheirCallbackHasReturned) {
  delegate->onScanBleStatus = [this] {
    delegate.reset();
    platform.transcript().add("returning");
  };
  receiver->onPlugChangedStatus = [this] {
    receiver.reset();
    platform.transcript().add("returning");
  };
  manager->stopSacnBLE();
  manager->stopSacnBLE();
  manager->close();
  manager->close();
  EXPECT_EQ(platform.take(), R"(
delegate scanBleStatus 1
returning
delegate gone
receiver plugChangedStatus false
returning
receiver gone
)");
}

TEST_F(Delegates, MayDropTheOtherOneBeforeItHearsAnything) {
  delegate->onScanBleStatus = [this] { receiver.reset(); };
  manager->stopSacnBLE();
  manager->close();
  EXPECT_EQ(platform.take(), R"(
delegate scanBleStatus 1
receiver gone
)");
}

TEST_F(Delegates, MayHandOverToAnotherBetweenTheTwoReportsOfAClose) {
  const Reader reader = standardReader();
  plugIn(reader);
  const auto second = std::make_shared<RecordingReceiver>(platform, "second");
  receiver->onPlugChangedStatus = [&] {
    manager->setRcpReceiverDelegate(second);
    receiver.reset();
  };
  manager->close();
  platform.didDisconnect(reader.peripheral);
  const std::string told = platform.take();
  EXPECT_NE(told.find("\nreceiver plugChangedStatus false\nreceiver gone\n"), std::string::npos)
      << told;
  EXPECT_NE(told.find("\nsecond plugChangedStatus false\n"), std::string::npos) << told;
}

}  // namespace
}  // namespace kestrin::test
