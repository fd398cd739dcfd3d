/// \class kestrin::RecordedManager
/// A manager with a recording of what passes between it and its application: the calls, and the
/// callbacks of both delegates. On a platform that does not record it only passes on.
///
/// Threads: the main run loop's.
///
/// Lifetime: keeps neither of the delegates. Drop it before its `RecordedPlatform`.
///
/// Errors: those of `KestrinBleMgr`.
#pragma once

#include <memory>
#include <optional>
#include <string_view>

#include "KestrinBLESDK/KestrinBleMgr.h"
#include "KestrinBLESDK/platform/Export.h"
#include "KestrinBLESDK/platform/Platform.h"

namespace kestrin {
/// \addtogroup recording
/// @{

class Recorder;

class KESTRIN_EXPORT RecordedManager {
 public:
  /// A manager of its own, see `KestrinBleMgr::init`.
  explicit RecordedManager(const Platform& platform);
  /// The same on `platform`, recording where `recorded` does: for a platform whose radio passes on
  /// to a recording one.
  RecordedManager(const Platform& platform, const Platform& recorded);
  ~RecordedManager();
  RecordedManager(const RecordedManager&) = delete;
  RecordedManager& operator=(const RecordedManager&) = delete;

  /// See `KestrinBleMgr::setDelegate`.
  void setDelegate(const std::shared_ptr<KestrinBLEProtocols>& delegate);
  /// See `KestrinBleMgr::setRcpReceiverDelegate`.
  void setRcpReceiverDelegate(const std::shared_ptr<RcpReceiver>& receiver);

  /// See `KestrinBleMgr::scanBLE`.
  void scanBLE();
  /// See `KestrinBleMgr::stopSacnBLE`.
  void stopSacnBLE();
  /// See `KestrinBleMgr::connectBLE`.
  void connectBLE(const std::shared_ptr<CBPeripheral>& peripheral);
  /// See `KestrinBleMgr::pripheral`.
  [[nodiscard]] std::shared_ptr<CBPeripheral> pripheral() const { return manager_->pripheral(); }
  /// See `KestrinBleMgr::open`.
  [[nodiscard]] bool open() const { return manager_->open(); }
  /// See `KestrinBleMgr::close`.
  void close();
  /// See `KestrinBleMgr::send`.
  bool send(const std::optional<NSData>& frame);
  /// See `KestrinBleMgr::writeRawData`. The slice is recorded where the radio is asked to write it.
  bool writeRawData(const std::optional<NSData>& slice);

  /// Whether anything is recorded.
  [[nodiscard]] bool records() const noexcept { return recorder_ != nullptr; }
  /// For whoever writes a frame slice by slice: records it as a call of `send` that begins now.
  void noteSend(const NSData& frame);
  /// Records the pause behind a full slice of it.
  void notePause(Time pause);
  /// Records what became of it: what `send` would return.
  void noteSent(bool accepted);

 private:
  class ScanCallbacks;
  class ReceiverCallbacks;
  void tellCall(std::string_view operation, const std::shared_ptr<CBPeripheral>& peripheral,
                const std::optional<NSData>& bytes);

  const std::shared_ptr<Recorder> recorder_;
  const std::shared_ptr<KestrinBleMgr> manager_;
  std::shared_ptr<ScanCallbacks> scanCallbacks_;
  std::shared_ptr<ReceiverCallbacks> receiverCallbacks_;
};

/// @}

}  // namespace kestrin
