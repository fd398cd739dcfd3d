// A recording of an application's own: a wrapped platform, whatever uses it.
#include <KestrinBLESDK/KestrinBleMgr.h>
#include <KestrinBLESDK/recording/RecordedManager.h>
#include <KestrinBLESDK/recording/RecordedPlatform.h>
#include <KestrinBLESDK/recording/RecordingStream.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "kestrin/simulated/SimulatedPlatform.h"

namespace kestrin {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

class Events final : public RecordingSink {
 public:
  void take(const RecordedEvent& event) noexcept override { all.push_back(event); }
  [[nodiscard]] std::string kinds() const {
    std::string text;
    for (const RecordedEvent& event : all) {
      if (event.kind != RecordedKind::log) {
        text += std::string(recordedKindInfo(event.kind).text) + ' ';
      }
    }
    return text;
  }
  std::vector<RecordedEvent> all;
};

class SilentLog final : public NSLogSink {
 public:
  void write(std::string_view /*line*/) noexcept override {}
};

/// Connects to the first reader and sends one frame when it is plugged in.
template <class Manager>
struct Application final : KestrinBLEProtocols, RcpReceiver {
  void scanningBleDeive(const std::shared_ptr<CBPeripheral>& reader) noexcept override {
    manager->connectBLE(reader);
  }
  void plugChangedStatus(bool plugged) noexcept override {
    if (plugged) accepted = manager->send(buildRcpFrame(0x00, 0x22, {}));
  }
  void dispatchRcpFrmReader(const std::optional<NSData>& /*frame*/) noexcept override { ++frames; }
  Manager* manager = nullptr;
  bool accepted = false;
  int frames = 0;
};

class RecordedApplication : public testing::Test {
 protected:
  RecordedApplication() {
    reader_ = simulated_.radio().addReader("KVR-0417", simulated::ReaderFamily::standard);
  }
  template <class Manager>
  void work(Manager& manager) {
    const auto application = std::make_shared<Application<Manager>>();
    application->manager = &manager;
    manager.setDelegate(application);
    manager.setRcpReceiverDelegate(application);
    manager.scanBLE();
    simulated_.runLoop().runFor(seconds(5));
    EXPECT_TRUE(application->accepted);
    EXPECT_EQ(application->frames, 2) << "the reader's information and what was sent for";
    manager.close();
    simulated_.runLoop().runFor(seconds(1));
  }

  static simulated::Options options() {
    simulated::Options options;
    options.virtualTime = true;
    options.log = std::make_shared<SilentLog>();
    return options;
  }

