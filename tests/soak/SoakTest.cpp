// The library over a long time: frames by the hundred thousand, cut anywhere, over a simulated link
// that is lost and made again, with the application in the background now and then. Nothing is lost
// but what the assembler's trimming rules and the ends of links lose, and nothing is left in
// memory.
//
// In virtual time and repeatable: KESTRIN_SOAK_SEED (1 if not given) settles everything.
#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>
#include <memory>
#include <random>
#include <sstream>

#include "KestrinBLESDK/KestrinBleMgr.h"
#include "kestrin/simulated/SimulatedPlatform.h"
#include "soak/Allocations.h"
#include "soak/Ledger.h"
#include "support/KestrinBleMgrTestPeer.h"

namespace kestrin::test {
namespace {

using Peer = KestrinBleMgrTestPeer;
using std::chrono::milliseconds;

std::uint32_t environmentNumber(const char* name, std::uint32_t otherwise) {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): the environment is never changed here.
  const char* const value = std::getenv(name);
  return value == nullptr ? otherwise : static_cast<std::uint32_t>(std::stoul(value));
}

class SilentLog final : public NSLogSink {
 public:
  [[nodiscard]] bool isListening() const noexcept override { return false; }
  void write(std::string_view) noexcept override {}
};

simulated::Options options(std::uint32_t seed) {
  simulated::Options options;
  options.seed = seed;
  options.virtualTime = true;
  options.log = std::make_shared<SilentLog>();
  return options;
}

/// An application that makes its link again whenever it is gone.
class Application final : public KestrinBLEProtocols, public RcpReceiver {
 public:
  explicit Application(std::shared_ptr<KestrinBleMgr> itsManager)
      : manager(std::move(itsManager)) {}
  void scanningBleDeive(const std::shared_ptr<CBPeripheral>& peripheral) noexcept override {
    manager->connectBLE(peripheral);
    connected();
  }
  void plugChangedStatus(bool plugged) noexcept override {
    if (plugged) ++plugs;
  }
  void dispatchRcpFrmReader(const std::optional<NSData>& frame) noexcept override {
    frames.push_back(frame.value_or(NSData()).description());
  }

  const std::shared_ptr<KestrinBleMgr> manager;
  std::function<void()> connected;
  std::vector<std::string> frames;
  std::size_t plugs = 0;
};

/// Hands a peripheral's events on to the manager, and its values to the ledger first.
class Tap final : public CBPeripheralDelegate {
 public:
  Tap(std::shared_ptr<CBPeripheralDelegate> manager, Application& application, Ledger& ledger)
      : manager_(std::move(manager)), application_(application), ledger_(ledger) {}

  void peripheral_didDiscoverServices(const std::shared_ptr<CBPeripheral>& peripheral,
                                      const std::optional<NSError>& error) noexcept override {
    manager_->peripheral_didDiscoverServices(peripheral, error);
  }
  void peripheral_didDiscoverCharacteristicsForService_error(
      const std::shared_ptr<CBPeripheral>& peripheral, const std::shared_ptr<CBService>& service,
      const std::optional<NSError>& error) noexcept override {
    manager_->peripheral_didDiscoverCharacteristicsForService_error(peripheral, service, error);
  }
  void peripheral_didUpdateValueForCharacteristic_error(
      const std::shared_ptr<CBPeripheral>& peripheral,
      const std::shared_ptr<CBCharacteristic>& characteristic,
      const std::optional<NSError>& error) noexcept override {
    const auto expected = ledger_.arrival(valueOf(*characteristic));
    manager_->peripheral_didUpdateValueForCharacteristic_error(peripheral, characteristic, error);
    compare(expected);
  }
  void peripheral_didUpdateNotificationStateForCharacteristic_error(
      const std::shared_ptr<CBPeripheral>& peripheral,
      const std::shared_ptr<CBCharacteristic>& characteristic,
      const std::optional<NSError>& error) noexcept override {
    std::vector<std::string> expected;
    if (characteristic->value()) expected = ledger_.repetition(valueOf(*characteristic));
    manager_->peripheral_didUpdateNotificationStateForCharacteristic_error(peripheral,
                                                                           characteristic, error);
    compare(expected);
  }

