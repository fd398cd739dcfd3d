// The run loop: delayed requests armed, cancelled, armed again and fired while few or many are
// pending, and work posted from another thread.
#include <benchmark/benchmark.h>

#include <KestrinBLESDK/platform/MainRunLoop.h>

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Frames.h"
#include "kestrin/simulated/VirtualClock.h"

namespace kestrin::bench {
namespace {

constexpr double kLater = 3600;  // Seconds: pending throughout.

const SEL kPending{"pending", [](void* /*target*/, const std::shared_ptr<void>&) noexcept {}};
const SEL kOwn{"own", [](void* target, const std::shared_ptr<void>&) noexcept {
                 ++*static_cast<std::uint64_t*>(target);
               }};

/// A loop in virtual time with delayed requests pending, each on a target of its own.
struct BusyLoop {
  explicit BusyLoop(std::size_t pending) {
    for (std::size_t i = 0; i < pending; ++i) {
      loop.performSelector_withObject_afterDelay(std::make_shared<int>(0), kPending, nullptr,
                                                 kLater);
    }
  }
  void arm(double seconds) {
    loop.performSelector_withObject_afterDelay(fired, kOwn, nullptr, seconds);
  }
  void cancel() {
    loop.cancelPreviousPerformRequestsWithTarget_selector_object(fired.get(), kOwn, nullptr);
  }

  MainRunLoop loop{std::make_shared<simulated::VirtualClock>()};
  const std::shared_ptr<std::uint64_t> fired = std::make_shared<std::uint64_t>(0);
};

void armAndCancel(benchmark::State& state, std::size_t pending) {
  BusyLoop busy(pending);
  for ([[maybe_unused]] auto turn : state) {
    busy.arm(1);
    busy.cancel();
  }
  require(!busy.loop.runOneTurn() && *busy.fired == 0, "a cancelled request ran");
}

void rearm(benchmark::State& state, std::size_t pending) {
  BusyLoop busy(pending);
  busy.arm(1);
  for ([[maybe_unused]] auto turn : state) {
    busy.cancel();
    busy.arm(1);
  }
  busy.loop.runFor(std::chrono::seconds(1));
  require(*busy.fired == 1, "the request did not run once");
}

void armAndFire(benchmark::State& state, std::size_t pending) {
  BusyLoop busy(pending);
  for ([[maybe_unused]] auto turn : state) {
    busy.arm(0);
    busy.loop.runOneTurn();
  }
  require(*busy.fired == static_cast<std::uint64_t>(state.iterations()), "a request did not run");
}

/// All of them armed, and fired in one turn: each on a target of its own, or on one target.
void armAndFireAll(benchmark::State& state, std::size_t requests, bool ownTargets) {
  BusyLoop busy(0);
  std::vector<std::shared_ptr<std::uint64_t>> targets(requests, busy.fired);
  if (ownTargets) {
    for (auto& target : targets) target = std::make_shared<std::uint64_t>(0);
  }
  for ([[maybe_unused]] auto turn : state) {
    for (const auto& target : targets) {
      busy.loop.performSelector_withObject_afterDelay(target, kOwn, nullptr, 0);
    }
    busy.loop.runOneTurn();
  }
  const auto turns = static_cast<std::uint64_t>(state.iterations());
  require(*targets.back() == (ownTargets ? turns : turns * requests), "a request did not run");
}

/// A loop in real time that another thread turns.
class TurningLoop {
 public:
  TurningLoop() : thread_([this] { loop.run(); }) {}
  ~TurningLoop() {
    loop.stop();
    thread_.join();
  }
  TurningLoop(const TurningLoop&) = delete;
  TurningLoop& operator=(const TurningLoop&) = delete;

  MainRunLoop loop;

