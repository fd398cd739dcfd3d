// A manager with a plugged-in virtual reader, in virtual time.
//
// Threads: one. Lifetime: owns both. Errors: ends the program when the reader is not plugged in.
#pragma once

#include <KestrinBLESDK/KestrinBleMgr.h>

#include <string>

#include "Frames.h"
#include "kestrin/simulated/SimulatedPlatform.h"

namespace kestrin::bench {

class PluggedReader {
 public:
  explicit PluggedReader(simulated::ReaderFamily family);
  /// The reader `name`, of the standard family, on a platform that others are on as well.
  PluggedReader(std::shared_ptr<simulated::SimulatedPlatform> platform, const std::string& name);
  PluggedReader(const PluggedReader&) = delete;
  PluggedReader& operator=(const PluggedReader&) = delete;

  /// The reader notifies each piece; returns when all have been received.
  void notify(const std::vector<NSData>& pieces);
  [[nodiscard]] KestrinBleMgr& manager() const noexcept { return *manager_; }
  [[nodiscard]] const CountingReceiver& receiver() const noexcept { return *receiver_; }
  [[nodiscard]] simulated::VirtualPeripheral& device() const noexcept { return *reader_; }
  /// The characteristic that commands are written to.
  [[nodiscard]] std::shared_ptr<CBCharacteristic> tx() const;
  [[nodiscard]] MainRunLoop& runLoop() const noexcept { return platform_->runLoop(); }
  /// What the manager pauses by.
  [[nodiscard]] std::shared_ptr<NSThread> thread() const { return platform_->platform().thread; }

 private:
  struct Finder;

  PluggedReader(std::shared_ptr<simulated::SimulatedPlatform> platform, const std::string& name,
                simulated::ReaderFamily family);

  const std::shared_ptr<simulated::SimulatedPlatform> platform_;
  const simulated::ReaderCharacteristics characteristics_;
  const std::shared_ptr<simulated::VirtualPeripheral> reader_;
  const std::shared_ptr<KestrinBleMgr> manager_;
  const std::shared_ptr<CountingReceiver> receiver_ = std::make_shared<CountingReceiver>();
};

/// A platform in virtual time whose log nobody reads.
std::shared_ptr<simulated::SimulatedPlatform> quietPlatform();

}  // namespace kestrin::bench