 private:
  static Bytes valueOf(const CBCharacteristic& characteristic) {
    const auto value = characteristic.value().value_or(NSData());
    return {value.span().begin(), value.span().end()};
  }
  void compare(const std::vector<std::string>& expected) {
    EXPECT_EQ(application_.frames, expected);
    application_.frames.clear();
    if (const auto& kept = Peer::_mutableReceivedData(*application_.manager)) {
      EXPECT_EQ(kept->length(), ledger_.kept());
    }
  }

  const std::shared_ptr<CBPeripheralDelegate> manager_;
  Application& application_;
  Ledger& ledger_;
};

class Soak : public testing::Test {
 protected:
  static constexpr std::uint32_t kOrdinaryFrames = 20'000;
  /// Containers that have become a little larger. A byte for each frame would be more.
  static constexpr std::size_t kTolerance = 16'000;

  Soak() {
    application_->connected = [this] { listenIn(); };
    manager().setDelegate(application_);
    manager().setRcpReceiverDelegate(application_);
    // A virtual reader remembers every write that it takes, which would be all that grows here.
    reader_->simulateWriteError(NSError{CBATTErrorDomain, 0x0E, "Unlikely Error"});
    manager().scanBLE();
  }

  KestrinBleMgr& manager() { return *application_->manager; }
  std::size_t below(std::size_t bound) { return random_() % bound; }
  bool oneIn(std::size_t chance) { return below(chance) == 0; }

  void listenIn() {
    if (const auto peripheral = manager().pripheral()) peripheral->setDelegate(tap_);
  }
  void reconnect() {
    manager().connectBLE(manager().pripheral());
    listenIn();
  }
  bool linked() { return !reader_->subscriptions().empty(); }

  /// Lets a link come up that is down, as the application does it.
  void bringLinkUp() {
    ledger_.linkEnded();
    ++links_;
    reconnect();
    for (int i = 0; i < 100 && !linked(); ++i) simulated_.runLoop().runFor(milliseconds(100));
    ASSERT_TRUE(linked()) << "the link did not come up";
  }

  /// Some frames, one behind the other, cut into pieces of any size.
  void sendBurst() {
    Piece burst;
    for (std::size_t count = 1 + below(20); count > 0 && sent_ < frames_; --count) {
      addFrame(sent_++, burst);
    }
    for (std::size_t at = 0; at < burst.bytes.size();) {
      const std::size_t size = std::min(burst.bytes.size() - at, 1 + below(20));
      const auto first = burst.sources.begin() + static_cast<std::ptrdiff_t>(at);
      Piece piece{part(burst.bytes, at, size),
                  std::vector<Source>(first, first + static_cast<std::ptrdiff_t>(size))};
      at += size;
      const NSData value(piece.bytes);
      ledger_.underway(std::move(piece));
      reader_->simulateNotification(kRx, value);
      ++pieces_;
    }
  }
  void addFrame(std::uint32_t number, Piece& burst) {
    Bytes more(oneIn(400) ? below(1000) : below(24));
    for (auto& byte : more) byte = oneIn(8) ? 0xBB : static_cast<std::uint8_t>(random_());
    Bytes frame = numberedFrame(number, more);
    if (oneIn(300)) {
      frame[1 + below(frame.size() - 1)] ^= static_cast<std::uint8_t>(1U << below(8));
      ledger_.sentWrong(number);
    }
    burst.bytes.insert(burst.bytes.end(), frame.begin(), frame.end());
    burst.sources.push_back({number, true});
    burst.sources.insert(burst.sources.end(), frame.size() - 1, {number, false});
  }

  /// Ends the link in one of the ways in which links end.
  void disturb() {
    switch (below(4)) {
      case 0:
        simulated_.notificationCenter().postNotificationName_object(
            UIApplicationDidEnterBackgroundNotification);
        ++backgrounds_;
        break;
      case 1:
        manager().scanBLE();
        ++scans_;
        break;
      default:
        reader_->simulateLinkLoss();
        ++losses_;
    }
    simulated_.runLoop().runFor(milliseconds(100));
    ASSERT_FALSE(linked()) << "the link did not end";
  }

