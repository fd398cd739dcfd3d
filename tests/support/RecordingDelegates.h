// Delegates that record what they hear, and then do whatever a test has asked for.
//
// Threads and lifetime: a test's own. Errors: none.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "KestrinBLESDK/KestrinBLEProtocols.h"
#include "KestrinBLESDK/RcpReceiver.h"
#include "support/RecordingBluetooth.h"
#include "support/RecordingPlatform.h"

namespace kestrin::test {

class RecordingDelegate final : public KestrinBLEProtocols {
 public:
  explicit RecordingDelegate(RecordingPlatform& platform, std::string label = "delegate")
      : platform_(platform), label_(std::move(label)) {}
  ~RecordingDelegate() override { platform_.transcript().add(label_ + " gone"); }
  void scanBleStatus(std::int64_t status) noexcept override {
    platform_.transcript().add(label_ + " scanBleStatus " + std::to_string(status));
    if (const auto work = onScanBleStatus) work();
  }
  void scanningBleDeive(const std::shared_ptr<CBPeripheral>& peripheral) noexcept override {
    platform_.transcript().add(label_ + " scanningBleDeive " + peripheralText(peripheral));
    if (const auto work = onScanningBleDeive) work();
  }

  std::function<void()> onScanBleStatus;
  std::function<void()> onScanningBleDeive;

 private:
  RecordingPlatform& platform_;
  const std::string label_;
};

class RecordingReceiver final : public RcpReceiver {
 public:
  explicit RecordingReceiver(RecordingPlatform& platform, std::string label = "receiver")
      : platform_(platform), label_(std::move(label)) {}
  ~RecordingReceiver() override { platform_.transcript().add(label_ + " gone"); }
  void plugChangedStatus(bool plugged) noexcept override {
    platform_.transcript().add(label_ + " plugChangedStatus " + (plugged ? "true" : "false"));
    if (const auto work = onPlugChangedStatus) work();
  }
  void dispatchRcpFrmReader(const std::optional<NSData>& frame) noexcept override {
    platform_.transcript().add(label_ + " dispatchRcpFrmReader " + valueText(frame));
    if (const auto work = onDispatchRcpFrmReader) work();
  }

  std::function<void()> onPlugChangedStatus;
  std::function<void()> onDispatchRcpFrmReader;

 private:
  RecordingPlatform& platform_;
  const std::string label_;
};

}  // namespace kestrin::test
