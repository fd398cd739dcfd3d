// How long a program with the library takes from its start to its end, beside the same program
// without it, in turns. One line for each turn: nanoseconds with, tab, nanoseconds without.
// Usage: kestrin_bench_startup WITH WITHOUT TURNS
#include <spawn.h>
#include <sys/types.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "Frames.h"

namespace kestrin::bench {
namespace {

using Stopwatch = std::chrono::steady_clock;

/// From the call that starts the program until it has ended, in nanoseconds.
long long lifeOf(std::string path) {
  std::array<char*, 2> arguments = {path.data(), nullptr};
  std::array<char*, 1> environment = {nullptr};
  pid_t child = 0;
  int status = 0;
  const auto begun = Stopwatch::now();
  require(posix_spawn(&child, path.c_str(), nullptr, nullptr, arguments.data(),
                      environment.data()) == 0,
          "a program did not start");
  require(waitpid(child, &status, 0) == child, "a program was lost");
  const auto ended = Stopwatch::now();
  require(WIFEXITED(status) && WEXITSTATUS(status) == 0, "a program failed");
  return std::chrono::nanoseconds(ended - begun).count();
}

long long middleOf(std::vector<long long> values) {
  std::ranges::sort(values);
  return values[values.size() / 2];
}

void measure(const std::string& with, const std::string& without, int turns) {
  constexpr int kRunsOfEach = 51;
  for (int turn = 0; turn < turns; ++turn) {
    std::vector<long long> livesWith;
    std::vector<long long> livesWithout;
    for (int run = 0; run < kRunsOfEach; ++run) {
      livesWith.push_back(lifeOf(with));
      livesWithout.push_back(lifeOf(without));
    }
    std::printf("%lld\t%lld\n", middleOf(livesWith), middleOf(livesWithout));
  }
}

}  // namespace
}  // namespace kestrin::bench

int main(int count, char** words) {
  int turns = 0;
  const std::string_view number = count == 4 ? words[3] : "";
  std::from_chars(number.data(), number.data() + number.size(), turns);
  if (turns < 1) {
    std::fputs("usage: kestrin_bench_startup WITH WITHOUT TURNS\n", stderr);
    return 2;
  }
  kestrin::bench::measure(words[1], words[2], turns);
}
