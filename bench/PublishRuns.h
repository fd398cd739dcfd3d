// Messages published with QoS 1 and a window, and what that cost: by a bare loop around the client
// library, and by the gateway's connection to its broker. And the bare other end.
//
// Threads: one; `publishByBroker` has the connection's thread besides.
// Lifetime: a run leaves nothing behind.
// Errors: a run that fails ends the program with a line.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

namespace kestrin::bench {

struct PublishTask {
  std::uint16_t port = 0;  ///< Of a broker on 127.0.0.1.
  std::size_t count = 0;
  std::size_t window = 100;
  std::string topic = "kestrin/v1/bench/reader/00:00:00:00:00:00/frame";
  std::string payload{};
};

struct PublishCost {
  std::chrono::steady_clock::time_point begun{};  ///< When the first message was handed over.
  std::chrono::nanoseconds wall{};       ///< From the first message to the last acknowledgement.
  std::chrono::nanoseconds processor{};  ///< Of the whole process meanwhile.
};

PublishCost publishBare(const PublishTask& task);
PublishCost publishByBroker(const PublishTask& task);

/// Subscribes with QoS 1, calls `onSubscribed`, and returns when the last of `count` messages has
/// come: then.
std::chrono::steady_clock::time_point receiveBare(std::uint16_t port, const std::string& filter,
                                                  std::size_t count,
                                                  const std::function<void()>& onSubscribed);

/// Of a whole process, this one or another one.
std::chrono::nanoseconds processorTime(pid_t process);

}  // namespace kestrin::bench
