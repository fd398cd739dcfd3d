#include "tools/kestrin/radio/SimulatedScene.h"

#include <KestrinBLESDK/RcpFrame.h>

#include <algorithm>
#include <chrono>
#include <utility>

namespace kestrin::app {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr std::size_t kPieceSize = 20;
constexpr Time kPiecePause = milliseconds(15);

}  // namespace

simulated::Options sceneOptions(bool virtualTime, std::shared_ptr<NSLogSink> log) {
  simulated::Options options;
  options.seed = 417;
  options.virtualTime = virtualTime;
  options.log = std::move(log);
  options.pieceSize = {kPieceSize, kPieceSize};
  return options;
}

SceneReader::SceneReader(simulated::SimulatedPlatform& simulated, std::string name,
                         simulated::ReaderFamily family)
    : name_(std::move(name)),
      rx_(simulated::readerCharacteristics(family).rx),
      loop_(simulated.platform().mainRunLoop),
      device_(simulated.radio().addReader(name_, family)) {}

void SceneReader::startAnswering() {
  device_->setScript(
      [weak = weak_from_this(), answers = simulated::defaultReaderScript()](const NSData& command) {
        if (const auto self = weak.lock()) {
          for (const NSData& reply : answers(command)) self->notify(reply);
        }
        return std::vector<NSData>();  // The answer goes out piece by piece, see `notify`.
      });
}

void SceneReader::notify(const NSData& bytes) {
  const auto loop = loop_.lock();
  if (!loop) return;
  const Time now = loop->now();
  for (const NSData& piece : simulated::cutIntoPieces(bytes, kPieceSize)) {
    lastPiece_ = std::max(now, lastPiece_) + kPiecePause;
    loop->arm(lastPiece_ - now, [weak = weak_from_this(), piece] {
      const auto self = weak.lock();
      if (!self || !self->device_->simulateNotification(self->rx_, piece)) return;
      if (self->observer_) self->observer_(self->name_, piece);
    });
  }
}

void SceneReader::startTagReports() {
  if (const auto loop = loop_.lock()) {
    loop->arm(seconds(1), [weak = weak_from_this()] {
      if (const auto self = weak.lock()) self->startTagReports();
    });
  }
  if (device_->connected()) notify(tagReport(++tagReports_));
}

NSData SceneReader::tagReport(std::uint8_t number) {
  const std::uint8_t payload[] = {0xC4, 0xE2, 0x80, 0x11, 0x60, 0x60,  0x00,
                                  0x02, 0x04, 0x17, 0x00, 0x58, number};
  return *buildRcpFrame(0x02, 0x22, payload);
}

SimulatedScene::SimulatedScene(simulated::SimulatedPlatform& simulated) {
  using simulated::ReaderFamily;
  simulated.radio().addPeripheral("Speaker");
  standard_ = std::make_shared<SceneReader>(simulated, "KVR-0417", ReaderFamily::standard);
  simulated.radio().addPeripheral(std::nullopt);
  reporting_ = std::make_shared<SceneReader>(simulated, "TQM_HOLV-1", ReaderFamily::standard);
  // A near miss: the filter tells upper from lower case.
  simulated.radio().addPeripheral("kvr-lamp");
  kvr_ = std::make_shared<SceneReader>(simulated, "KVR-Q62T 0012", ReaderFamily::kvrQ62T);
  for (const auto& reader : {standard_, reporting_, kvr_}) reader->startAnswering();
}

void SimulatedScene::startTagReports() { reporting_->startTagReports(); }

void SimulatedScene::setObserver(const SceneReader::Observer& observer) {
  for (const auto& reader : {standard_, reporting_, kvr_}) reader->setObserver(observer);
}

}  // namespace kestrin::app
