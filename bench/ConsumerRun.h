// The consumer's end of a bench: a declared consumer on a connection of its own, which takes what
// the gateway publishes and commits it.
//
// Threads: the caller's, and the connection's.
// Lifetime: a run leaves nothing behind but its commit.
// Errors: a broker that is lost and a delivery that cannot be read end the program.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

#include "tools/gateway/log/Log.h"

namespace kestrin::bench {

struct ConsumerTask {
  std::uint16_t port = 0;
  std::string gateway;
  std::string consumer;
  gateway::RecordNumber first = 0;  ///< Up to this number all is there before it begins.
  gateway::RecordNumber last = 0;
};

struct ConsumerEnd {
  std::chrono::steady_clock::time_point moment{};  ///< When the last number was taken.
  std::uint64_t repeats = 0;
  std::uint64_t lost = 0;
};

/// Calls `onReady` when it has `first`, and returns when it has committed `last`.
ConsumerEnd runConsumer(const ConsumerTask& task, const std::function<void()>& onReady);

}  // namespace kestrin::bench
