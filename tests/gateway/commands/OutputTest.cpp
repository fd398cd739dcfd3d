// What the program prints where nobody reads.
#include "tools/gateway/commands/Output.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <string>

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

TEST(Output, EscapesWhatCouldSteerATerminal) {
  std::array<int, 2> pipe{};
  ASSERT_EQ(::pipe2(pipe.data(), O_CLOEXEC | O_NONBLOCK), 0);
  Output output(pipe[1], pipe[1]);
  output.note("the reader 'a\x1b[2J' is not in range");
  EXPECT_EQ(readAll(pipe[0]), "kestrin-gateway: the reader 'a\\x1b[2J' is not in range\n");
  ::close(pipe[0]);
  ::close(pipe[1]);
}

}  // namespace
}  // namespace kestrin::gateway
