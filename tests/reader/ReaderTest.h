// A reader on the simulated radio, in virtual time, and a list of everything that it calls.
//
// Threads: one. Lifetime: the test's. Errors: a test that leaves its reader in an impossible phase
// fails.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "KestrinBLESDK/Reader.h"
#include "KestrinBLESDK/recording/RecordedPlatform.h"
#include "kestrin/simulated/SimulatedPlatform.h"

namespace kestrin::test {

using simulated::ReaderFamily;
using std::chrono::milliseconds;
using std::chrono::seconds;

class SilentLog final : public NSLogSink {
 public:
  [[nodiscard]] bool isListening() const noexcept override { return false; }
  void write(std::string_view /*line*/) noexcept override {}
};

/// Makes its call, once, inside the line that begins with `at`.
class CallingLog final : public NSLogSink {
 public:
  explicit CallingLog(std::string at, int passed = 0) : at_(std::move(at)), passed_(passed) {}
  [[nodiscard]] bool isListening() const noexcept override { return true; }
  void write(std::string_view line) noexcept override {
    if (!call || !line.starts_with(at_) || passed_-- > 0) return;
    std::exchange(call, nullptr)();
  }
  std::function<void()> call;

 private:
  const std::string at_;
  int passed_;  // How many such lines pass first, once there is a call.
};

inline NSData frameOf(std::uint8_t type, std::uint8_t code,
                      const std::vector<std::uint8_t>& payload) {
  return buildRcpFrame(type, code, payload).value_or(NSData());
}

/// What a reader has called, a word or a line each.
struct Heard {
  std::vector<ReaderPhase> phases;
  std::vector<NSData> frames;
  std::vector<NSData> values;
  std::vector<NSError> troubles;
  std::size_t seen = 0;

  /// Handlers that keep this list; it must outlive their reader. Each phase must be one that may
  /// follow the last.
  ReaderHandlers handlers() {
    return {.onPhase =
                [this](Reader& reader, ReaderPhase phase) {
                  EXPECT_EQ(reader.phase(), phase);
                  EXPECT_TRUE(mayFollow(last, phase)) << nameOf(last) << " to " << nameOf(phase);
                  last = phase;
                  phases.push_back(phase);
                },
            .onFrame =
                [this](Reader&, const RcpFrame& frame) {
                  const auto again = parseRcpFrame(frame.bytes);
                  ASSERT_TRUE(again);
                  EXPECT_EQ(again->code, frame.code);
                  frames.emplace_back(frame.bytes);
                },
            .onValue = [this](Reader&, const NSData& value) { values.push_back(value); },
            .onTrouble = [this](Reader&, const NSError& trouble) { troubles.push_back(trouble); },
            .onSeen = [this](Reader&) { ++seen; }};
  }
  [[nodiscard]] ReaderError trouble() const {
    return troubles.empty() ? ReaderError{} : static_cast<ReaderError>(troubles.back().code);
  }

  ReaderPhase last = ReaderPhase::searching;
};

/// What a reader asks of the radio and of its manager, a word each.
class Requests final : public RecordingSink {
 public:
  void take(const RecordedEvent& event) noexcept override {
    if (event.kind == RecordedKind::call && event.operation == "close") words += "close ";
    if (event.kind == RecordedKind::scan) words += "scan ";
    if (event.kind == RecordedKind::stopScan) words += "stopScan ";
    if (event.kind == RecordedKind::connect) words += "connect ";
    if (event.kind == RecordedKind::cancel) words += "cancel ";
  }
  std::string words;
};

/// A radio that gives one reason for every state.
class OneReason final : public Radio {
 public:
  OneReason(std::shared_ptr<Radio> radio, std::string reason)
      : radio_(std::move(radio)), reason_(std::move(reason)) {}
  std::shared_ptr<CBCentralManager> initWithDelegate_queue(
      std::weak_ptr<CBCentralManagerDelegate> delegate, std::shared_ptr<RunLoop> queue) override {
    return radio_->initWithDelegate_queue(std::move(delegate), std::move(queue));
  }
  [[nodiscard]] std::string stateReason() const override { return reason_; }

 private:
  const std::shared_ptr<Radio> radio_;
  const std::string reason_;
};

class ReaderTest : public testing::Test {
 protected:
  static simulated::Options options() {
    simulated::Options options;
    options.virtualTime = true;
    options.log = std::make_shared<SilentLog>();
    return options;
  }
  std::unique_ptr<Reader> create(ReaderOptions wanted = {.reader = "KVR-0417"}) {
    NSError error;
    auto reader =
        Reader::create(simulated_.platform(), std::move(wanted), heard_.handlers(), &error);
    EXPECT_NE(reader, nullptr) << error.text;
    return reader;
  }
  /// A reader that is plugged in.
  std::unique_ptr<Reader> plugged(ReaderOptions wanted = {.reader = "KVR-0417"}) {
    auto reader = create(std::move(wanted));
    EXPECT_TRUE(runUntil(*reader, ReaderPhase::pluggedIn)) << nameOf(reader->phase());
    return reader;
  }
  bool runUntil(const Reader& reader, ReaderPhase phase, Time limit = seconds(30)) {
    return loop().runUntil(timeAfter(now(), limit), [&] { return reader.phase() == phase; });
  }
  void runFor(Time span) { loop().runFor(span); }
  [[nodiscard]] MainRunLoop& loop() { return simulated_.runLoop(); }
  [[nodiscard]] Time now() { return loop().now(); }
  void power(bool on) {
    simulated_.radio().simulateState(on ? CBManagerState::poweredOn : CBManagerState::poweredOff);
  }

  simulated::SimulatedPlatform simulated_{options()};
  const std::shared_ptr<simulated::VirtualPeripheral> device_ =
      simulated_.radio().addReader("KVR-0417", ReaderFamily::standard);
  Heard heard_;
  const NSData command_ = frameOf(0x00, 0x22, {1, 2, 3});
  const NSData answer_ = frameOf(0x01, 0x22, {1, 2, 3});
};

/// The ways from one phase to another.
class Phase : public ReaderTest {};

}  // namespace kestrin::test