  simulated::SimulatedPlatform simulated_{options()};
  std::shared_ptr<simulated::VirtualPeripheral> reader_;
  const std::shared_ptr<Events> events_ = std::make_shared<Events>();
};

constexpr char kAskedOfTheRadio[] =
    "scan state scan sighting stop-scan connect connected discover-services services "
    "discover-characteristics characteristics subscribe delay-armed delay-armed subscription "
    "delay-fired write notification notification delay-fired write notification "
    "cancel stop-scan disconnected ";

TEST_F(RecordedApplication, AWrappedPlatformAloneRecordsWhatAManagerDoes) {
  const RecordedPlatform recorded = recordedPlatform(simulated_.platform(), events_);
  const auto manager = KestrinBleMgr::init(recorded.platform);
  work(*manager);
  EXPECT_EQ(events_->kinds(), kAskedOfTheRadio);
}

TEST_F(RecordedApplication, ARecordedManagerAddsCallsAndCallbacksAndNothingElse) {
  const RecordedPlatform recorded = recordedPlatform(simulated_.platform(), events_);
  RecordedManager manager(recorded.platform);
  work(manager);
  std::erase_if(events_->all,
                [](const RecordedEvent& event) { return event.kind <= RecordedKind::frame; });
  EXPECT_EQ(events_->kinds(), kAskedOfTheRadio);
}

TEST_F(RecordedApplication, CallsAndCallbacksAreInTheirOrder) {
  const RecordedPlatform recorded = recordedPlatform(simulated_.platform(), events_);
  RecordedManager manager(recorded.platform);
  work(manager);
  std::erase_if(events_->all,
                [](const RecordedEvent& event) { return event.kind > RecordedKind::frame; });
  EXPECT_EQ(events_->kinds(),
            "call scan-status reader call frame plug call sent frame call plug plug ");
}

TEST_F(RecordedApplication, OnAPlatformThatDoesNotRecordARecordedManagerOnlyPassesOn) {
  RecordedManager manager(simulated_.platform());
  work(manager);
  EXPECT_TRUE(events_->all.empty());
}

TEST_F(RecordedApplication, WithoutASinkThePlatformStaysAsItIs) {
  const RecordedPlatform recorded = recordedPlatform(simulated_.platform(), nullptr);
  EXPECT_EQ(recorded.platform.radio, simulated_.platform().radio);
  EXPECT_EQ(recorded.platform.mainRunLoop.lock(), simulated_.platform().mainRunLoop.lock());
  EXPECT_EQ(recorded.keep, nullptr);
}

TEST_F(RecordedApplication, TimeCountsFromTheWrapping) {
  simulated_.runLoop().runFor(seconds(7));
  const RecordedPlatform recorded = recordedPlatform(simulated_.platform(), events_);
  RecordedManager manager(recorded.platform);
  simulated_.runLoop().runFor(milliseconds(1500));
  manager.scanBLE();
  ASSERT_FALSE(events_->all.empty());
  EXPECT_EQ(events_->all.front().time, milliseconds(1500));
}

TEST_F(RecordedApplication, AReadAndADelayThatIsDroppedAreRecorded) {
  simulated::SimulatedPlatform simulated(options());
  simulated.radio().addReader("KVR-Q62T 1", simulated::ReaderFamily::kvrQ62T);
  const RecordedPlatform recorded = recordedPlatform(simulated.platform(), events_);
  RecordedManager manager(recorded.platform);
  const auto application = std::make_shared<Application<RecordedManager>>();
  application->manager = &manager;
  manager.setDelegate(application);
  manager.scanBLE();
  simulated.runLoop().runFor(seconds(5));
  EXPECT_TRUE(manager.open());
  EXPECT_EQ(manager.pripheral()->name(), "KVR-Q62T 1");
  const auto count = [&](RecordedKind kind) {
    return std::count_if(events_->all.begin(), events_->all.end(),
                         [&](const RecordedEvent& event) { return event.kind == kind; });
  };
  EXPECT_GT(count(RecordedKind::read), 0);
  EXPECT_EQ(count(RecordedKind::readValue), count(RecordedKind::read));
  EXPECT_EQ(count(RecordedKind::notification), 0);
  EXPECT_GT(count(RecordedKind::delayCancelled), 0);
  EXPECT_EQ(count(RecordedKind::delayArmed), count(RecordedKind::delayCancelled) + 1);
}

TEST_F(RecordedApplication, AFullSliceHasItsPauseAndALostLinkItsError) {
  const RecordedPlatform recorded = recordedPlatform(simulated_.platform(), events_);
  RecordedManager manager(recorded.platform);
  const auto application = std::make_shared<Application<RecordedManager>>();
  application->manager = &manager;
  manager.setDelegate(application);
  manager.scanBLE();
  simulated_.runLoop().runFor(seconds(5));
  EXPECT_TRUE(manager.send(buildRcpFrame(0x00, 0x46, std::vector<std::uint8_t>(20))));
  reader_->simulateLinkLoss();
  simulated_.runLoop().runFor(seconds(1));
  manager.stopSacnBLE();
  const auto first = [&](RecordedKind kind) {
    const auto found = std::find_if(events_->all.begin(), events_->all.end(),
                                    [&](const RecordedEvent& event) { return event.kind == kind; });
    return found == events_->all.end() ? RecordedEvent() : *found;
  };
  EXPECT_EQ(first(RecordedKind::pause).seconds, milliseconds(50));
  const auto lastWrite =
      std::find_if(events_->all.rbegin(), events_->all.rend(),
                   [](const RecordedEvent& event) { return event.kind == RecordedKind::write; });
  ASSERT_NE(lastWrite, events_->all.rend());
  EXPECT_EQ(lastWrite->time - first(RecordedKind::pause).time, milliseconds(50));
  EXPECT_EQ(first(RecordedKind::sent).accepted, true);
  EXPECT_TRUE(first(RecordedKind::disconnected).error);
  const std::vector<std::uint8_t> none;
  std::string calls;
  for (const RecordedEvent& event : events_->all) {
    if (event.kind == RecordedKind::call) calls += *event.operation + ' ';
    if (event.operation == "send") {
      EXPECT_EQ(event.bytes.value_or(none).size(), 28U);
    }
  }
  EXPECT_EQ(calls, "scanBLE connectBLE send stopSacnBLE ");
}

TEST_F(RecordedApplication, TheRecordingRunLoopPassesOnWhatIsNoRequest) {
  const RecordedPlatform recorded = recordedPlatform(simulated_.platform(), events_);
  RunLoop& loop = *recorded.keep;
  std::string ran;
  loop.post([&] { ran += "posted "; });
  loop.arm(seconds(1), [&] { ran += "armed "; });
  loop.cancel(loop.arm(seconds(1), [&] { ran += "cancelled "; }));
  simulated_.runLoop().runFor(seconds(2));
  EXPECT_EQ(ran, "posted armed ");
  EXPECT_EQ(loop.now(), simulated_.runLoop().now());
  EXPECT_TRUE(events_->all.empty());
}

TEST_F(RecordedApplication, TheReasonOfTheRadioIsPassedOn) {
  const RecordedPlatform recorded = recordedPlatform(simulated_.platform(), events_);
  simulated_.radio().simulateState(CBManagerState::poweredOff);
  EXPECT_EQ(recorded.platform.radio->stateReason(), simulated_.radio().stateReason());
  EXPECT_FALSE(recorded.platform.radio->stateReason().empty());
}

TEST(RecordedEvents, KindsAreFoundByTheirNames) {
  for (const RecordedKindInfo& info : recordedKinds()) {
    EXPECT_EQ(findRecordedKind(info.text), &info);
    EXPECT_EQ(&recordedKindInfo(info.kind), &info);
  }
  EXPECT_EQ(findRecordedKind("no kind"), nullptr);
  EXPECT_EQ(recordedDirection(RecordedDirection::out), "out");
  EXPECT_EQ(recordedDirection(RecordedDirection::in), "in");
  EXPECT_EQ(recordedDirection(RecordedDirection::self), "self");
}

TEST(RecordedEvents, StatesAndPropertiesHaveNames) {
  std::string states;
  for (const auto state :
       {CBManagerState::unknown, CBManagerState::resetting, CBManagerState::unsupported,
        CBManagerState::unauthorized, CBManagerState::poweredOff, CBManagerState::poweredOn,
        static_cast<CBManagerState>(9)}) {
    states += recordedState(state) + ' ';
  }
  EXPECT_EQ(states, "unknown resetting unsupported unauthorized powered-off powered-on 9 ");
  EXPECT_EQ(recordedProperties(0x1A), "read+write+notify");
  EXPECT_EQ(recordedProperties(0), "none");
}

TEST(RecordedEvents, TheStartIsATimeInUtc) {
  const std::string now = utcNow();
  ASSERT_EQ(now.size(), std::string("2026-01-31T12:00:00Z").size());
  EXPECT_EQ(now[4], '-');
  EXPECT_EQ(now[10], 'T');
  EXPECT_EQ(now.back(), 'Z');
}

RecordedEvent pauseAt(Time time) {
  RecordedEvent event;
  event.kind = RecordedKind::pause;
  event.time = time;
  event.seconds = milliseconds(50);
  return event;
}

TEST(RecordingStream, HasTheHeaderAndEachEventAtOnceAndNoTimeGoesBack) {
  std::ostringstream text;
  const RecordingHeader header{.program = "test 1", .radio = "simulated"};
  RecordingStream recording(text, header);
  EXPECT_EQ(text.str(), recordingLine(header) + "\n");
  recording.take(pauseAt(seconds(2)));
  recording.take(pauseAt(seconds(1)));
  EXPECT_TRUE(recording.isWhole());
  const std::string later = recordingLine(pauseAt(seconds(2))) + "\n";
  EXPECT_EQ(text.str(), recordingLine(header) + "\n" + later + later);
}

TEST(RecordingStream, AFileThatIsNotThereOrFullMakesNoWholeRecording) {
  for (const char* const path : {"/no/such/folder/file", "/dev/full"}) {
    std::ofstream file(path);
    RecordingStream recording(file, {});
    EXPECT_FALSE(recording.isWhole()) << path;
    recording.take(pauseAt(seconds(1)));
    EXPECT_FALSE(recording.isWhole()) << path;
  }
}

TEST(RecordingStream, AStreamThatThrowsEndsTheRecordingAndNothingElse) {
  std::ofstream file("/dev/full");
  file.exceptions(std::ios::badbit);
  RecordingStream recording(file, {});
  EXPECT_FALSE(recording.isWhole());
}

}  // namespace
}  // namespace kestrin
