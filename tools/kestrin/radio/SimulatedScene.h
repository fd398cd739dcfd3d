// The devices around the simulated radio, for the demo and for everybody without a reader at hand:
// readers of both families and devices that are none.
//
// Threads: the main run loop's.
// Lifetime: drop it before its platform.
// Errors: none.
#pragma once

#include <KestrinBLESDK/platform/NSData.h>
#include <KestrinBLESDK/platform/RunLoop.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "kestrin/simulated/SimulatedPlatform.h"

namespace kestrin::app {

/// How the scene's radio behaves.
simulated::Options sceneOptions(bool virtualTime, std::shared_ptr<NSLogSink> log);

/// A virtual reader that says what it notifies.
class SceneReader : public std::enable_shared_from_this<SceneReader> {
 public:
  using Observer = std::function<void(const std::string& name, const NSData& piece)>;

  SceneReader(simulated::SimulatedPlatform& simulated, std::string name,
              simulated::ReaderFamily family);

  /// Answers commands from now on as every virtual reader does, in pieces of 20 bytes.
  void startAnswering();
  /// Notifies `bytes` in pieces of 20 bytes, whether or not they end with a frame.
  void notify(const NSData& bytes);
  /// Notifies one made-up tag report, and further ones once per second.
  void startTagReports();
  /// A made-up tag report: message type 0x02, code 0x22, a signal strength and a 12-byte tag.
  [[nodiscard]] static NSData tagReport(std::uint8_t number);

  void setObserver(Observer observer) { observer_ = std::move(observer); }
  [[nodiscard]] simulated::VirtualPeripheral& device() const noexcept { return *device_; }
  [[nodiscard]] const std::string& name() const noexcept { return name_; }

 private:
  const std::string name_;
  const CBUUID rx_;
  const std::weak_ptr<RunLoop> loop_;
  const std::shared_ptr<simulated::VirtualPeripheral> device_;
  Observer observer_;
  Time lastPiece_{};
  std::uint8_t tagReports_ = 0;
};

class SimulatedScene {
 public:
  explicit SimulatedScene(simulated::SimulatedPlatform& simulated);

  /// Lets the reader "TQM_HOLV-1" report a tag each second, as if somebody held its trigger.
  void startTagReports();
  [[nodiscard]] SceneReader& standardReader() const noexcept { return *standard_; }
  [[nodiscard]] SceneReader& kvrReader() const noexcept { return *kvr_; }
  /// Tells every piece that a reader notifies.
  void setObserver(const SceneReader::Observer& observer);

 private:
  std::shared_ptr<SceneReader> standard_;
  std::shared_ptr<SceneReader> reporting_;
  std::shared_ptr<SceneReader> kvr_;
};

}  // namespace kestrin::app
