// The simulated platform with a whole manager on it.
#include "kestrin/simulated/SimulatedPlatform.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "KestrinBLESDK/KestrinBleMgr.h"

namespace kestrin::simulated {
namespace {

using namespace std::chrono_literals;

/// An application: records what it is told, and connects to the first reader whose name fits.
class Application final : public KestrinBLEProtocols, public RcpReceiver {
 public:
  Application(std::shared_ptr<KestrinBleMgr> manager, std::string wanted)
      : manager_(std::move(manager)), wanted_(std::move(wanted)) {}

  void scanningBleDeive(const std::shared_ptr<CBPeripheral>& peripheral) noexcept override {
    names.push_back(peripheral->name().value());
    if (peripheral->name() == wanted_) manager_->connectBLE(peripheral);
  }
  void plugChangedStatus(bool isPlugged) noexcept override { plugs.push_back(isPlugged); }
  void dispatchRcpFrmReader(const std::optional<NSData>& frame) noexcept override {
    frames.push_back(frame.value());
  }

  std::vector<std::string> names;
  std::vector<bool> plugs;
  std::vector<NSData> frames;

 private:
  const std::shared_ptr<KestrinBleMgr> manager_;
  const std::string wanted_;
};

class SilentLog final : public NSLogSink {
 public:
  [[nodiscard]] bool isListening() const noexcept override { return false; }
  void write(std::string_view) noexcept override {}
};

class PlatformTest : public testing::Test {
 protected:
  void plugIn(const std::string& name) {
    manager = KestrinBleMgr::init(simulated.platform());
    application = std::make_shared<Application>(manager, name);
    manager->setDelegate(application);
    manager->setRcpReceiverDelegate(application);
    manager->scanBLE();
    ASSERT_TRUE(simulated.runLoop().runUntil(1min, [this] { return !application->plugs.empty(); }));
    EXPECT_TRUE(application->plugs.front());
  }

