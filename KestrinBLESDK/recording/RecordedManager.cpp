#include "KestrinBLESDK/recording/RecordedManager.h"

#include <string>
#include <utility>
#include <vector>

#include "KestrinBLESDK/recording/Recorder.h"

namespace kestrin {
namespace {

std::vector<std::uint8_t> bytesOfData(const NSData& data) {
  const auto bytes = data.span();
  return {bytes.begin(), bytes.end()};
}

}  // namespace

class RecordedManager::ScanCallbacks final : public KestrinBLEProtocols {
 public:
  ScanCallbacks(std::weak_ptr<KestrinBLEProtocols> delegate, std::shared_ptr<Recorder> recorder)
      : delegate_(std::move(delegate)), recorder_(std::move(recorder)) {}
  void scanBleStatus(std::int64_t status) noexcept override {
    if (recorder_) {
      RecordedEvent event;
      event.kind = RecordedKind::scanStatus;
      event.status = status;
      recorder_->take(std::move(event));
    }
    if (const auto delegate = delegate_.lock()) delegate->scanBleStatus(status);
  }
  void scanningBleDeive(const std::shared_ptr<CBPeripheral>& peripheral) noexcept override {
    if (recorder_) {
      RecordedEvent event;
      event.kind = RecordedKind::reader;
      event.name = peripheral->name().value_or("");
      event.identifier = peripheral->identifier();
      recorder_->take(std::move(event));
    }
    if (const auto delegate = delegate_.lock()) delegate->scanningBleDeive(peripheral);
  }

 private:
  const std::weak_ptr<KestrinBLEProtocols> delegate_;
  const std::shared_ptr<Recorder> recorder_;
};

class RecordedManager::ReceiverCallbacks final : public RcpReceiver {
 public:
  ReceiverCallbacks(std::weak_ptr<RcpReceiver> receiver, std::shared_ptr<Recorder> recorder)
      : receiver_(std::move(receiver)), recorder_(std::move(recorder)) {}
  void plugChangedStatus(bool plugged) noexcept override {
    if (recorder_) {
      RecordedEvent event;
      event.kind = RecordedKind::plug;
      event.plugged = plugged;
      recorder_->take(std::move(event));
    }
    if (const auto receiver = receiver_.lock()) receiver->plugChangedStatus(plugged);
  }
  void dispatchRcpFrmReader(const std::optional<NSData>& frame) noexcept override {
    if (recorder_) {
      RecordedEvent event;
      event.kind = RecordedKind::frame;
      if (frame) event.bytes = bytesOfData(*frame);
      recorder_->take(std::move(event));
    }
    if (const auto receiver = receiver_.lock()) receiver->dispatchRcpFrmReader(frame);
  }

 private:
  const std::weak_ptr<RcpReceiver> receiver_;
  const std::shared_ptr<Recorder> recorder_;
};

RecordedManager::RecordedManager(const Platform& platform) : RecordedManager(platform, platform) {}

RecordedManager::RecordedManager(const Platform& platform, const Platform& recorded)
    : recorder_(recorderOf(recorded)), manager_(KestrinBleMgr::init(platform)) {}

RecordedManager::~RecordedManager() = default;

void RecordedManager::setDelegate(const std::shared_ptr<KestrinBLEProtocols>& delegate) {
  scanCallbacks_ = std::make_shared<ScanCallbacks>(delegate, recorder_);
  manager_->setDelegate(scanCallbacks_);
}

void RecordedManager::setRcpReceiverDelegate(const std::shared_ptr<RcpReceiver>& receiver) {
  receiverCallbacks_ = std::make_shared<ReceiverCallbacks>(receiver, recorder_);
  manager_->setRcpReceiverDelegate(receiverCallbacks_);
}

void RecordedManager::tellCall(std::string_view operation,
                               const std::shared_ptr<CBPeripheral>& peripheral,
                               const std::optional<NSData>& bytes) {
  if (!recorder_) return;
  RecordedEvent event;
  event.kind = RecordedKind::call;
  event.operation = std::string(operation);
  if (peripheral) {
    event.name = peripheral->name();
    event.identifier = peripheral->identifier();
  }
  if (bytes) event.bytes = bytesOfData(*bytes);
  recorder_->take(std::move(event));
}

void RecordedManager::scanBLE() {
  tellCall("scanBLE", nullptr, std::nullopt);
  manager_->scanBLE();
}

void RecordedManager::stopSacnBLE() {
  tellCall("stopSacnBLE", nullptr, std::nullopt);
  manager_->stopSacnBLE();
}

void RecordedManager::connectBLE(const std::shared_ptr<CBPeripheral>& peripheral) {
  tellCall("connectBLE", peripheral, std::nullopt);
  manager_->connectBLE(peripheral);
}

void RecordedManager::close() {
  tellCall("close", nullptr, std::nullopt);
  manager_->close();
}

bool RecordedManager::send(const std::optional<NSData>& frame) {
  tellCall("send", nullptr, frame);
  const bool accepted = manager_->send(frame);
  noteSent(accepted);
  return accepted;
}

bool RecordedManager::writeRawData(const std::optional<NSData>& slice) {
  const auto manager = manager_;  // A log sink may drop this.
  return manager->writeRawData(slice);
}

void RecordedManager::noteSend(const NSData& frame) { tellCall("send", nullptr, frame); }

void RecordedManager::notePause(Time pause) {
  if (!recorder_) return;
  RecordedEvent event;
  event.kind = RecordedKind::pause;
  event.seconds = pause;
  recorder_->take(std::move(event));
}

void RecordedManager::noteSent(bool accepted) {
  if (!recorder_) return;
  RecordedEvent event;
  event.kind = RecordedKind::sent;
  event.accepted = accepted;
  recorder_->take(std::move(event));
}

}  // namespace kestrin