  void sendEverything() {
    while (sent_ < frames_ && !HasFatalFailure()) {
      if (!linked()) bringLinkUp();
      sendBurst();
      if (oneIn(40)) disturb();
      simulated_.runLoop().runFor(milliseconds(below(30)));
      if (sent_ > frames_ / 5) watchMemory();
    }
    simulated_.runLoop().runFor(std::chrono::seconds(5));
    ledger_.finish();
  }
  /// Compares what is allocated between moments at which nothing is kept or on its way.
  void watchMemory() {
    if (!oneIn(20)) return;
    simulated_.runLoop().runFor(milliseconds(3000));
    if (!linked() || ledger_.kept() != 0) return;
    const std::size_t now = allocatedBytes();
    if (quietMoments_++ == 0) firstAllocated_ = now;
    mostAllocated_ = std::max(mostAllocated_, now);
  }

  static inline const CBUUID kRx =
      simulated::readerCharacteristics(simulated::ReaderFamily::standard).rx;

  const std::uint32_t frames_ = environmentNumber("KESTRIN_SOAK_FRAMES", kOrdinaryFrames);
  const std::uint32_t seed_ = environmentNumber("KESTRIN_SOAK_SEED", 1);
  std::mt19937 random_{seed_};
  Ledger ledger_{frames_};
  simulated::SimulatedPlatform simulated_{options(seed_)};
  const std::shared_ptr<simulated::VirtualPeripheral> reader_ =
      simulated_.radio().addReader("KVR-0417", simulated::ReaderFamily::standard);
  const std::shared_ptr<Application> application_ =
      std::make_shared<Application>(KestrinBleMgr::init(simulated_.platform()));
  const std::shared_ptr<Tap> tap_ = std::make_shared<Tap>(
      Peer::asPeripheralDelegate(application_->manager), *application_, ledger_);
  std::uint32_t sent_ = 0;
  std::size_t pieces_ = 0;
  std::size_t links_ = 0;
  std::size_t losses_ = 0;
  std::size_t backgrounds_ = 0;
  std::size_t scans_ = 0;
  std::size_t quietMoments_ = 0;
  std::size_t firstAllocated_ = 0;
  std::size_t mostAllocated_ = 0;
};

TEST_F(Soak, NoFrameIsLostButByTheRulesAndNothingIsLeftInMemory) {
  sendEverything();
  std::ostringstream problems;
  for (const auto& problem : ledger_.problems()) problems << problem << '\n';
  EXPECT_TRUE(ledger_.problems().empty()) << "seed " << seed_ << ":\n" << problems.str();

  const auto count = [this](Fate fate) { return ledger_.count(fate); };
  EXPECT_EQ(count(Fate::unexplained), 0U);
  EXPECT_LE(count(Fate::underway), 40U) << "more than what a broken frame at the end can hold";
  // Each thing must have come up, or nothing has been shown of it.
  EXPECT_GT(count(Fate::delivered), frames_ * 8 / 10);
  for (const Fate fate :
       {Fate::sentWrong, Fate::lostWithLink, Fate::lonePreamble, Fate::swallowed}) {
    EXPECT_GT(count(fate), 0U) << static_cast<int>(fate);
  }
  EXPECT_GT(backgrounds_, 0U);
  EXPECT_GT(scans_, 0U);
  EXPECT_GT(losses_, 0U);
  EXPECT_GT(application_->plugs, 0U);

  ASSERT_GT(quietMoments_, 2U);
  EXPECT_LE(mostAllocated_, firstAllocated_ + kTolerance)
      << "memory grows from one quiet moment to the next";

  std::cout << frames_ << " frames in " << pieces_ << " pieces, " << links_ << " links (" << losses_
            << " lost, " << backgrounds_ << " by background, " << scans_ << " by a new scan), "
            << std::chrono::duration_cast<std::chrono::seconds>(simulated_.runLoop().now()).count()
            << " s of virtual time\n"
            << "delivered " << count(Fate::delivered) << ", sent wrong " << count(Fate::sentWrong)
            << ", lost with a link " << count(Fate::lostWithLink) << ", lone preamble "
            << count(Fate::lonePreamble) << ", inside another frame " << count(Fate::swallowed)
            << ", still kept " << count(Fate::underway) << "; at most " << ledger_.mostKept()
            << " bytes kept\n"
            << "allocated at quiet moments (" << quietMoments_ << "): " << firstAllocated_ << " to "
            << mostAllocated_ << " bytes\n";
}

/// The receive buffer has no bound. This is exactly when it grows, and when it is empty again.
TEST(SoakBuffer, GrowsWithBytesWithoutPreambleAndEmptiesWithAFrameThatEndsIt) {
  Platform platform;
  platform.log = std::make_shared<SilentLog>();
  platform.notificationCenter = std::make_shared<NSNotificationCenter>();
  const auto manager = KestrinBleMgr::init(platform);
  const auto kept = [&] { return Peer::_mutableReceivedData(*manager)->length(); };
  for (std::size_t arrival = 1; arrival <= 5000; ++arrival) {
    manager->readData(NSData(Bytes(20, 0x00)));
    ASSERT_EQ(kept(), 20 * arrival) << "bytes without a preamble are kept";
  }
  const Bytes frame = numberedFrame(1, {});
  const std::size_t before = allocatedBytes();
  manager->readData(NSData(part(frame, 0, 5)));
  EXPECT_EQ(kept(), 5U) << "a preamble drops what stands in front of it";
  EXPECT_LT(allocatedBytes() + 90'000, before) << "and gives back the memory";
  manager->readData(NSData(from(frame, 5)));
  EXPECT_EQ(kept(), 0U) << "a frame that ends the buffer empties it";
  manager->readData(NSData(joined({frame, {0x00}})));
  for (std::size_t arrival = 1; arrival <= 100; ++arrival) {
    manager->readData(NSData(Bytes(20, 0x00)));
    ASSERT_EQ(kept(), frame.size() + 1 + 20 * arrival) << "a delivered frame is kept with the rest";
  }
  manager->readData(NSData(frame));
  EXPECT_EQ(kept(), 0U);
}

TEST(SoakBuffer, GivesBackTheMemoryOfABacklogThatAFrameEnds) {
  Platform platform;
  platform.log = std::make_shared<SilentLog>();
  platform.notificationCenter = std::make_shared<NSNotificationCenter>();
  const auto manager = KestrinBleMgr::init(platform);
  manager->readData(NSData(Bytes(100'000, 0x00)));
  const std::size_t before = allocatedBytes();
  manager->readData(NSData(numberedFrame(1, {})));
  EXPECT_EQ(Peer::_mutableReceivedData(*manager)->length(), 0U);
  EXPECT_LT(allocatedBytes() + 90'000, before);
}

/// What an application can do about a peer that fills the buffer.
TEST(SoakBuffer, IsEmptiedByTheApplicationWhateverItHolds) {
  Platform platform;
  platform.log = std::make_shared<SilentLog>();
  platform.notificationCenter = std::make_shared<NSNotificationCenter>();
  const auto manager = KestrinBleMgr::init(platform);
  const auto kept = [&] { return Peer::_mutableReceivedData(*manager)->length(); };
  const Bytes frame = numberedFrame(1, {});
  // No frame waits for more than 1,022 bytes before one is looked at that may not be zero.
  const NSData remedy(joined({Bytes(1022, 0x00), frame}));
  const Bytes longest = {0xBB, 0x01, 0x00, 0x03, 0xFD};
  const std::vector<Bytes> contents = {
      Bytes(100'000, 0x00), Bytes(100'000, 0x7E),         {0xBB, 0xBB},
      {0xBB, 0x01, 0x00},   {0xBB, 0x01, 0x00, 0x03},     longest,
      part(frame, 0, 7),    joined({frame, Bytes(9, 1)}), joined({longest, Bytes(1021, 0x7E)})};
  for (const Bytes& content : contents) {
    manager->readData(NSData(content));
    ASSERT_GE(kept(), 2U);
    manager->readData(remedy);
    EXPECT_EQ(kept(), 0U) << "after " << NSData(part(content, 0, 5)).description();
  }
}

}  // namespace
}  // namespace kestrin::test
