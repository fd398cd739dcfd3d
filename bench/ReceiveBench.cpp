// The receive path: bytes in, frames out. Beside it stand the floor, which is what those bytes cost
// whoever checks and hands them on, and the literal assembler of the tests.
#include <benchmark/benchmark.h>

#include <KestrinBLESDK/KestrinBleMgr.h>
#include <KestrinBLESDK/RcpFrame.h>

#include <string>
#include <utility>

#include "Frames.h"
#include "support/LiteralAssembler.h"

namespace kestrin::bench {
namespace {

constexpr std::size_t kMegabyte = 1'000'000;

struct Feed {
  explicit Feed(Stream what) : stream(std::move(what)) {
    manager->setRcpReceiverDelegate(receiver);
    feed();  // From now on the buffers have their size.
    require(receiver->frames() == stream.frames.size(), "not every frame came out");
  }
  void feed() {
    for (const NSData& piece : stream.pieces) manager->readData(piece);
  }

  const Stream stream;
  const std::shared_ptr<KestrinBleMgr> manager = KestrinBleMgr::init(deafPlatform());
  const std::shared_ptr<CountingReceiver> receiver = std::make_shared<CountingReceiver>();
};

/// The frames through the library.
void receive(benchmark::State& state, std::size_t payload, std::size_t piece) {
  Feed feed(makeStream(payload, piece));
  for ([[maybe_unused]] auto turn : state) feed.feed();
  require(feed.receiver->frames() ==
              feed.stream.frames.size() * (static_cast<std::uint64_t>(state.iterations()) + 1),
          "frames were lost");
}

/// The CRC step over the same bytes and, per frame, one allocation, copy, weak read and virtual
/// call.
void receiveFloor(benchmark::State& state, std::size_t payload) {
  const Stream stream = makeStream(payload, 0);
  const auto counting = std::make_shared<CountingReceiver>();
  const std::weak_ptr<RcpReceiver> weak = counting;
  for ([[maybe_unused]] auto turn : state) {
    for (const NSData& bytes : stream.frames) {
      require(rcpFrameCrc(bytes.span().subspan(1)) == 0, "a frame's CRC is wrong");
      const std::optional<NSData> frame(std::in_place, bytes.span());
      if (const auto receiver = weak.lock()) receiver->dispatchRcpFrmReader(frame);
    }
  }
  require(
      counting->frames() == stream.frames.size() * static_cast<std::uint64_t>(state.iterations()),
      "the floor lost frames");
}

/// The tests' assembler, byte by byte, with its log lines as it keeps them.
void receiveLiteral(benchmark::State& state, std::size_t payload) {
  const Stream stream = makeStream(payload, 0);
  test::Bytes bytes(stream.pieces.front().begin(), stream.pieces.front().end());
  test::LiteralAssembler assembler;
  for ([[maybe_unused]] auto turn : state) {
    assembler.readData(bytes);
    benchmark::DoNotOptimize(assembler.take());
  }
}

/// Arrivals of 20 bytes that hold no preamble, behind `waiting` bytes that hold none either.
void receiveBehindWaiting(benchmark::State& state, std::size_t waiting) {
  const auto manager = KestrinBleMgr::init(deafPlatform());
  if (waiting > 0) manager->readData(NSData(std::vector<std::uint8_t>(waiting, 0x55)));
  const NSData arrival(std::vector<std::uint8_t>(20, 0x55));
  for ([[maybe_unused]] auto turn : state) manager->readData(arrival);
}

/// What the tests' assembler takes to look at each of the waiting bytes, in an arrival of none.
void receiveLiteralBehindWaiting(benchmark::State& state) {
  test::LiteralAssembler assembler;
  assembler.readData(test::Bytes(kMegabyte, 0x55));
  for ([[maybe_unused]] auto turn : state) assembler.readData({});
  require(assembler.kept().size() == kMegabyte && assembler.take().empty(),
          "the waiting bytes held something");
}

/// One look at each of a megabyte of bytes, for a preamble that is not there.
void scanPlainly(benchmark::State& state) {
  const std::vector<std::uint8_t> bytes(kMegabyte, 0x55);
  for ([[maybe_unused]] auto turn : state) {
    std::size_t found = 0;
    for (const std::uint8_t& byte : bytes) {
      if (byte == 0xBB) break;
      ++found;
      benchmark::DoNotOptimize(found);
    }
    require(found == bytes.size(), "there was a preamble");
  }
}

const bool registered = [] {
  for (const std::size_t payload : kPayloads) {
    const std::string size = std::to_string(payload);
    // What is compared runs close together.
    benchmark::RegisterBenchmark(("receive/" + size + "/floor").c_str(), receiveFloor, payload);
    for (const std::size_t piece : kPieces) {
      const std::string name = "receive/" + size + "/" + std::to_string(piece);
      benchmark::RegisterBenchmark(name.c_str(), receive, payload, piece);
    }
    benchmark::RegisterBenchmark(("receive/" + size + "/literal").c_str(), receiveLiteral, payload);
  }
  // So few arrivals that what waits stays about what it was.
  benchmark::RegisterBenchmark("waiting/megabyte", receiveBehindWaiting, kMegabyte)
      ->Iterations(500);
  benchmark::RegisterBenchmark("waiting/nothing", receiveBehindWaiting, std::size_t{0})
      ->Iterations(500);
  benchmark::RegisterBenchmark("waiting/literal", receiveLiteralBehindWaiting);
  benchmark::RegisterBenchmark("waiting/plain-scan", scanPlainly);
  return true;
}();

}  // namespace
}  // namespace kestrin::bench
