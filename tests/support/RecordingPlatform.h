// A platform that records. Everything that a manager asks of it, reports to a delegate or logs goes
// into one ordered transcript, and so do the events that the test plays (their lines begin with
// `*`). Time is virtual, unless another clock is given: it moves when the test runs the loop, or
// when a thread sleeps.
//
//   RecordingPlatform platform;
//   const auto manager = platform.makeManager();
//   manager->scanBLE();
//   platform.didUpdateState(5);
//   EXPECT_EQ(platform.take(), R"(
//   central#1 initWithDelegate manager#1 queue (absent)
//   central#1 scanForPeripheralsWithServices (absent) options (absent)
//   * central#1 didUpdateState 5
//   ...
//
// Threads: the test's own, which turns the loop; requests from any.
// Lifetime: outlives the managers and peripherals that it made.
// Errors: playing an event of a central manager that is gone throws: the test is wrong.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "KestrinBLESDK/KestrinBleMgr.h"
#include "KestrinBLESDK/platform/MainRunLoop.h"
#include "support/RecordingBluetooth.h"
#include "support/Transcript.h"

namespace kestrin::test {

class RecordingPlatform {
 public:
  RecordingPlatform();
  explicit RecordingPlatform(const std::shared_ptr<Clock>& clock);
  ~RecordingPlatform();
  RecordingPlatform(const RecordingPlatform&) = delete;
  RecordingPlatform& operator=(const RecordingPlatform&) = delete;

  /// What a manager is made on; all managers made on it share radio, loop and transcript.
  [[nodiscard]] const Platform& platform() const { return platform_; }
  std::shared_ptr<KestrinBleMgr> makeManager() { return KestrinBleMgr::init(platform_); }
  /// A peripheral of that name, by which the transcript calls it, too.
  std::shared_ptr<RecordingPeripheral> peripheral(const std::string& name);
  /// A peripheral that the transcript calls `label`, of another name or of none.
  std::shared_ptr<RecordingPeripheral> peripheral(const std::string& label,
                                                  std::optional<std::string> name);
  /// The central manager made last.
  std::shared_ptr<RecordingCentral> central() const;

  Transcript& transcript() { return *transcript_; }
  std::string take() { return transcript_->take(); }
  std::string takeTimed() { return transcript_->takeTimed(); }

  /// Runs the loop until that much virtual time has passed and everything due by then has run.
  void run(double seconds);
  /// One turn of the loop, without time passing.
  void runOneTurn() { loop_->runOneTurn(); }
  /// Runs `event` in a turn of the loop of its own, as every event of a radio comes.
  void play(const std::function<void()>& event);
  /// The application posts that it has entered the background.
  void enterBackground();
  /// Ends the run loop, with everything that is pending on it.
  void dropRunLoop();

  // Events of the central manager made last.
  void didUpdateState(std::int64_t state);
  void didDiscover(const std::shared_ptr<RecordingPeripheral>& peripheral,
                   const CBAdvertisementData& advertisementData = {}, int rssi = -50);
  void didConnect(const std::shared_ptr<RecordingPeripheral>& peripheral);
  void didDisconnect(const std::shared_ptr<RecordingPeripheral>& peripheral,
                     const std::optional<NSError>& error = std::nullopt);

  // Events of a peripheral. Services, characteristics and values are shown from then on.
  void didDiscoverServices(const std::shared_ptr<RecordingPeripheral>& peripheral,
                           const Services& services);
  void failToDiscoverServices(const std::shared_ptr<RecordingPeripheral>& peripheral,
                              const NSError& error);
  void didDiscoverCharacteristics(const std::shared_ptr<RecordingPeripheral>& peripheral,
                                  const std::shared_ptr<RecordingService>& service,
                                  const Characteristics& characteristics);
  void failToDiscoverCharacteristics(const std::shared_ptr<RecordingPeripheral>& peripheral,
                                     const std::shared_ptr<RecordingService>& service,
                                     const NSError& error);
  void didUpdateValue(const std::shared_ptr<RecordingPeripheral>& peripheral,
                      const std::shared_ptr<RecordingCharacteristic>& characteristic,
                      const std::optional<NSData>& value,
                      const std::optional<NSError>& error = std::nullopt);
  void didUpdateNotificationState(const std::shared_ptr<RecordingPeripheral>& peripheral,
                                  const std::shared_ptr<RecordingCharacteristic>& characteristic,
                                  const std::optional<NSError>& error = std::nullopt);

  /// Called with each log line after it is recorded.
  std::function<void(const std::string&)> onLog;
  /// Called when a central manager is made and with each request of one or of a peripheral, before
  /// it returns: to look at the manager in that moment. No radio calls out from there, so it must
  /// not change anything.
  std::function<void(const std::string&)> onRequest;
  /// The same with each delayed request that is made or cancelled.
  std::function<void(const std::string&)> onDelay;

  // For the recording objects.
  void recordRequest(const std::string& line);
  void recordDelay(const std::string& line);
  /// `manager#1` for the manager that the pointer belongs to, else `(unknown)`; `(absent)` if null.
  [[nodiscard]] std::string ownerText(const std::shared_ptr<const void>& object) const;
  /// The same for an address; it says so when the address is not the manager's own.
  [[nodiscard]] std::string addressText(const void* address) const;
  void addManager(const std::shared_ptr<void>& manager) { managers_.push_back(manager); }
  std::shared_ptr<CBCentralManager> makeCentral(std::weak_ptr<CBCentralManagerDelegate> delegate,
                                                const std::shared_ptr<RunLoop>& queue);

 private:
  using Deliver = std::function<void(CBPeripheralDelegate&)>;
  void playCentral(const std::string& line,
                   const std::function<void(CBCentralManagerDelegate&,
                                            const std::shared_ptr<RecordingCentral>&)>& deliver);
  void playPeripheral(const std::shared_ptr<RecordingPeripheral>& peripheral,
                      const std::string& line, const Deliver& deliver);

  std::shared_ptr<Transcript> transcript_;
  std::shared_ptr<MainRunLoop> loop_;
  std::shared_ptr<RunLoop> recordingLoop_;
  Platform platform_;
  std::vector<std::weak_ptr<void>> managers_;
  std::weak_ptr<RecordingCentral> central_;
  int centralsMade_ = 0;
};

}  // namespace kestrin::test
