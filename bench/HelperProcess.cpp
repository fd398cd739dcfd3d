#include "HelperProcess.h"

#include <charconv>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <optional>
#include <sstream>

#include "Frames.h"

namespace kestrin::bench {
namespace {

constexpr Time kLookAgain = std::chrono::milliseconds(5);
constexpr Time kLimit = std::chrono::minutes(15);

std::vector<std::string> commandOf(const std::vector<std::string>& words) {
  std::vector<std::string> command{std::filesystem::read_symlink("/proc/self/exe")};
  command.insert(command.end(), words.begin(), words.end());
  return command;
}

}  // namespace

HelperProcess::HelperProcess(const std::vector<std::string>& words) {
  require(process_.start(commandOf(words), folder_.pathOf("output")), "no helper starts");
}

std::string HelperProcess::printedLine(const std::string& word) const {
  std::istringstream lines(gateway::contentsOf(folder_.pathOf("output")));
  for (std::string line; std::getline(lines, line);) {
    // The end of a line that is being written is not there yet.
    if (line.starts_with(word + "\t") && !lines.eof()) return line.substr(word.size() + 1);
  }
  return {};
}

std::string HelperProcess::lineOf(const std::string& word, MainRunLoop& loop) {
  const Time limit = timeAfter(loop.now(), kLimit);
  std::string line;
  bool runs = true;
  while (line.empty() && runs && loop.now() < limit) {
    runs = process_.runs();
    line = printedLine(word);
    if (line.empty()) loop.runFor(kLookAgain);
  }
  const std::string failure =
      "a helper does not come to '" + word + "': " + gateway::contentsOf(folder_.pathOf("output"));
  require(!line.empty(), failure.c_str());
  return line;
}

std::uint64_t HelperProcess::numberOf(const std::string& word, MainRunLoop& loop) {
  const std::string line = lineOf(word, loop);
  std::uint64_t number = 0;
  std::from_chars(line.data(), line.data() + line.size(), number);
  return number;
}

std::chrono::steady_clock::time_point HelperProcess::momentOf(const std::string& word,
                                                              MainRunLoop& loop) {
  const std::chrono::nanoseconds since(numberOf(word, loop));
  return std::chrono::steady_clock::time_point(since);
}

void printLine(const std::string& word, std::uint64_t number) {
  std::printf("%s\t%llu\n", word.c_str(), static_cast<unsigned long long>(number));
  std::fflush(stdout);
}

void printMoment(const std::string& word, std::chrono::steady_clock::time_point moment) {
  const std::chrono::nanoseconds since = moment.time_since_epoch();
  printLine(word, static_cast<std::uint64_t>(since.count()));
}

}  // namespace kestrin::bench
