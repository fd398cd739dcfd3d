// The send path: what a send costs beyond its writes and its pauses, and how exactly a pause in
// real time is kept.
#include <benchmark/benchmark.h>

#include <KestrinBLESDK/KestrinBleMgr.h>
#include <KestrinBLESDK/RcpFrame.h>

#include <algorithm>
#include <array>
#include <chrono>

#include "Frames.h"
#include "PluggedReader.h"

namespace kestrin::bench {
namespace {

using Stopwatch = std::chrono::steady_clock;

constexpr std::size_t kSliceSize = 20;
constexpr std::size_t kSlices = 50;
constexpr double kPause = 0.05;

double secondsSince(Stopwatch::time_point begun) {
  return std::chrono::duration<double>(Stopwatch::now() - begun).count();
}

/// A command of that many full slices, which the write of no bytes ends.
NSData command(std::size_t slices) {
  constexpr std::size_t kOverhead = 8;  // Header, end mark and CRC.
  const std::vector<std::uint8_t> payload(slices * kSliceSize - kOverhead, 0x11);
  return *buildRcpFrame(0x00, 0x22, payload);
}

/// Measures `sendOnce`, and not what becomes of the writes afterwards.
template <class SendOnce>
void measureSends(benchmark::State& state, PluggedReader& reader, const SendOnce& sendOnce) {
  reader.device().simulateSilence();
  const std::size_t before = reader.device().writes().size();
  for ([[maybe_unused]] auto turn : state) {
    const auto begun = Stopwatch::now();
    sendOnce();
    state.SetIterationTime(secondsSince(begun));
    reader.runLoop().run();
  }
  require(reader.device().writes().size() - before ==
              (kSlices + 1) * static_cast<std::size_t>(state.iterations()),
          "the reader did not get every slice");
}

/// By the manager. A pause in virtual time only moves the clock.
void send(benchmark::State& state) {
  PluggedReader reader(simulated::ReaderFamily::standard);
  const NSData frame = command(kSlices);
  measureSends(state, reader, [&] { reader.manager().send(frame); });
}

/// The same slices written one after another, with the same pauses in virtual time.
void sendFloor(benchmark::State& state) {
  PluggedReader reader(simulated::ReaderFamily::standard);
  const NSData frame = command(kSlices);
  const auto tx = reader.tx();
  const auto peripheral = reader.manager().pripheral();
  const std::shared_ptr<NSThread> thread = reader.thread();
  measureSends(state, reader, [&] {
    for (std::size_t i = 0; i <= kSlices; ++i) {
      if (i > 0) thread->sleepForTimeInterval(kPause);
      peripheral->writeValue_forCharacteristic_type(
          frame.subdataWithRange({i * kSliceSize, kSliceSize}), tx,
          CBCharacteristicWriteType::CBCharacteristicWriteWithResponse);
    }
  });
}

/// By how much a pause is longer than asked for, in the middle of five. Nothing is linked: the
/// pauses are made all the same.
void pauseOvershoot(benchmark::State& state) {
  const auto loop = std::make_shared<MainRunLoop>();
  Platform platform = deafPlatform();
  platform.mainRunLoop = loop;
  platform.thread = sleepOn(loop);
  const auto manager = KestrinBleMgr::init(platform);
  const NSData frame = command(1);
  for ([[maybe_unused]] auto turn : state) {
    std::array<double, 5> tooLong{};
    for (double& over : tooLong) {
      const auto begun = Stopwatch::now();
      manager->send(frame);
      over = secondsSince(begun) - kPause;
      require(over > 0, "there was no whole pause");
    }
    std::ranges::sort(tooLong);
    state.SetIterationTime(tooLong[tooLong.size() / 2]);
  }
}

BENCHMARK(send)->Name("send/manager")->UseManualTime();
BENCHMARK(sendFloor)->Name("send/floor")->UseManualTime();
BENCHMARK(pauseOvershoot)->Name("send/pause-overshoot")->UseManualTime()->Iterations(1);

}  // namespace
}  // namespace kestrin::bench
