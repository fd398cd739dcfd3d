// Frames on their way out: the manager's own writes at its own times, without blocking.
#include "KestrinBLESDK/KestrinBleMgr.h"
#include "reader/ReaderTest.h"

namespace kestrin::test {
namespace {

using enum ReaderPhase;

/// Bytes 00, 01, 02 and so on.
NSData counting(std::size_t length) {
  std::vector<std::uint8_t> bytes(length);
  for (std::size_t i = 0; i < length; ++i) bytes[i] = static_cast<std::uint8_t>(i);
  return NSData(bytes);
}

/// What a device was written, when, from the first write on.
using Transcript = std::vector<std::string>;

/// The log's lines of writes, with the time from a beginning.
class WriteLog final : public NSLogSink {
 public:
  [[nodiscard]] bool isListening() const noexcept override { return true; }
  void write(std::string_view line) noexcept override {
    if (loop_ == nullptr || !line.starts_with("[TX BLE]")) return;
    lines_.push_back(std::to_string((loop_->now() - from_).count()) + " " + std::string(line));
  }
  void begin(const MainRunLoop& loop) {
    loop_ = &loop;
    from_ = loop.now();
    lines_.clear();
  }
  [[nodiscard]] const Transcript& lines() const { return lines_; }

 private:
  const MainRunLoop* loop_ = nullptr;
  Time from_{};
  Transcript lines_;
};

class Sending : public ReaderTest {
 protected:
  /// What is written, when, from now until ten seconds after `send`: the log has a line for each
  /// write, and the device has got the same.
  static Transcript record(simulated::SimulatedPlatform& platform, WriteLog& log,
                           const simulated::VirtualPeripheral& device,
                           const std::function<void()>& send) {
    const std::size_t before = device.writes().size();
    log.begin(platform.runLoop());
    send();
    platform.runLoop().runFor(seconds(10));
    Transcript lines = log.lines();
    const auto writes = device.writes();
    for (std::size_t i = before; i < writes.size(); ++i) {
      lines.push_back(writes[i].characteristic.UUIDString() + " type " +
                      std::to_string(static_cast<int>(writes[i].type)) + " " +
                      writes[i].value.description());
    }
    return lines;
  }
  /// The outcome of a `send`: "" for none yet, "sent", or the error's text.
  Reader::SendHandler into(std::string& outcome) {
    return [&outcome](const std::optional<NSError>& error) {
      EXPECT_EQ(outcome, "") << "called twice";
      outcome = error ? error->text : "sent";
    };
  }
};

struct ManagersOwn final : KestrinBLEProtocols, RcpReceiver {
  void scanningBleDeive(const std::shared_ptr<CBPeripheral>& device) noexcept override {
    manager->connectBLE(device);
  }
  void plugChangedStatus(bool status) noexcept override { plugged = status; }
  std::shared_ptr<KestrinBleMgr> manager;
  bool plugged = false;
};

TEST_F(Sending, WritesWhatTheManagerWritesWhenTheManagerWritesIt) {
  const auto managersLog = std::make_shared<WriteLog>();
  const auto readersLog = std::make_shared<WriteLog>();
  simulated::SimulatedPlatform forManager({.virtualTime = true, .log = managersLog});
  simulated::SimulatedPlatform forReader({.virtualTime = true, .log = readersLog});
  const auto managersDevice = forManager.radio().addReader("KVR-0417", ReaderFamily::standard);
  const auto readersDevice = forReader.radio().addReader("KVR-0417", ReaderFamily::standard);
  const auto own = std::make_shared<ManagersOwn>();
  own->manager = KestrinBleMgr::init(forManager.platform());
  own->manager->setDelegate(own);
  own->manager->setRcpReceiverDelegate(own);
  own->manager->scanBLE();
  forManager.runLoop().runFor(seconds(10));
  const auto reader = Reader::create(forReader.platform(), {});
  forReader.runLoop().runFor(seconds(10));
  ASSERT_TRUE(own->plugged);
  ASSERT_EQ(reader->phase(), pluggedIn);
  for (const std::size_t length : {0UL, 1UL, 19UL, 20UL, 21UL, 39UL, 40UL, 45UL, 101UL, 1029UL}) {
    const Transcript expected = record(forManager, *managersLog, *managersDevice,
                                       [&] { own->manager->send(counting(length)); });
    EXPECT_EQ(expected.size(), 2 * (length / 20 + 1));
    EXPECT_EQ(
        record(forReader, *readersLog, *readersDevice, [&] { reader->send(counting(length)); }),
        expected)
        << length;
  }
  // Frames that are handed over at once leave as if each had waited for the one before.
  const Transcript expected = record(forManager, *managersLog, *managersDevice, [&] {
    for (const std::size_t length : {40UL, 8UL, 25UL}) own->manager->send(counting(length));
  });
  EXPECT_EQ(record(forReader, *readersLog, *readersDevice,
                   [&] {
                     for (const std::size_t length : {40UL, 8UL, 25UL}) {
                       reader->send(counting(length));
                     }
                   }),
            expected);
}

TEST_F(Sending, CallsDoneInALaterTurnOnceTheLastSliceIsWritten) {
  const auto reader = plugged();
  std::string first;
  std::string second;
  const Time from = now();
  reader->send(counting(45), into(first));
  reader->send(counting(8), into(second));
  EXPECT_EQ(first, "");
  ASSERT_TRUE(loop().runUntil(from + seconds(1), [&] { return first == "sent"; }));
  EXPECT_EQ(now() - from, milliseconds(100));
  runFor(Time::zero());
  EXPECT_EQ(second, "sent");
}

TEST_F(Sending, NeedsNobodyWhoWantsToKnow) {
  const auto reader = plugged();
  reader->send(command_);
  reader->exchange(command_, seconds(1), {});
  reader->exchange(NSData(), seconds(1), {});
  runFor(seconds(2));
  EXPECT_EQ(heard_.frames.back(), answer_);
}

TEST_F(Sending, IsRefusedWhileTheReaderIsNotPluggedIn) {
  const auto reader = create();
  std::string outcome;
  reader->send(command_, into(outcome));
  EXPECT_EQ(outcome, "") << "in a later turn";
  runFor(Time::zero());
  EXPECT_EQ(outcome, "the reader is unplugged (searching); send when it is plugged in");
  ASSERT_TRUE(runUntil(*reader, linkingUp));
  outcome.clear();
  reader->send(command_, into(outcome));
  runFor(milliseconds(10));
  EXPECT_EQ(outcome, "the reader is unplugged (linkingUp); send when it is plugged in");
}

TEST_F(Sending, EndsWithTheLinkForEveryFrameThatWaits) {
  const auto reader = plugged();
  std::vector<std::string> outcomes(3);
  for (auto& outcome : outcomes) reader->send(counting(200), into(outcome));
  runFor(milliseconds(120));
  device_->simulateLinkLoss();
  ASSERT_TRUE(runUntil(*reader, lost));
  runFor(Time::zero());
  for (const auto& outcome : outcomes) {
    EXPECT_EQ(outcome, "the reader was unplugged before the frame was sent");
  }
  // What comes after begins at its own first slice.
  ASSERT_TRUE(runUntil(*reader, pluggedIn));
  const std::size_t before = device_->writes().size();
  std::string outcome;
  reader->send(counting(25), into(outcome));
  runFor(seconds(1));
  EXPECT_EQ(outcome, "sent");
  ASSERT_EQ(device_->writes().size(), before + 2);
  EXPECT_EQ(device_->writes()[before].value, counting(20));
}

TEST_F(Sending, EndsWithCloseAndLeavingAndTheRadio) {
  const std::function<void(Reader&)> kEnds[] = {[](Reader& reader) { reader.close(); },
                                                [](Reader& reader) { reader.leave(); },
                                                [this](Reader&) { power(false); }};
  for (const auto& end : kEnds) {
    heard_ = {};
    const auto reader = plugged();
    std::string outcome;
    reader->send(counting(200), into(outcome));
    end(*reader);
    runFor(seconds(1));
    EXPECT_EQ(outcome, "the reader was unplugged before the frame was sent");
    power(true);
    runFor(seconds(1));
  }
}

TEST_F(Sending, IsRefusedPastItsLimitAndTakesFramesAgainBelowIt) {
  const auto reader = plugged({.reader = "KVR-0417", .mostWaitingFrames = 2});
  std::vector<std::string> outcomes(3);
  for (auto& outcome : outcomes) reader->send(counting(45), into(outcome));
  runFor(Time::zero());
  EXPECT_EQ(outcomes[2], "2 frames wait to be sent already; send the next one when one is done");
  runFor(seconds(1));
  EXPECT_EQ(outcomes[0], "sent");
  EXPECT_EQ(outcomes[1], "sent");
  std::string outcome;
  reader->send(counting(45), into(outcome));
  runFor(seconds(1));
  EXPECT_EQ(outcome, "sent");
}

TEST_F(Sending, HandsOverTheErrorOfTheLastSlice) {
  device_->simulateProperties(simulated::readerCharacteristics(ReaderFamily::standard).tx, 0x12);
  const auto reader = plugged();
  std::string outcome;
  reader->send(counting(45), into(outcome));
  runFor(seconds(1));
  EXPECT_EQ(outcome, "the reader has no characteristic that can be written");
}

TEST_F(Sending, GoesOnFromInsideADone) {
  const auto reader = plugged();
  std::vector<std::string> order;
  reader->send(command_, [&](const auto&) {
    order.emplace_back("first");
    reader->send(command_, [&](const auto&) { order.emplace_back("second"); });
  });
  runFor(seconds(1));
  EXPECT_EQ(order, (std::vector<std::string>{"first", "second"}));
}

TEST_F(Sending, FromInsideALineOfTheLogComesBehindWhatIsBeingWritten) {
  class SendingLog final : public NSLogSink {
   public:
    [[nodiscard]] bool isListening() const noexcept override { return true; }
    void write(std::string_view line) noexcept override {
      if (!line.starts_with("[TX BLE]") || reader == nullptr) return;
      std::exchange(reader, nullptr)->send(counting(5));
    }
    Reader* reader = nullptr;
  };
  const auto log = std::make_shared<SendingLog>();
  Platform platform = simulated_.platform();
  platform.log = log;
  const auto reader = Reader::create(platform, {});
  ASSERT_TRUE(runUntil(*reader, pluggedIn));
  const std::size_t before = device_->writes().size();
  log->reader = reader.get();
  reader->send(counting(10));
  runFor(seconds(1));
  ASSERT_EQ(device_->writes().size(), before + 2);
  EXPECT_EQ(device_->writes()[before].value, counting(10));
  EXPECT_EQ(device_->writes()[before + 1].value, counting(5));
}

TEST_F(Sending, EndsWithACloseFromInsideTheLineAboutASlice) {
  class ClosingLog final : public NSLogSink {
   public:
    [[nodiscard]] bool isListening() const noexcept override { return true; }
    void write(std::string_view line) noexcept override {
      if (!line.starts_with("[TX BLE]") || reader == nullptr) return;
      std::exchange(reader, nullptr)->close();
    }
    Reader* reader = nullptr;
  };
  const auto log = std::make_shared<ClosingLog>();
  Platform platform = simulated_.platform();
  platform.log = log;
  for (const std::size_t length : {25U, 45U}) {
    const auto reader = Reader::create(platform, {});
    ASSERT_TRUE(runUntil(*reader, pluggedIn));
    std::vector<std::string> outcomes(2);
    for (auto& outcome : outcomes) reader->send(counting(length), into(outcome));
    log->reader = reader.get();  // At the second slice, which is the last of 25 bytes.
    runFor(seconds(1));
    EXPECT_EQ(reader->phase(), closed);
    for (const auto& outcome : outcomes) {
      EXPECT_EQ(outcome, "the reader was unplugged before the frame was sent");
    }
  }
}

TEST_F(Sending, CarriesOnAtItsPaceWhenTheLoopWasLate) {
  const auto reader = plugged();
  std::string outcome;
  reader->send(counting(45), into(outcome));
  // Somebody holds the thread for longer than a pause.
  loop().post([&] { loop().sleepFor(milliseconds(400)); });
  const Time from = now();
  ASSERT_TRUE(loop().runUntil(from + seconds(1), [&] { return outcome == "sent"; }));
  EXPECT_GE(now() - from, milliseconds(450));
}

}  // namespace
}  // namespace kestrin::test
