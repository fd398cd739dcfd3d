// What stands behind the handles of the C interface.
#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "KestrinBLESDK/KestrinBleMgr.h"
#include "KestrinBLESDK/Reader.h"
#include "bindings/FileRecording.h"
#include "kestrin/kestrin.h"
#include "kestrin/simulated/SimulatedPlatform.h"

namespace kestrin::c {

/// Hands the lines to the program's function, if it has named one.
class LogToFunction final : public NSLogSink {
 public:
  [[nodiscard]] bool isListening() const noexcept override { return line_ != nullptr; }
  void write(std::string_view line) noexcept override {
    if (line_ != nullptr) line_(line.data(), line.size(), user_);
  }
  void set(kestrin_log_line line, void* user) noexcept {
    line_ = line;
    user_ = user;
  }

 private:
  kestrin_log_line line_ = nullptr;
  void* user_ = nullptr;
};

/// A radio with its run loop. Managers share it, so that it outlives them.
struct PlatformParts {
  const std::shared_ptr<LogToFunction> log = std::make_shared<LogToFunction>();
  Platform platform;
  std::shared_ptr<MainRunLoop> ownLoop;
  std::unique_ptr<simulated::SimulatedPlatform> simulated;
  std::map<std::string, std::shared_ptr<simulated::VirtualPeripheral>> readers;
  std::string trouble;
  std::shared_ptr<bindings::FileRecording> recording{};
  std::shared_ptr<RunLoop> recordedLoop{};

  [[nodiscard]] MainRunLoop& loop() const { return simulated ? simulated->runLoop() : *ownLoop; }
};

}  // namespace kestrin::c

struct kestrin_platform {
  std::shared_ptr<kestrin::c::PlatformParts> parts;
};

struct kestrin_peripheral {
  std::shared_ptr<kestrin::CBPeripheral> peripheral;
  std::string name{};
  std::string identifier{};
  std::atomic<int> holders = 1;
};

namespace kestrin::c {

class CallbackDelegate final : public KestrinBLEProtocols, public RcpReceiver {
 public:
  CallbackDelegate(const kestrin_callbacks& callbacks, void* user)
      : callbacks_(callbacks), user_(user) {}

  void scanBleStatus(std::int64_t status) noexcept override {
    if (callbacks_.scan_status != nullptr) callbacks_.scan_status(status, user_);
  }
  void scanningBleDeive(const std::shared_ptr<CBPeripheral>& peripheral) noexcept override {
    if (callbacks_.found == nullptr) return;
    auto* const reader = new kestrin_peripheral{peripheral};
    callbacks_.found(reader, user_);
    kestrin_peripheral_release(reader);
  }
  void plugChangedStatus(bool plugged) noexcept override {
    if (callbacks_.plugged != nullptr) callbacks_.plugged(plugged, user_);
  }
  void dispatchRcpFrmReader(const std::optional<NSData>& frame) noexcept override {
    if (callbacks_.frame == nullptr) return;
    callbacks_.frame(frame ? frame->bytes() : nullptr, frame ? frame->length() : 0, user_);
  }

 private:
  const kestrin_callbacks callbacks_;
  void* const user_;
};

}  // namespace kestrin::c

struct kestrin_manager {
  std::shared_ptr<kestrin::c::PlatformParts> parts;
  std::shared_ptr<kestrin::c::CallbackDelegate> delegate;
  std::shared_ptr<kestrin::KestrinBleMgr> manager;
};

struct kestrin_reader {
  std::shared_ptr<kestrin::c::PlatformParts> parts;
  kestrin_reader_handlers handlers;
  void* user;
  /// Shared: a handler may release what holds it.
  std::shared_ptr<kestrin::Reader> reader{};
};
