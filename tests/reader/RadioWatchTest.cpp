// The watch of the radio's state.
#include "KestrinBLESDK/RadioWatch.h"

#include <thread>

#include "reader/ReaderTest.h"

namespace kestrin::test {
namespace {

using States = std::vector<CBManagerState>;

/// Counts the central managers that are made on a radio.
class CountingRadio final : public Radio {
 public:
  explicit CountingRadio(std::shared_ptr<Radio> radio) : radio_(std::move(radio)) {}
  std::shared_ptr<CBCentralManager> initWithDelegate_queue(
      std::weak_ptr<CBCentralManagerDelegate> delegate, std::shared_ptr<RunLoop> queue) override {
    ++made;
    return radio_->initWithDelegate_queue(std::move(delegate), std::move(queue));
  }
  [[nodiscard]] std::string stateReason() const override { return radio_->stateReason(); }
  std::size_t made = 0;

 private:
  const std::shared_ptr<Radio> radio_;
};

class RadioWatchTest : public ReaderTest {};

TEST_F(RadioWatchTest, ReportsTheStateSoonAndEachChange) {
  const auto watch = RadioWatch::of(simulated_.platform());
  EXPECT_EQ(watch->state(), CBManagerState::unknown);
  EXPECT_EQ(watch->description(), "the radio is not known yet");
  States states;
  const auto token = watch->listen([&](CBManagerState state) { states.push_back(state); });
  runFor(seconds(1));
  EXPECT_EQ(watch->description(), "the radio is powered on");
  EXPECT_FALSE(watch->unusable());
  power(false);
  runFor(seconds(1));
  EXPECT_EQ(watch->description(), simulated_.radio().stateReason());
  EXPECT_FALSE(watch->unusable());
  simulated_.radio().simulateState(CBManagerState::unauthorized);
  runFor(seconds(1));
  EXPECT_TRUE(watch->unusable());
  EXPECT_EQ(states, (States{CBManagerState::poweredOn, CBManagerState::poweredOff,
                            CBManagerState::unauthorized}));
}

TEST_F(RadioWatchTest, TellsWhoComesLateTheStateAsItIs) {
  const auto watch = RadioWatch::of(simulated_.platform());
  runFor(seconds(1));
  States states;
  const auto token = watch->listen([&](CBManagerState state) { states.push_back(state); });
  EXPECT_TRUE(states.empty()) << "in a later turn";
  runFor(seconds(1));
  EXPECT_EQ(states, States{CBManagerState::poweredOn});
}

TEST_F(RadioWatchTest, CallsNobodyWhoseTokenIsGone) {
  const auto watch = RadioWatch::of(simulated_.platform());
  runFor(seconds(1));
  std::size_t first = 0;
  std::size_t second = 0;
  auto secondToken = watch->listen([&](CBManagerState) { ++second; });
  secondToken.reset();
  std::shared_ptr<void> own;
  std::shared_ptr<void> other;
  own = watch->listen([&](CBManagerState) {
    ++first;
    other.reset();
    own.reset();
  });
  other = watch->listen([&](CBManagerState) { ++second; });
  runFor(seconds(1));
  power(false);
  runFor(seconds(1));
  EXPECT_EQ(first, 1U);
  EXPECT_EQ(second, 0U);
}

TEST_F(RadioWatchTest, IsSharedByAllWhoAskForOneOfTheSamePlatform) {
  Platform platform = simulated_.platform();
  const auto radio = std::make_shared<CountingRadio>(platform.radio);
  platform.radio = radio;
  const auto watch = RadioWatch::of(platform);
  EXPECT_EQ(RadioWatch::of(platform), watch);
  EXPECT_NE(RadioWatch::of(simulated_.platform()), watch) << "of another radio";
  const auto otherLoop = std::make_shared<MainRunLoop>();
  platform.mainRunLoop = otherLoop;
  EXPECT_NE(RadioWatch::of(platform), watch) << "on another run loop";
  EXPECT_EQ(radio->made, 2U);
}

TEST_F(RadioWatchTest, IsOneForTwelveReaders) {
  Platform platform = simulated_.platform();
  const auto radio = std::make_shared<CountingRadio>(platform.radio);
  platform.radio = radio;
  std::vector<std::unique_ptr<Reader>> readers;
  readers.reserve(12);
  for (int i = 0; i < 12; ++i) readers.push_back(Reader::create(platform, {.reader = "KVR"}));
  runFor(seconds(1));
  EXPECT_EQ(radio->made, 12U + 1) << "one for each scan, and one watch";
  EXPECT_EQ(&readers.front()->radio(), &readers.back()->radio());
}

TEST_F(RadioWatchTest, MayBeOneOfYourOwn) {
  Platform platform = simulated_.platform();
  const auto radio = std::make_shared<CountingRadio>(platform.radio);
  platform.radio = radio;
  const auto watch = RadioWatch::of(simulated_.platform());
  const auto reader = Reader::create(platform, {.watch = watch});
  runFor(seconds(1));
  EXPECT_EQ(&reader->radio(), watch.get());
  EXPECT_EQ(radio->made, 1U);
}

TEST_F(RadioWatchTest, SaysTheRadiosReasonUnlessItIsOn) {
  Platform platform = simulated_.platform();
  platform.radio = std::make_shared<OneReason>(platform.radio, "look at the switch");
  const auto watch = RadioWatch::of(platform);
  EXPECT_EQ(watch->description(), "look at the switch") << "while nothing is known";
  runFor(seconds(1));
  EXPECT_EQ(watch->description(), "the radio is powered on");
  power(false);
  runFor(seconds(1));
  EXPECT_EQ(watch->description(), "look at the switch");
}

TEST_F(RadioWatchTest, SaysInWordsWhatARadioWithoutAReasonIs) {
  Platform platform = simulated_.platform();
  platform.radio = std::make_shared<OneReason>(platform.radio, "");
  const auto watch = RadioWatch::of(platform);
  const std::pair<CBManagerState, const char*> kWords[] = {
      {CBManagerState::resetting, "the radio is resetting"},
      {CBManagerState::unsupported, "the radio is not there"},
      {CBManagerState::unauthorized, "the radio is not permitted"},
      {CBManagerState::poweredOff, "the radio is powered off"},
      {static_cast<CBManagerState>(7), "the radio is in state 7"},
      {CBManagerState::poweredOn, "the radio is powered on"}};
  for (const auto& [state, words] : kWords) {
    simulated_.radio().simulateState(state);
    runFor(seconds(1));
    EXPECT_EQ(watch->description(), words);
  }
}

}  // namespace
}  // namespace kestrin::test
