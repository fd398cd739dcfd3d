// The ways from one phase to another where a radio reports early, late, or not at all.
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "reader/ForwardingRadio.h"
#include "reader/ReaderTest.h"

namespace kestrin::test {
namespace {

using enum ReaderPhase;
using Phases = std::vector<ReaderPhase>;

/// A radio whose state is reported before, or without, what becomes of its links.
class PhaseOfAnotherWatch : public ReaderTest {
 protected:
  std::unique_ptr<Reader> createOn(bool reconnect = true) {
    return create({.reader = "KVR-0417", .reconnect = reconnect, .watch = watch_});
  }
  void report(CBManagerState state) {
    watched_.radio().simulateState(state);
    watched_.runLoop().runFor(seconds(1));
  }

  simulated::SimulatedPlatform watched_{options()};
  const std::shared_ptr<RadioWatch> watch_ = RadioWatch::of(watched_.platform());
};

TEST_F(PhaseOfAnotherWatch, IsClosedWhenTheRadioIsOffBeforeTheLinkIsAndNobodyWantsItBack) {
  const auto reader = createOn(false);
  ASSERT_TRUE(runUntil(*reader, pluggedIn));
  heard_.phases.clear();
  report(CBManagerState::poweredOff);
  EXPECT_EQ(heard_.phases, (Phases{radioOff, closed}));
  EXPECT_EQ(heard_.trouble(), ReaderError::radioOff);
  runFor(seconds(5));
  EXPECT_FALSE(device_->connected());
}

TEST_F(PhaseOfAnotherWatch, EndsWhatIsToBeSentAsSoonAsTheRadioIsOff) {
  const auto reader = createOn();
  ASSERT_TRUE(runUntil(*reader, pluggedIn));
  std::vector<ReaderError> ends;
  const auto end = [&](const std::optional<NSError>& error) {
    ASSERT_TRUE(error);
    ends.push_back(static_cast<ReaderError>(error->code));
  };
  reader->send(frameOf(0x00, 0x22, std::vector<std::uint8_t>(200)), end);
  reader->exchange(command_, seconds(10),
                   [&](const auto&, const std::optional<NSError>& error) { end(error); });
  report(CBManagerState::poweredOff);
  runFor(milliseconds(1));
  EXPECT_EQ(ends, (std::vector<ReaderError>{ReaderError::unplugged, ReaderError::unplugged}));
  EXPECT_TRUE(device_->connected());
}

TEST_F(PhaseOfAnotherWatch, IsClosedAlsoWhereTheLinkWasStillComingUp) {
  const auto reader = createOn(false);
  ASSERT_TRUE(runUntil(*reader, linkingUp));
  heard_.phases.clear();
  report(CBManagerState::poweredOff);
  EXPECT_EQ(heard_.phases, (Phases{radioOff, closed}));
}

TEST_F(PhaseOfAnotherWatch, OfAnAttemptWaitsEvenWhenNobodyWantsItBack) {
  device_->simulateConnectionNeverCompleting();
  const auto reader = createOn(false);
  ASSERT_TRUE(runUntil(*reader, connecting));
  report(CBManagerState::poweredOff);
  EXPECT_EQ(reader->phase(), radioOff);
}

TEST_F(PhaseOfAnotherWatch, OfALinkThatOutlivesItsRadioIsLostAndComesBack) {
  const auto reader = createOn();
  ASSERT_TRUE(runUntil(*reader, pluggedIn));
  heard_.phases.clear();
  report(CBManagerState::resetting);
  runFor(seconds(1));
  report(CBManagerState::poweredOn);
  ASSERT_TRUE(runUntil(*reader, pluggedIn));
  EXPECT_EQ(heard_.phases, (Phases{radioOff, connecting, lost, connecting, linkingUp, pluggedIn}));
  EXPECT_EQ(device_->connectionAttempts(), 2U);
}

TEST_F(PhaseOfAnotherWatch, StaysAsItIsWhileTheRadiosStateIsNotKnown) {
  const auto reader = createOn();
  ASSERT_TRUE(runUntil(*reader, pluggedIn));
  report(CBManagerState::unknown);
  EXPECT_EQ(reader->phase(), pluggedIn);
  reader->leave();
  ASSERT_TRUE(runUntil(*reader, away));
  heard_.phases.clear();
  reader->comeBack();
  ASSERT_TRUE(runUntil(*reader, pluggedIn));
  EXPECT_EQ(heard_.phases, (Phases{connecting, linkingUp, pluggedIn}));
  EXPECT_TRUE(heard_.troubles.empty());
}

TEST_F(PhaseOfAnotherWatch, IsRadioOffOnceBackToARadioThatResets) {
  const auto reader = createOn();
  ASSERT_TRUE(runUntil(*reader, pluggedIn));
  reader->leave();
  ASSERT_TRUE(runUntil(*reader, away));
  report(CBManagerState::resetting);
  reader->comeBack();
  EXPECT_TRUE(runUntil(*reader, radioOff));
}

TEST_F(PhaseOfAnotherWatch, OfALinkThatComesBeforeTheRadiosReportIsLinkingUp) {
  device_->simulateConnectionNeverCompleting();
  const auto reader = createOn();
  ASSERT_TRUE(runUntil(*reader, connecting));
  report(CBManagerState::resetting);
  ASSERT_EQ(reader->phase(), radioOff);
  device_->simulateConnectionNeverCompleting(false);
  ASSERT_TRUE(runUntil(*reader, pluggedIn));
  EXPECT_EQ(heard_.phases, (Phases{connecting, radioOff, linkingUp, pluggedIn}));
  report(CBManagerState::poweredOn);
  runFor(seconds(5));
  EXPECT_EQ(reader->phase(), pluggedIn);
}

TEST_F(PhaseOfAnotherWatch, OfAReaderThatIsSeenBeforeTheRadiosReportIsFoundWithIt) {
  report(CBManagerState::poweredOff);
  const auto reader = createOn();
  watched_.runLoop().runFor(seconds(1));
  ASSERT_EQ(reader->phase(), radioOff);
  runFor(seconds(2));
  EXPECT_EQ(heard_.seen, 1U);
  EXPECT_EQ(reader->phase(), radioOff);
  report(CBManagerState::poweredOn);
  EXPECT_TRUE(runUntil(*reader, pluggedIn));
}

/// Reports the end of a link a second late.
class LateDelegate final : public ForwardingDelegate,
                           public std::enable_shared_from_this<LateDelegate> {
 public:
  LateDelegate(std::weak_ptr<CBCentralManagerDelegate> delegate, std::weak_ptr<RunLoop> loop)
      : ForwardingDelegate(std::move(delegate)), loop_(std::move(loop)) {}
  void centralManager_didDisconnectPeripheral_error(
      const std::shared_ptr<CBCentralManager>& central, const std::shared_ptr<CBPeripheral>& device,
      const std::optional<NSError>& error) noexcept override {
    loop_.lock()->arm(seconds(1), [self = shared_from_this(), central, device, error] {
      self->ForwardingDelegate::centralManager_didDisconnectPeripheral_error(central, device,
                                                                             error);
    });
  }

 private:
  const std::weak_ptr<RunLoop> loop_;
};

class LateRadio final : public ForwardingRadio<LateDelegate> {
 public:
  explicit LateRadio(const Platform& platform)
      : ForwardingRadio(platform.radio), loop_(platform.mainRunLoop) {}

 private:
  std::shared_ptr<LateDelegate> wrap(std::weak_ptr<CBCentralManagerDelegate> delegate) override {
    return std::make_shared<LateDelegate>(std::move(delegate), loop_);
  }

  const std::weak_ptr<RunLoop> loop_;
};

TEST_F(Phase, OfALinkThatTakesItsTimeToEndIsWaitedForByDoneAndByOthers) {
  Platform platform = simulated_.platform();
  platform.radio = std::make_shared<LateRadio>(platform);
  const auto reader = Reader::create(platform, {}, heard_.handlers());
  ASSERT_TRUE(runUntil(*reader, pluggedIn));
  const Time closing = now();
  std::optional<Time> down;
  reader->close([&] { down = now(); });
  const auto other = Reader::create(platform, {.reader = device_->identifier()});
  runFor(milliseconds(900));
  EXPECT_FALSE(down);
  EXPECT_EQ(other->phase(), searching) << "the device is not its own yet";
  ASSERT_TRUE(runUntil(*other, pluggedIn));
  ASSERT_TRUE(down);
  EXPECT_EQ(*down - closing, seconds(1));
}

}  // namespace
}  // namespace kestrin::test