  SimulatedPlatform simulated{{.virtualTime = true, .log = std::make_shared<SilentLog>()}};
  std::shared_ptr<KestrinBleMgr> manager;
  std::shared_ptr<Application> application;
};

TEST_F(PlatformTest, AManagerWorksAStandardReaderFromScanToClose) {
  simulated.radio().addPeripheral("Lamp");
  simulated.radio().addPeripheral(std::nullopt);
  const auto reader = simulated.radio().addReader("KVR-1", ReaderFamily::standard);
  plugIn("KVR-1");
  EXPECT_EQ(application->names, std::vector<std::string>{"KVR-1"});
  EXPECT_EQ(application->frames, std::vector<NSData>{readerInfoReply()});

  const std::vector<std::uint8_t> payload(37, 0xBB);
  EXPECT_TRUE(manager->send(buildRcpFrame(0, 0x22, payload).value()));
  simulated.runLoop().run();
  ASSERT_EQ(reader->writes().size(), 4U) << "get-reader-info and 45 bytes in three slices";
  EXPECT_EQ(reader->writes()[3].value.length(), 5U);
  ASSERT_EQ(application->frames.size(), 2U);
  EXPECT_EQ(application->frames[1], buildRcpFrame(1, 0x22, payload).value());

  manager->close();
  simulated.runLoop().run();
  EXPECT_EQ(application->plugs, (std::vector<bool>{true, false, false}));
  EXPECT_FALSE(reader->connected());
}

TEST_F(PlatformTest, AManagerWorksAKvrQ62TReader) {
  const auto reader = simulated.radio().addReader("KVR-Q62T 0012", ReaderFamily::kvrQ62T);
  plugIn("KVR-Q62T 0012");
  EXPECT_TRUE(application->frames.empty());
  EXPECT_EQ(reader->subscriptions(), (std::vector<CBUUID>{CBUUID(0xFFF1), CBUUID(0xFFF2)}));
  const NSData frame = buildRcpFrame(0, 0x22, std::vector<std::uint8_t>{1, 2, 3}).value();
  EXPECT_TRUE(manager->send(frame));
  simulated.runLoop().run();
  EXPECT_EQ(
      application->frames,
      std::vector<NSData>{buildRcpFrame(1, 0x22, std::vector<std::uint8_t>{1, 2, 3}).value()});
}

TEST_F(PlatformTest, ALostLinkReachesTheApplication) {
  const auto reader = simulated.radio().addReader("KVR-1", ReaderFamily::standard);
  plugIn("KVR-1");
  reader->simulateLinkLoss();
  simulated.runLoop().run();
  EXPECT_EQ(application->plugs, (std::vector<bool>{true, false}));
}

TEST_F(PlatformTest, TheBackgroundNotificationOfThisPlatformClosesTheLink) {
  const auto reader = simulated.radio().addReader("KVR-1", ReaderFamily::standard);
  plugIn("KVR-1");
  NSNotificationCenter::defaultCenter()->postNotificationName_object(
      UIApplicationDidEnterBackgroundNotification);
  simulated.runLoop().run();
  EXPECT_TRUE(reader->connected()) << "another platform's centre";
  simulated.notificationCenter().postNotificationName_object(
      UIApplicationDidEnterBackgroundNotification);
  simulated.runLoop().run();
  EXPECT_FALSE(reader->connected());
}

TEST(SimulatedPlatform, AManagerMayOutliveIt) {
  std::shared_ptr<KestrinBleMgr> manager;
  {
    SimulatedPlatform simulated({.virtualTime = true, .log = std::make_shared<SilentLog>()});
    simulated.radio().addReader("KVR-1", ReaderFamily::standard);
    manager = KestrinBleMgr::init(simulated.platform());
    manager->scanBLE();
    simulated.runLoop().runFor(50ms);
  }
  EXPECT_TRUE(manager->scanBLE());
  manager->close();
  const std::weak_ptr<KestrinBleMgr> gone = manager;
  manager.reset();
  EXPECT_TRUE(gone.expired());
}

TEST(SimulatedPlatform, EverythingIsReleasedWithTheLastHolder) {
  std::weak_ptr<Radio> radio;
  std::weak_ptr<RunLoop> loop;
  std::weak_ptr<CBPeripheral> peripheral;
  {
    SimulatedPlatform simulated({.virtualTime = true, .log = std::make_shared<SilentLog>()});
    const auto reader = simulated.radio().addReader("KVR-1", ReaderFamily::standard);
    const auto manager = KestrinBleMgr::init(simulated.platform());
    const auto application = std::make_shared<Application>(manager, "KVR-1");
    manager->setDelegate(application);
    manager->scanBLE();
    // Stops in the middle of everything, with work pending.
    simulated.runLoop().runFor(1s);
    ASSERT_TRUE(reader->connected());
    radio = simulated.platform().radio;
    loop = simulated.platform().mainRunLoop;
    peripheral = reader->peripheral();
  }
  EXPECT_TRUE(radio.expired());
  EXPECT_TRUE(loop.expired());
  EXPECT_TRUE(peripheral.expired());
}

TEST(SimulatedPlatform, RealAndVirtualTimeAreAChoice) {
  const SimulatedPlatform real;
  const SimulatedPlatform simulated({.virtualTime = true});
  EXPECT_EQ(simulated.runLoop().now(), Time::zero());
  EXPECT_GT(real.runLoop().now(), Time::zero());
}

TEST(Install, TheInstalledRadioIsTheSystemDefaultOne) {
  const auto radio = install({.state = CBManagerState::poweredOff});
  const Platform system = Platform::systemDefault();
  EXPECT_EQ(system.radio->stateReason(), radio->stateReason());
  EXPECT_NE(system.radio->stateReason(), "");
  radio->simulateState(CBManagerState::poweredOn);
  EXPECT_EQ(system.radio->stateReason(), "");
  EXPECT_EQ(system.mainRunLoop.lock(), MainRunLoop::main());
  Platform::installRadio(nullptr);
}

}  // namespace
}  // namespace kestrin::simulated
