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
  PluggedReader(const PluggedReader&) = delete;
  PluggedReader& operator=(const PluggedReader&) = delete;

  /// The reader notifies each piece; returns when all have been received.
  void notify(const std::vector<NSData>& pieces);
  [[nodiscard]] KestrinBleMgr& manager() const noexcept { return *manager_; }
  [[nodiscard]] const CountingReceiver& receiver() const noexcept { return *receiver_; }
  [[nodiscard]] simulated::VirtualPeripheral& device() const noexcept { return *reader_; }
  /// The characteristic that commands are written to.
  [[nodiscard]] std::shared_ptr<CBCharacteristic> tx() const;
  [[nodiscard]] MainRunLoop& runLoop() const noexcept { return platform_.runLoop(); }

 private:
  struct Finder;

  simulated::SimulatedPlatform platform_;
  const simulated::ReaderCharacteristics characteristics_;
  const std::shared_ptr<simulated::VirtualPeripheral> reader_;
  const std::shared_ptr<KestrinBleMgr> manager_;
  const std::shared_ptr<CountingReceiver> receiver_ = std::make_shared<CountingReceiver>();
};

}  // namespace kestrin::bench
