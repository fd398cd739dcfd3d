// Counts allocations, which no clock is needed for: per delivered frame and per arrival of the
// receive path, per frame on the whole way through the simulated radio, and per log line that
// nobody reads. One line each: name, tab, figure.
#include <KestrinBLESDK/KestrinBleMgr.h>

#include <algorithm>
#include <cstdio>
#include <limits>
#include <string>

#include "CountedAllocations.h"
#include "FeedPeripheral.h"
#include "Frames.h"
#include "PluggedReader.h"

namespace kestrin::bench {
namespace {

void print(const std::string& name, double figure) {
  std::printf("%s\t%.4f\n", name.c_str(), figure);
}
void print(const std::string& name, std::uint64_t count, std::uint64_t of) {
  print(name, static_cast<double>(count) / static_cast<double>(of));
}

/// Notes what each frame took since the one before it in the same arrival: its own copy and no
/// more, since an arrival's other needs are met before its first frame or after its last.
class FrameCount final : public RcpReceiver {
 public:
  void dispatchRcpFrmReader(const std::optional<NSData>& /*frame*/) noexcept override {
    const std::uint64_t now = allocations();
    if (inArrival_ > 0) {
      fewest_ = std::min(fewest_, now - last_);
      most_ = std::max(most_, now - last_);
    }
    last_ = now;
    ++inArrival_;
  }
  void beginArrival() noexcept { inArrival_ = 0; }
  [[nodiscard]] std::uint64_t inArrival() const noexcept { return inArrival_; }
  [[nodiscard]] std::uint64_t fewest() const noexcept { return fewest_; }
  [[nodiscard]] std::uint64_t most() const noexcept { return most_; }

 private:
  std::uint64_t inArrival_ = 0;
  std::uint64_t last_ = 0;
  std::uint64_t fewest_ = std::numeric_limits<std::uint64_t>::max();
  std::uint64_t most_ = 0;
};

/// The most that one of the arrivals took beside its frames' own copies.
std::uint64_t mostBesideFrames(KestrinBleMgr& manager, FrameCount& receiver, const Stream& stream) {
  std::uint64_t most = 0;
  std::uint64_t frames = 0;
  for (const NSData& bytes : stream.pieces) {
    receiver.beginArrival();
    const std::uint64_t before = allocations();
    manager.readData(bytes);
    const std::uint64_t counted = allocations() - before;
    require(counted >= receiver.inArrival(), "a frame was delivered without a copy of its own");
    most = std::max(most, counted - receiver.inArrival());
    frames += receiver.inArrival();
  }
  require(frames == stream.frames.size(), "not every frame came out");
  return most;
}

/// After a first round, in which buffers get their size.
void countReceive() {
  const auto receiver = std::make_shared<FrameCount>();
  for (const std::size_t payload : kPayloads) {
    for (const std::size_t piece : kPieces) {
      const Stream stream = makeStream(payload, piece);
      const auto manager = KestrinBleMgr::init(deafPlatform());
      for (const NSData& bytes : stream.pieces) manager->readData(bytes);
      manager->setRcpReceiverDelegate(receiver);
      print("allocations/arrival/" + std::to_string(payload) + "/" + std::to_string(piece),
            static_cast<double>(mostBesideFrames(*manager, *receiver, stream)));
    }
  }
  require(receiver->most() > 0, "no arrival held two frames");
  print("allocations/frame/fewest", static_cast<double>(receiver->fewest()));
  print("allocations/frame/most", static_cast<double>(receiver->most()));
}

void countDelivery(const char* label, const char* name, const char* rx) {
  const Stream stream = makeStream(12, 20);
  const auto manager = KestrinBleMgr::init(deafPlatform());
  const auto receiver = std::make_shared<CountingReceiver>();
  manager->setRcpReceiverDelegate(receiver);
  const auto peripheral = std::make_shared<FeedPeripheral>(name, rx);
  manager->connectBLE(peripheral);
  for (const NSData& piece : stream.pieces) peripheral->notify(piece);
  const std::uint64_t before = allocations();
  for (const NSData& piece : stream.pieces) peripheral->notify(piece);
  const std::uint64_t counted = allocations() - before;
  print(std::string("allocations/deliver/") + label, counted, stream.pieces.size());
  require(receiver->frames() == 2 * stream.pieces.size(), "values were lost");
}

void countWholeWay(const char* label, simulated::ReaderFamily family) {
  const Stream stream = makeStream(12, 20);
  PluggedReader reader(family);
  reader.notify(stream.pieces);
  const std::uint64_t frames = reader.receiver().frames();
  const std::uint64_t before = allocations();
  reader.notify(stream.pieces);
  const std::uint64_t counted = allocations() - before;
  print(std::string("allocations/whole-way/") + label, counted,
        reader.receiver().frames() - frames);
}

void countLogLines() {
  constexpr std::uint64_t kLines = 1000;
  const std::optional<NSData> frame = makeStream(12, 0).frames.front();
  DeafSink sink;
  const std::uint64_t before = allocations();
  for (std::uint64_t i = 0; i < kLines; ++i) NSLog(sink, "[RX BLE] %@", frame);
  const std::uint64_t counted = allocations() - before;  // Before the name is made.
  print("allocations/log-unheard", counted, kLines);
}

void countAll() {
  countReceive();
  countDelivery("standard", "KVR-0417", "BA821002-3B5B-4654-85FE-E998B123ADEA");
  countDelivery("raw", "KVR-Q62T-0417", "FFF1");
  countWholeWay("standard", simulated::ReaderFamily::standard);
  countWholeWay("raw", simulated::ReaderFamily::kvrQ62T);
  countLogLines();
}

}  // namespace
}  // namespace kestrin::bench

int main() { kestrin::bench::countAll(); }
