// The fixture of tests of the whole radio: a bus and a daemon of the test's own, and time that
// passes only when the test says so.
//
// Threads: the test's. Lifetime: one per test. Errors: fail the test.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "BluezRadio.h"
#include "KestrinBLESDK/platform/MainRunLoop.h"
#include "radios/bluez/PrivateBus.h"
#include "radios/bluez/StandInDaemon.h"
#include "radios/contract/EventRecorder.h"

namespace kestrin::bluez::test {

using kestrin::test::Event;
using kestrin::test::EventKind;
using kestrin::test::EventRecorder;
using namespace std::chrono_literals;

/// Time that the test moves on.
class HandClock final : public Clock {
 public:
  [[nodiscard]] Time now() const override { return Time(now_.load()); }
  void sleepFor(Time duration) override { now_ += duration.count(); }
  [[nodiscard]] bool passesByItself() const noexcept override { return false; }
  void wait(std::condition_variable&, std::unique_lock<std::mutex>&, std::optional<Time>) override {
  }

 private:
  std::atomic<Time::rep> now_ = 0;
};

class BluezRadioTest : public testing::Test {
 public:
  ~BluezRadioTest() override;
  BluezRadioTest(const BluezRadioTest&) = delete;
  BluezRadioTest& operator=(const BluezRadioTest&) = delete;

 protected:
  explicit BluezRadioTest(PrivateBus::Policy policy = PrivateBus::Policy::open);

  void startDaemon(const std::function<void(BusService&)>& prepare = {});
  /// As SIGKILL does: the name is gone, nothing else is said.
  void killDaemon() { daemon.reset(); }
  void startRadio(std::optional<std::string> adapter = std::nullopt);
  std::shared_ptr<CBCentralManager> makeCentral();
  /// A powered-on central manager, over a daemon with a powered adapter.
  void start();
  /// `start`, a scan that finds the reader, and the end of the scan.
  void findReader();
  /// `findReader`, then connects without finding services.
  void connect();
  /// `connect`, then services and both characteristics.
  void linkUp();
  void resolveServices();
  void discoverCharacteristics();
  void subscribe();

  /// Turns the main run loop until `done` returns true; false when that takes far too long.
  bool waitFor(const std::function<bool()>& done);
  bool waitForCount(EventKind kind, std::size_t count);
  /// Waits until the radio's thread has heard all that was asked and said before; the main run loop
  /// does not turn.
  void exchange();
  /// Waits until all that was asked and said before has been heard, and what that brings about.
  void settle();
  /// Moves the radio's time on, timer by timer as it would have passed, and settles.
  void pass(Time span);
  [[nodiscard]] std::size_t count(EventKind kind) const { return recorder->count(kind); }
  [[nodiscard]] std::vector<CBManagerState> states() const;
  [[nodiscard]] std::vector<NSData> values() const;
  [[nodiscard]] CBPeripheral& reader() const { return *peripheral; }

  PrivateBus bus;
  std::shared_ptr<HandClock> clock = std::make_shared<HandClock>();
  std::shared_ptr<MainRunLoop> loop = std::make_shared<MainRunLoop>();
  std::shared_ptr<EventRecorder> recorder = std::make_shared<EventRecorder>();
  std::unique_ptr<StandInDaemon> daemon;
  /// As `Options::linkNames`; before the radio is started.
  std::optional<std::string> linkNames;
  std::shared_ptr<Session> session;
  std::shared_ptr<Radio> radio;
  std::shared_ptr<CBCentralManager> central;
  std::shared_ptr<CBPeripheral> peripheral;
  std::shared_ptr<CBCharacteristic> tx;
  std::shared_ptr<CBCharacteristic> rx;
};

}  // namespace kestrin::bluez::test
