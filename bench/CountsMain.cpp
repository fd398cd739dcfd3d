// Counts allocations, which no clock is needed for: per delivered frame and per arrival of the
// receive path, and per frame on the whole way through the simulated radio. One line each: name,
// tab, figure.
#include <KestrinBLESDK/KestrinBleMgr.h>

#include <cstdio>
#include <cstdlib>
#include <new>
#include <string>

#include "FeedPeripheral.h"
#include "Frames.h"
#include "PluggedReader.h"

namespace {

std::uint64_t allocations = 0;  // This program has one thread.

}  // namespace

// The forms for arrays and without exceptions call these two.
void* operator new(std::size_t size) {
  ++allocations;
  void* const memory = std::malloc(size == 0 ? 1 : size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t /*size*/) noexcept { std::free(memory); }

namespace kestrin::bench {
namespace {

void print(const std::string& name, std::uint64_t count, std::uint64_t of) {
  std::printf("%s\t%.4f\n", name.c_str(), static_cast<double>(count) / static_cast<double>(of));
}

/// After a first round, in which buffers get their size.
void countReceive(std::size_t payload, std::size_t piece) {
  constexpr std::uint64_t kRounds = 10;
  const Stream stream = makeStream(payload, piece);
  const auto manager = KestrinBleMgr::init(deafPlatform());
  const auto receiver = std::make_shared<CountingReceiver>();
  manager->setRcpReceiverDelegate(receiver);
  for (const NSData& bytes : stream.pieces) manager->readData(bytes);
  const std::uint64_t before = allocations;
  for (std::uint64_t round = 0; round < kRounds; ++round) {
    for (const NSData& bytes : stream.pieces) manager->readData(bytes);
  }
  const std::uint64_t counted = allocations - before;
  const std::uint64_t frames = kRounds * stream.frames.size();
  require(receiver->frames() == frames + stream.frames.size(), "not every frame came out");
  const std::string name =
      "allocations/receive/" + std::to_string(payload) + "/" + std::to_string(piece);
  require(counted >= frames, "a frame was delivered without a copy of its own");
  print(name + "/per-frame-alone", frames, frames);
  print(name + "/per-arrival-beside", counted - frames, kRounds * stream.pieces.size());
}

void countDelivery(const char* label, const char* name, const char* rx) {
  const Stream stream = makeStream(12, 20);
  const auto manager = KestrinBleMgr::init(deafPlatform());
  const auto receiver = std::make_shared<CountingReceiver>();
  manager->setRcpReceiverDelegate(receiver);
  const auto peripheral = std::make_shared<FeedPeripheral>(name, rx);
  manager->connectBLE(peripheral);
  for (const NSData& piece : stream.pieces) peripheral->notify(piece);
  const std::uint64_t before = allocations;
  for (const NSData& piece : stream.pieces) peripheral->notify(piece);
  print(std::string("allocations/deliver/") + label, allocations - before, stream.pieces.size());
}

void countWholeWay(const char* label, simulated::ReaderFamily family) {
  const Stream stream = makeStream(12, 20);
  PluggedReader reader(family);
  reader.notify(stream.pieces);
  const std::uint64_t before = allocations;
  reader.notify(stream.pieces);
  print(std::string("allocations/whole-way/") + label, allocations - before, stream.pieces.size());
}

void countAll() {
  for (const std::size_t payload : kPayloads) {
    for (const std::size_t piece : kPieces) countReceive(payload, piece);
  }
  countDelivery("standard", "KVR-0417", "BA821002-3B5B-4654-85FE-E998B123ADEA");
  countDelivery("raw", "KVR-Q62T-0417", "FFF1");
  countWholeWay("standard", simulated::ReaderFamily::standard);
  countWholeWay("raw", simulated::ReaderFamily::kvrQ62T);
}

}  // namespace
}  // namespace kestrin::bench

int main() { kestrin::bench::countAll(); }
