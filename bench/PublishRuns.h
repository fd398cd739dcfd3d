// Messages published with QoS 1 and a window, and what that cost: by a bare loop around the client
// library, and by the gateway's connection to its broker.
//
// Threads: one; the second run has the connection's thread besides.
// Lifetime: a run leaves nothing behind.
// Errors: a run that fails ends the program with a line.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
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
  std::chrono::nanoseconds wall{};       ///< From the first message to the last acknowledgement.
  std::chrono::nanoseconds processor{};  ///< Of the whole process meanwhile.
};

PublishCost publishBare(const PublishTask& task);
PublishCost publishByBroker(const PublishTask& task);

}  // namespace kestrin::bench
