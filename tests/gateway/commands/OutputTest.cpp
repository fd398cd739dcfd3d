// What the program prints where nobody reads.
#include "tools/gateway/commands/Output.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <future>
#include <string>
#include <vector>

namespace kestrin::gateway {
namespace {

std::string readAll(int descriptor) {
  std::string all;
  std::array<char, 65536> piece{};
  for (ssize_t count = 0; (count = ::read(descriptor, piece.data(), piece.size())) > 0;) {
    all.append(piece.data(), static_cast<std::size_t>(count));
  }
  return all;
}

TEST(Output, DropsAndCountsTheLinesThatNobodyReads) {
  std::array<int, 2> pipe{};
  ASSERT_EQ(::pipe2(pipe.data(), O_CLOEXEC), 0);
  ASSERT_EQ(::fcntl(pipe[0], F_SETFL, O_NONBLOCK), 0);
  Output output(pipe[1], pipe[1]);
  const std::string line(1000, 'x');
  for (int i = 0; i < 1000; ++i) output.note(line);
  const std::string before = readAll(pipe[0]);
  EXPECT_LT(before.size(), 100'000U);
  EXPECT_EQ(before.back(), '\n');
  output.note("now");
  const auto written = before.size() / (line.size() + std::string("kestrin-gateway: \n").size());
  EXPECT_EQ(readAll(pipe[0]), "kestrin-gateway: nobody has read, so " +
                                  std::to_string(1000 - written) +
                                  " lines are missing here\nkestrin-gateway: now\n");
  ::close(pipe[0]);
  ::close(pipe[1]);
}

TEST(Output, ALineThatIsLongerThanThePipeWaitsForNobodyWithoutEnd) {
  std::array<int, 2> pipe{};
  ASSERT_EQ(::pipe2(pipe.data(), O_CLOEXEC), 0);
  ASSERT_EQ(::fcntl(pipe[0], F_SETFL, O_NONBLOCK), 0);
  Output output(pipe[1], pipe[1]);
  auto noted = std::async(std::launch::async, [&] { output.note(std::string(200'000, 'x')); });
  EXPECT_EQ(noted.wait_for(std::chrono::seconds(60)), std::future_status::ready);
  std::string before;
  do {
    before += readAll(pipe[0]);
  } while (noted.wait_for(std::chrono::milliseconds(1)) != std::future_status::ready);
  EXPECT_EQ(before.substr(0, 18), "kestrin-gateway: x");
  output.note("now");
  EXPECT_EQ(readAll(pipe[0]),
            "\nkestrin-gateway: nobody has read, so 1 lines are missing here\n"
            "kestrin-gateway: now\n");
  output.note(std::string(20'000, 'y'));
  EXPECT_EQ(readAll(pipe[0]), "kestrin-gateway: " + std::string(20'000, 'y') + "\n");
  ::close(pipe[0]);
  ::close(pipe[1]);
}

TEST(Output, EscapesWhatCouldSteerATerminal) {
  std::array<int, 2> pipe{};
  ASSERT_EQ(::pipe2(pipe.data(), O_CLOEXEC | O_NONBLOCK), 0);
  Output output(pipe[1], pipe[1]);
  output.note("the reader 'a\x1b[2J' is not in range");
  EXPECT_EQ(readAll(pipe[0]), "kestrin-gateway: the reader 'a\\x1b[2J' is not in range\n");
  ::close(pipe[0]);
  ::close(pipe[1]);
}

TEST(Output, TheJournalTakesLinesEscapedAndInPlaceOfStandardError) {
  std::array<int, 2> pipe{};
  ASSERT_EQ(::pipe2(pipe.data(), O_CLOEXEC | O_NONBLOCK), 0);
  Output output(pipe[1], pipe[1]);
  std::vector<Line> taken;
  output.noteIn([&taken](const Line& line) {
    taken.push_back(line);
    return true;
  });
  Line line("the reader 'a\x1b[2J'", 7);
  line.reader = "a\x1b[2J";
  line.reason = "reader";
  output.note(line);
  Line escaped("the reader 'a\\x1b[2J'", 7);
  escaped.reader = "a\\x1b[2J";
  escaped.reason = "reader";
  EXPECT_EQ(taken, std::vector<Line>{escaped});
  EXPECT_EQ(readAll(pipe[0]), "");
  ::close(pipe[0]);
  ::close(pipe[1]);
}

TEST(Output, WhatTheJournalDoesNotTakeGoesToStandardError) {
  std::array<int, 2> pipe{};
  ASSERT_EQ(::pipe2(pipe.data(), O_CLOEXEC | O_NONBLOCK), 0);
  Output output(pipe[1], pipe[1]);
  output.noteIn([](const Line&) { return false; });
  output.note("now");
  EXPECT_EQ(readAll(pipe[0]), "kestrin-gateway: now\n");
  ::close(pipe[0]);
  ::close(pipe[1]);
}

}  // namespace
}  // namespace kestrin::gateway
