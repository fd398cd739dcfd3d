// A manager as the commands use it, with a recording of what passes between it and them: their
// calls, and the callbacks of both delegates. Without a recorder it only passes on.
//
// Threads: the main run loop's.
// Lifetime: drop it before its environment. It keeps neither of the delegates.
// Errors: those of KestrinBleMgr.
#pragma once

#include <KestrinBLESDK/KestrinBleMgr.h>

#include <memory>
#include <optional>
#include <string_view>

#include "tools/kestrin/recording/Recorder.h"

namespace kestrin::app {

class RecordedManager {
 public:
  /// `recorder` may be null. The platform is the recording one, if there is a recorder.
  RecordedManager(const Platform& platform, std::shared_ptr<Recorder> recorder);
  ~RecordedManager();
  RecordedManager(const RecordedManager&) = delete;
  RecordedManager& operator=(const RecordedManager&) = delete;

  /// To be set once, with an object that implements every callback or leaves the base class's.
  void setDelegate(const std::shared_ptr<KestrinBLEProtocols>& delegate);
  void setRcpReceiverDelegate(const std::shared_ptr<RcpReceiver>& receiver);

  void scanBLE();
  void stopSacnBLE();
  void connectBLE(const std::shared_ptr<CBPeripheral>& peripheral);
  [[nodiscard]] std::shared_ptr<CBPeripheral> pripheral() const { return manager_->pripheral(); }
  [[nodiscard]] bool open() const { return manager_->open(); }
  void close();
  bool send(const std::optional<NSData>& frame);

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

}  // namespace kestrin::app
