// `--record` and `--json`: what is recorded of commands on a simulated radio, in virtual time.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "KestrinBLESDK/recording/RecordedManager.h"
#include "kestrin/Captured.h"
#include "kestrin/simulated/SimulatedPlatform.h"
#include "tools/kestrin/commands/Commands.h"
#include "tools/kestrin/radio/RecordedEnvironment.h"
#include "tools/kestrin/recording/ReadRecording.h"
#include "tools/kestrin/text/Hex.h"

namespace kestrin::app {
namespace {

using simulated::ReaderFamily;
using std::chrono::milliseconds;
using std::chrono::seconds;

class SimulatedTestEnvironment final : public RadioEnvironment {
 public:
  SimulatedTestEnvironment() : simulated_(options()) {}
  [[nodiscard]] Platform platform() const override { return simulated_.platform(); }
  [[nodiscard]] MainRunLoop& loop() const override { return simulated_.runLoop(); }
  [[nodiscard]] simulated::SimulatedRadio& radio() const { return simulated_.radio(); }

 private:
  static simulated::Options options() {
    simulated::Options options;
    options.virtualTime = true;
    options.log = logSink(false);
    return options;
  }
  simulated::SimulatedPlatform simulated_;
};

/// A file that is gone with the test.
class RecordedFile {
 public:
  RecordedFile() {
    std::string name = testing::TempDir() + "kestrin-record-XXXXXX";
    const int descriptor = ::mkstemp(name.data());
    EXPECT_GE(descriptor, 0);
    ::close(descriptor);
    path_ = name;
  }
  ~RecordedFile() { std::filesystem::remove(path_); }
  RecordedFile(const RecordedFile&) = delete;
  RecordedFile& operator=(const RecordedFile&) = delete;
  [[nodiscard]] const std::string& path() const { return path_; }

 private:
  std::string path_;
};

class Record : public testing::Test {
 protected:
  Record() : Record("") {}
  explicit Record(const std::string& file) {
    auto inner = std::make_unique<SimulatedTestEnvironment>();
    radio_ = &inner->radio();
    const RadioRequest request{.kind = RadioKind::simulated,
                               .adapter = std::nullopt,
                               .virtualTime = true,
                               .record = std::nullopt};
    recording_ = CommandRecording::open(file.empty() ? file_.path() : file,
                                        recordingHeader("test", request), captured_.console);
    environment_ = std::make_unique<RecordedEnvironment>(std::move(inner), recording_);
  }

  std::shared_ptr<simulated::VirtualPeripheral> addReader(const std::string& name,
                                                          ReaderFamily family) {
    return radio_->addReader(name, family);
  }
  int send(const std::string& name, const std::string& frame) {
    SendRequest request;
    request.name = name;
    EXPECT_TRUE(readFrames({frame}, request, captured_.console));
    return runSend(request, *environment_, captured_.console);
  }
  int monitor(const std::string& name, double duration) {
    return runMonitor({.name = name, .timeout = 30, .duration = duration}, *environment_,
                      captured_.console);
  }
  Recording recording() {
    const auto read = readRecordingFile(file_.path(), captured_.console);
    EXPECT_TRUE(read) << captured_.errors.text();
    return read.value_or(Recording());
  }
  std::vector<RecordedEvent> events() { return recording().events(); }
  std::vector<RecordedEvent> eventsOf(RecordedKind kind) {
    std::vector<RecordedEvent> found;
    for (const RecordedEvent& event : events()) {
      if (event.kind == kind) found.push_back(event);
    }
    return found;
  }
  std::string kinds() {
    std::string text;
    for (const RecordedEvent& event : events()) {
      if (event.kind == RecordedKind::log) continue;
      text += std::string(recordedKindInfo(event.kind).text) + "\n";
    }
    return text;
  }

