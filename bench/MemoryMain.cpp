// What managers take of memory: one and eight of them on one simulated radio, each with a reader
// plugged in that has sent frames. One line each: name, tab, bytes.
#include <malloc.h>

#include <cstdio>
#include <fstream>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "CountedAllocations.h"
#include "Frames.h"
#include "PluggedReader.h"

namespace kestrin::bench {
namespace {

constexpr std::size_t kManagers = 8;

/// What is in memory of this process, in bytes. `which`: of the kinds that the system tells apart.
std::size_t inMemory(std::string_view which) {
  std::ifstream kinds("/proc/self/smaps_rollup");
  std::string word;
  std::size_t kilobytes = 0;
  while (kinds >> word) {
    if (word != which) continue;
    kinds >> kilobytes;
    return kilobytes * 1024;
  }
  require(false, "the system does not tell what is in memory");
  return 0;
}

struct Taken {
  std::size_t live = liveBytes();
  /// With the libraries' code, which other processes share.
  std::size_t resident = inMemory("Rss:");
  std::size_t own = inMemory("Private_Dirty:");
};

void print(const char* name, std::size_t bytes) { std::printf("%s\t%zu\n", name, bytes); }

void measure() {
  const Stream stream = makeStream(256, 244);
  const std::vector<NSData> pieces(stream.pieces.begin(), stream.pieces.begin() + 100);
  std::vector<std::unique_ptr<PluggedReader>> readers;
  readers.reserve(kManagers);
  std::vector<Taken> taken;
  taken.reserve(kManagers + 1);
  const auto platform = quietPlatform();
  malloc_trim(0);  // Or the managers would take what the stream's making has left over.
  taken.emplace_back();
  for (std::size_t i = 1; i <= kManagers; ++i) {
    readers.push_back(std::make_unique<PluggedReader>(platform, "KVR-" + std::to_string(i)));
    const std::uint64_t before = readers.back()->receiver().frames();
    readers.back()->notify(pieces);
    require(readers.back()->receiver().frames() > before, "no frame was received");
    taken.emplace_back();
  }
  const Taken& none = taken.front();
  const Taken& one = taken[1];
  const Taken& eight = taken.back();
  print("memory/live/one", one.live - none.live);
  print("memory/live/eight", eight.live - none.live);
  print("memory/live/each-further", (eight.live - one.live) / (kManagers - 1));
  print("memory/own/none", none.own);
  print("memory/own/one", one.own);
  print("memory/own/eight", eight.own);
  print("memory/own/each-further", (eight.own - one.own) / (kManagers - 1));
  print("memory/resident/none", none.resident);
  print("memory/resident/one", one.resident);
  print("memory/resident/eight", eight.resident);
  print("memory/object/manager", sizeof(KestrinBleMgr));
}

}  // namespace
}  // namespace kestrin::bench

int main() { kestrin::bench::measure(); }
