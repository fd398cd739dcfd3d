// Publishing to a real broker by the gateway's connection, beside a bare loop around the client
// library with the same window, in turns. One line for each turn: bare messages per second, tab,
// the connection's, tab, bare nanoseconds of processor time per message, tab, the connection's.
// Usage: kestrin_bench_gateway_publish COUNT TURNS
#include <charconv>
#include <cstdio>
#include <string>
#include <string_view>

#include "Frames.h"
#include "PublishRuns.h"
#include "gateway/support/MosquittoProcess.h"

namespace kestrin::bench {
namespace {

double perSecond(const PublishCost& cost, std::size_t count) {
  return static_cast<double>(count) / std::chrono::duration<double>(cost.wall).count();
}

double processorEach(const PublishCost& cost, std::size_t count) {
  return static_cast<double>(cost.processor.count()) / static_cast<double>(count);
}

void measure(std::size_t count, int turns) {
  gateway::MosquittoProcess mosquitto;
  mosquitto.configure("allow_anonymous true\nmax_inflight_messages 100\n");
  const auto failure = mosquitto.start();
  require(!failure, failure.value_or("").c_str());
  PublishTask task;
  task.port = mosquitto.port();
  task.count = count;
  task.payload = std::string(300, 'x');  // As long as a frame of 13 bytes in JSON.
  for (int turn = 0; turn < turns; ++turn) {
    const PublishCost bare = publishBare(task);
    const PublishCost ours = publishByBroker(task);
    std::printf("%.0f\t%.0f\t%.0f\t%.0f\n", perSecond(bare, count), perSecond(ours, count),
                processorEach(bare, count), processorEach(ours, count));
    std::fflush(stdout);
  }
}

template <class Number>
Number numberIn(const char* text) {
  Number number{};
  const std::string_view word = text;
  std::from_chars(word.data(), word.data() + word.size(), number);
  return number;
}

}  // namespace
}  // namespace kestrin::bench

int main(int count, char** words) {
  const auto messages = count == 3 ? kestrin::bench::numberIn<std::size_t>(words[1]) : 0;
  const int turns = count == 3 ? kestrin::bench::numberIn<int>(words[2]) : 0;
  if (messages == 0 || turns < 1) {
    std::fputs("usage: kestrin_bench_gateway_publish COUNT TURNS\n", stderr);
    return 2;
  }
  kestrin::bench::measure(messages, turns);
}
