// Routing and delivery: from the radio's value event to the receiver's callback, and the whole way
// on the simulated radio in virtual time; what a log line costs.
#include <benchmark/benchmark.h>

#include <KestrinBLESDK/KestrinBleMgr.h>

#include <string>

#include "FeedPeripheral.h"
#include "Frames.h"
#include "PluggedReader.h"

namespace kestrin::bench {
namespace {

constexpr std::size_t kPayload = 12;  // A frame of 20 bytes: each value is a whole frame.
constexpr std::size_t kPiece = 20;
constexpr int kLines = 1000;

struct Family {
  const char* label;
  const char* reader;
  const char* rx;
  simulated::ReaderFamily kind;
};
constexpr Family kStandard = {"standard", "KVR-0417", "BA821002-3B5B-4654-85FE-E998B123ADEA",
                              simulated::ReaderFamily::standard};
constexpr Family kRaw = {"raw", "KVR-Q62T-0417", "FFF1", simulated::ReaderFamily::kvrQ62T};

/// A value event for each piece.
void deliver(benchmark::State& state, const Family& family) {
  const Stream stream = makeStream(kPayload, kPiece);
  const auto manager = KestrinBleMgr::init(deafPlatform());
  const auto receiver = std::make_shared<CountingReceiver>();
  manager->setRcpReceiverDelegate(receiver);
  const auto peripheral = std::make_shared<FeedPeripheral>(family.reader, family.rx);
  manager->connectBLE(peripheral);
  for ([[maybe_unused]] auto turn : state) {
    for (const NSData& piece : stream.pieces) peripheral->notify(piece);
  }
  require(
      receiver->frames() == stream.pieces.size() * static_cast<std::uint64_t>(state.iterations()),
      "values were lost");
}

/// The same values without the event around them.
void deliverUnrouted(benchmark::State& state) {
  const Stream stream = makeStream(kPayload, kPiece);
  const auto manager = KestrinBleMgr::init(deafPlatform());
  const auto receiver = std::make_shared<CountingReceiver>();
  manager->setRcpReceiverDelegate(receiver);
  for ([[maybe_unused]] auto turn : state) {
    for (const NSData& piece : stream.pieces) manager->readData(piece);
  }
  require(
      receiver->frames() == stream.pieces.size() * static_cast<std::uint64_t>(state.iterations()),
      "values were lost");
}

/// What a receiver costs whoever calls it for each value.
void deliverFloor(benchmark::State& state) {
  const Stream stream = makeStream(kPayload, kPiece);
  const auto counting = std::make_shared<CountingReceiver>();
  const std::weak_ptr<RcpReceiver> weak = counting;
  for ([[maybe_unused]] auto turn : state) {
    for (const NSData& piece : stream.pieces) {
      const std::optional<NSData> value(piece);
      if (const auto receiver = weak.lock()) receiver->dispatchRcpFrmReader(value);
    }
  }
  require(counting->frames() > 0, "nothing was delivered");
}

/// From the virtual reader's notification on, the simulated air included.
void wholeWay(benchmark::State& state, const Family& family) {
  const Stream stream = makeStream(kPayload, kPiece);
  PluggedReader reader(family.kind);
  const std::uint64_t before = reader.receiver().frames();
  for ([[maybe_unused]] auto turn : state) reader.notify(stream.pieces);
  require(reader.receiver().frames() - before ==
              stream.pieces.size() * static_cast<std::uint64_t>(state.iterations()),
          "values were lost");
  state.SetItemsProcessed(static_cast<std::int64_t>(stream.pieces.size()) * state.iterations());
}

class DiscardingSink final : public NSLogSink {
 public:
  void write(std::string_view line) noexcept override { benchmark::DoNotOptimize(line.data()); }
};

/// As many questions whether anybody listens.
void logFloor(benchmark::State& state) {
  DeafSink sink;
  const NSLogSink* asked = &sink;
  for ([[maybe_unused]] auto turn : state) {
    for (int i = 0; i < kLines; ++i) {
      benchmark::DoNotOptimize(asked);  // Which kind of sink it is only shows when it runs.
      benchmark::DoNotOptimize(asked->isListening());
    }
  }
}

/// The line that each received frame gives.
void logLine(benchmark::State& state, NSLogSink&& sink) {
  const std::optional<NSData> frame = makeStream(kPayload, 0).frames.front();
  NSLogSink* asked = &sink;
  for ([[maybe_unused]] auto turn : state) {
    for (int i = 0; i < kLines; ++i) {
      benchmark::DoNotOptimize(asked);
      NSLog(*asked, "[RX BLE] %@", frame);
    }
  }
}

const bool registered = [] {
  for (const Family& family : {kStandard, kRaw}) {
    const std::string label = family.label;
    benchmark::RegisterBenchmark(("deliver/" + label).c_str(),
                                 [family](benchmark::State& state) { deliver(state, family); });
    benchmark::RegisterBenchmark(("whole-way/" + label).c_str(),
                                 [family](benchmark::State& state) { wholeWay(state, family); });
  }
  benchmark::RegisterBenchmark("deliver/unrouted", deliverUnrouted);
  benchmark::RegisterBenchmark("deliver/floor", deliverFloor);
  benchmark::RegisterBenchmark("log/floor", logFloor);
  benchmark::RegisterBenchmark("log/unheard",
                               [](benchmark::State& state) { logLine(state, DeafSink()); });
  benchmark::RegisterBenchmark("log/heard",
                               [](benchmark::State& state) { logLine(state, DiscardingSink()); });
  return true;
}();

}  // namespace
}  // namespace kestrin::bench