 private:
  std::thread thread_;
};

/// From `post` on this thread to the work on the loop's, and back by a flag.
void postLatency(benchmark::State& state) {
  TurningLoop turning;
  std::atomic<std::uint64_t> ran{0};
  std::uint64_t posted = 0;
  for ([[maybe_unused]] auto turn : state) {
    turning.loop.post([&ran] {
      ++ran;
      ran.notify_one();
    });
    ran.wait(posted);
    ++posted;
  }
}

/// As much of the same as a thread and a flag cost by themselves.
void postLatencyFloor(benchmark::State& state) {
  std::atomic<std::uint64_t> asked{0};
  std::atomic<std::uint64_t> ran{0};
  constexpr std::uint64_t kEnd = ~std::uint64_t{0};
  std::thread other([&] {
    for (std::uint64_t seen = 0;; ++seen) {
      asked.wait(seen);
      if (asked == kEnd) return;
      ++ran;
      ran.notify_one();
    }
  });
  std::uint64_t posted = 0;
  for ([[maybe_unused]] auto turn : state) {
    ++asked;
    asked.notify_one();
    ran.wait(posted);
    ++posted;
  }
  asked = kEnd;
  asked.notify_one();
  other.join();
}

constexpr std::uint64_t kPosts = 10'000;

/// Functions handed from one thread to another by a lock and a list, which is as little as it
/// takes.
class HandOver {
 public:
  HandOver() : thread_([this] { run(); }) {}
  ~HandOver() {
    post([this] { ended_ = true; });
    thread_.join();
  }
  HandOver(const HandOver&) = delete;
  HandOver& operator=(const HandOver&) = delete;

  void post(std::function<void()> work) {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      waiting_.push_back(std::move(work));
    }
    changed_.notify_one();
  }

 private:
  void run() {
    while (!ended_) {
      std::vector<std::function<void()>> taken;
      {
        std::unique_lock<std::mutex> lock(mutex_);
        changed_.wait(lock, [this] { return !waiting_.empty(); });
        taken.swap(waiting_);
      }
      for (const auto& work : taken) work();
    }
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<std::function<void()>> waiting_;
  bool ended_ = false;  // Of the other thread alone.
  std::thread thread_;
};

/// Many posts on end, to a thread that runs them.
template <class Poster>
void postThroughput(benchmark::State& state, Poster& poster) {
  std::atomic<std::uint64_t> ran{0};
  std::uint64_t posted = 0;
  for ([[maybe_unused]] auto turn : state) {
    for (std::uint64_t i = 0; i < kPosts; ++i) poster.post([&ran] { ++ran; });
    posted += kPosts;
    std::atomic<bool> done{false};
    poster.post([&done] {
      done = true;
      done.notify_one();
    });
    done.wait(false);
    require(ran == posted, "posted work did not run");
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(posted));
}

const bool registered = [] {
  for (const std::size_t pending : std::array<std::size_t, 3>{1, 100, 10'000}) {
    const std::string count = "/" + std::to_string(pending);
    benchmark::RegisterBenchmark(("loop/arm-and-cancel" + count).c_str(), armAndCancel, pending);
    benchmark::RegisterBenchmark(("loop/rearm" + count).c_str(), rearm, pending);
    benchmark::RegisterBenchmark(("loop/arm-and-fire" + count).c_str(), armAndFire, pending);
    benchmark::RegisterBenchmark(("loop/fire-all" + count).c_str(), armAndFireAll, pending, true);
    benchmark::RegisterBenchmark(("loop/fire-all-on-one" + count).c_str(), armAndFireAll, pending,
                                 false);
  }
  benchmark::RegisterBenchmark("loop/post-latency", postLatency)->UseRealTime();
  benchmark::RegisterBenchmark("loop/post-latency-floor", postLatencyFloor)->UseRealTime();
  benchmark::RegisterBenchmark("loop/post-throughput", [](benchmark::State& state) {
    TurningLoop turning;
    postThroughput(state, turning.loop);
  })->UseRealTime();
  benchmark::RegisterBenchmark("loop/post-throughput-floor", [](benchmark::State& state) {
    HandOver handOver;
    postThroughput(state, handOver);
  })->UseRealTime();
  return true;
}();

}  // namespace
}  // namespace kestrin::bench