  const RecordedFile file_;
  test::Captured captured_;
  simulated::SimulatedRadio* radio_ = nullptr;
  std::shared_ptr<CommandRecording> recording_;
  std::unique_ptr<RadioEnvironment> environment_;
};

class RecordWithoutRoom : public Record {
 protected:
  RecordWithoutRoom() : Record("/dev/full") {}
};

/// 45 bytes: two full slices and a remainder.
std::string longFrame() {
  std::string text = "BB 00 46 00 25";
  for (int i = 0; i < 37; ++i) text += " 00";
  return text + " 7E 00 00";
}

TEST_F(Record, HasTheLinkUpOfAStandardReaderInItsOrder) {
  addReader("KVR-1", ReaderFamily::standard);
  EXPECT_EQ(monitor("KVR-1", 0), kSuccess);
  EXPECT_EQ(kinds(),
            "call\nscan-status\nscan\nstate\nscan\nsighting\nreader\n"
            "call\nstop-scan\nconnect\nconnected\n"
            "discover-services\nservices\ndiscover-characteristics\ncharacteristics\n"
            "subscribe\ndelay-armed\ndelay-armed\nsubscription\n"
            "delay-fired\nwrite\nnotification\nnotification\nframe\n"
            "delay-fired\nplug\n"
            "call\ncancel\nstop-scan\nplug\ndisconnected\nplug\n");
}

TEST_F(Record, DelaysFireWhenTheyAreDue) {
  addReader("KVR-1", ReaderFamily::standard);
  EXPECT_EQ(monitor("KVR-1", 0), kSuccess);
  const auto armed = eventsOf(RecordedKind::delayArmed);
  const auto fired = eventsOf(RecordedKind::delayFired);
  ASSERT_EQ(armed.size(), 2U);
  ASSERT_EQ(fired.size(), 2U);
  EXPECT_EQ(armed[0].operation, "p_getReaderInfo");
  EXPECT_EQ(armed[0].seconds, milliseconds(500));
  EXPECT_EQ(fired[0].time - armed[0].time, milliseconds(500));
  EXPECT_EQ(armed[1].operation, "p_pluggedEvent");
  EXPECT_EQ(armed[1].seconds, seconds(2));
  EXPECT_EQ(fired[1].time - armed[1].time, seconds(2));
  EXPECT_EQ(fired[1].time, eventsOf(RecordedKind::plug).front().time);
}

TEST_F(Record, ARequestThatIsArmedAnewIsDroppedFirst) {
  addReader("KVR-Q62T 1", ReaderFamily::kvrQ62T);
  EXPECT_EQ(monitor("KVR", 0), kSuccess);
  // The plugged report alone, which each report of characteristics puts off.
  EXPECT_EQ(eventsOf(RecordedKind::delayArmed).size(),
            eventsOf(RecordedKind::characteristics).size());
  EXPECT_EQ(eventsOf(RecordedKind::delayCancelled).size(),
            eventsOf(RecordedKind::characteristics).size() - 1);
  ASSERT_EQ(eventsOf(RecordedKind::delayFired).size(), 1U);
  EXPECT_EQ(
      eventsOf(RecordedKind::delayFired)[0].time - eventsOf(RecordedKind::delayArmed).back().time,
      seconds(2));
}

TEST_F(Record, EachSliceIsAWriteAndEachFullOneHasAPause) {
  addReader("KVR-1", ReaderFamily::standard);
  EXPECT_EQ(send("KVR-1", longFrame()), kSuccess);
  auto writes = eventsOf(RecordedKind::write);
  ASSERT_EQ(writes.size(), 4U);  // The first asks for the reader's information.
  const auto pauses = eventsOf(RecordedKind::pause);
  ASSERT_EQ(pauses.size(), 2U);
  std::vector<std::uint8_t> sent;
  for (std::size_t i = 1; i < writes.size(); ++i) {
    sent.insert(sent.end(), writes[i].bytes->begin(), writes[i].bytes->end());
  }
  std::vector<std::uint8_t> frame;
  ASSERT_FALSE(appendHex(longFrame(), frame));
  EXPECT_EQ(sent, frame);
  for (const std::size_t i : {0U, 1U}) {
    EXPECT_EQ(pauses[i].seconds, milliseconds(50));
    EXPECT_EQ(pauses[i].time, writes[i + 1].time);
    EXPECT_EQ(writes[i + 2].time - writes[i + 1].time, milliseconds(50));
  }
  const auto calls = eventsOf(RecordedKind::call);
  const auto call = std::find_if(calls.begin(), calls.end(),
                                 [](const auto& event) { return event.operation == "send"; });
  ASSERT_NE(call, calls.end());
  EXPECT_EQ(call->bytes, frame);
  EXPECT_EQ(eventsOf(RecordedKind::sent).at(0).accepted, true);
}

TEST_F(Record, AReadIsAnsweredByAReadValueAndNoNotification) {
  addReader("KVR-Q62T 1", ReaderFamily::kvrQ62T);
  EXPECT_EQ(monitor("KVR", 0), kSuccess);
  EXPECT_EQ(eventsOf(RecordedKind::readValue).size(), eventsOf(RecordedKind::read).size());
  EXPECT_FALSE(eventsOf(RecordedKind::read).empty());
  for (const RecordedEvent& event : eventsOf(RecordedKind::readValue)) {
    EXPECT_EQ(event.characteristic, "2A29");
    EXPECT_TRUE(event.bytes);
  }
  EXPECT_TRUE(eventsOf(RecordedKind::notification).empty());
}

TEST_F(Record, ALostLinkIsTheErrorThatItEndedWith) {
  const auto reader = addReader("KVR-1", ReaderFamily::standard);
  environment_->loop().arm(seconds(4), [&] { reader->simulateLinkLoss(); });
  EXPECT_EQ(monitor("KVR-1", 5), kSuccess);
  const auto ends = eventsOf(RecordedKind::disconnected);
  ASSERT_EQ(ends.size(), 2U);
  EXPECT_TRUE(ends[0].error);
  EXPECT_FALSE(ends[1].error);  // That was asked for.
  EXPECT_EQ(eventsOf(RecordedKind::connected).size(), 2U);
}

TEST_F(Record, HasTheLogAndNotTheWatchOfTheRadio) {
  addReader("KVR-1", ReaderFamily::standard);
  EXPECT_EQ(runScan({.duration = 1.0, .json = false}, *environment_, captured_.console), kSuccess);
  const auto logs = eventsOf(RecordedKind::log);
  ASSERT_GE(logs.size(), 2U);
  EXPECT_EQ(logs[0].text, " CBManager is powered on");
  EXPECT_EQ(eventsOf(RecordedKind::state).size(), 1U);
}

TEST_F(Record, ADeviceIsTheSameObjectAtEachSighting) {
  addReader("KVR-1", ReaderFamily::standard);
  EXPECT_EQ(monitor("KVR-1", 0), kSuccess);
  // A reader that was accepted last is not reported by a further scan; the manager tells it by
  // identity.
  RecordedManager manager(environment_->platform());
  const auto delegate = std::make_shared<KestrinBLEProtocols>();
  manager.setDelegate(delegate);
  manager.scanBLE();
  environment_->loop().runFor(seconds(1));
  manager.scanBLE();
  environment_->loop().runFor(seconds(1));
  EXPECT_EQ(eventsOf(RecordedKind::reader).size(), 2U);
  EXPECT_EQ(eventsOf(RecordedKind::sighting).size(), 3U);
}

TEST_F(Record, TheFileIsWholeAfterEachEvent) {
  addReader("KVR-1", ReaderFamily::standard);
  std::size_t read = 0;
  environment_->loop().arm(milliseconds(1500), [&] { read = events().size(); });
  EXPECT_EQ(monitor("KVR-1", 0), kSuccess);
  const auto all = events();
  const auto before = std::count_if(all.begin(), all.end(), [](const RecordedEvent& event) {
    return event.time < milliseconds(1500);
  });
  EXPECT_EQ(read, static_cast<std::size_t>(before));
  EXPECT_GT(read, 15U);
  EXPECT_LT(read, all.size());
}

TEST_F(Record, WhatIsReplayedIsWhatTheApplicationGot) {
  addReader("KVR-1", ReaderFamily::standard);
  addReader("KVR-Q62T 1", ReaderFamily::kvrQ62T);
  EXPECT_EQ(send("KVR-1", "BB 00 03 00 01 B1 7E 65 97"), kSuccess);
  EXPECT_EQ(send("KVR-Q62T", "BB 00 03 00 01 B1 7E 65 97"), kSuccess);
  const auto frames = [](const std::string& output) {
    std::string found;
    for (std::size_t begin = 0; begin < output.size();) {
      const std::size_t end = output.find('\n', begin) + 1;
      if (output.compare(begin, 6, "FRAME ") == 0) found += output.substr(begin, end - begin);
      begin = end;
    }
    return found;
  };
  test::Captured replayed;
  EXPECT_EQ(runReplay(file_.path(), replayed.console), kSuccess);
  EXPECT_EQ(frames(replayed.output.text()), frames(captured_.output.text()));
  EXPECT_EQ(eventsOf(RecordedKind::frame).size(), 4U);
}

TEST_F(RecordWithoutRoom, TheCommandGoesOnAndTheFailureIsToldOnce) {
  addReader("KVR-1", ReaderFamily::standard);
  EXPECT_EQ(monitor("KVR-1", 0), kSuccess);
  EXPECT_NE(captured_.output.text().find("PLUGGED\n"), std::string::npos);
  EXPECT_FALSE(recording_->finish());
  EXPECT_EQ(captured_.errors.text(),
            "kestrin: --record '/dev/full': No space left on device; the recording ends here, the "
            "command goes on\n");
}

TEST_F(Record, JsonOutputHasTheFieldsOfTheRecording) {
  const auto reader = addReader("KVR-1\xFF", ReaderFamily::standard);
  SendRequest request;
  request.name = "KVR-1";
  request.json = true;
  request.frames = {{0xBB, 0x00, 0x03, 0x00, 0x01, 0xB1, 0x7E, 0x65, 0x97}};
  EXPECT_EQ(runSend(request, *environment_, captured_.console), kSuccess);
  const std::string output =
      "{\"format\":\"kestrin-recording\",\"version\":1}\n" + captured_.output.text();
  RecordingReader reading;
  Recording lines;
  ASSERT_FALSE(reading.take(output));
  ASSERT_FALSE(reading.finish(lines));
  std::vector<RecordedEvent> same;
  for (RecordedEvent event : events()) {
    const bool isPrinted = event.kind == RecordedKind::reader ||
                           event.kind == RecordedKind::frame || event.kind == RecordedKind::plug ||
                           event.kind == RecordedKind::sent;
    if (!isPrinted) continue;
    if (event.kind == RecordedKind::sent) event.bytes = request.frames[0];
    same.push_back(std::move(event));
  }
  std::vector<RecordedEvent> printed = lines.events();
  ASSERT_EQ(printed.size(), same.size());
  // That is the reader that is worked, as soon as it is clear which one that is.
  ASSERT_EQ(printed[0].kind, RecordedKind::reader);
  EXPECT_GE(printed[0].time, same[0].time);
  printed[0].time = same[0].time;
  EXPECT_EQ(printed, same);
}

}  // namespace
}  // namespace kestrin::app
