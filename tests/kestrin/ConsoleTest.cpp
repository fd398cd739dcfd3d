// What reaches standard output and standard error.
#include "tools/kestrin/console/Console.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "kestrin/Captured.h"

namespace kestrin::app {
namespace {

TEST(Console, ALineIsThereAtOnceAndHeldOutputWithTheFlush) {
  test::Captured captured;
  captured.console.line("one");
  EXPECT_EQ(captured.output.text(), "one\n");
  captured.console.holdOutput();
  captured.console.line("two");
  EXPECT_EQ(captured.output.text(), "one\n");
  captured.console.flush();
  EXPECT_EQ(captured.output.text(), "one\ntwo\n");
}

TEST(Console, HeldOutputDoesNotGrowWithoutBound) {
  test::Captured captured;
  captured.console.holdOutput();
  const std::string line(1000, 'x');
  for (int i = 0; i < 100; ++i) captured.console.line(line);
  EXPECT_GE(captured.output.text().size(), 60000U);
}

TEST(Console, ANoteComesAfterTheOutputBeforeIt) {
  test::CapturedStream both;
  Console console(both.descriptor(), both.descriptor());
  console.holdOutput();
  console.line("result");
  console.note("wrong");
  EXPECT_EQ(both.text(), "result\nkestrin: wrong\n");
}

TEST(Console, ShowsNoLiveLineWhereThereIsNoTerminal) {
  test::Captured captured;
  EXPECT_FALSE(captured.console.hasLiveLine());
  captured.console.live("scanning");
  captured.console.line("x");
  EXPECT_EQ(captured.errors.text(), "");
}

TEST(Console, RemembersWhyOutputCouldNotBeWritten) {
  test::CapturedStream errors;
  const int full = ::open("/dev/full", O_WRONLY | O_CLOEXEC);
  ASSERT_GE(full, 0);
  {
    Console console(full, errors.descriptor());
    EXPECT_FALSE(console.outputError());
    console.line("x");
    EXPECT_EQ(console.outputError(), std::errc::no_space_on_device);
  }
  ::close(full);
}

TEST(Console, OnATerminalTheLiveLineGivesWayToResults) {
  const int terminal = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  ASSERT_GE(terminal, 0);
  ASSERT_EQ(::grantpt(terminal), 0);
  ASSERT_EQ(::unlockpt(terminal), 0);
  char name[128];
  ASSERT_EQ(::ptsname_r(terminal, name, sizeof name), 0);
  const int side = ::open(name, O_RDWR | O_NOCTTY | O_CLOEXEC);
  ASSERT_GE(side, 0);
  ASSERT_EQ(::setenv("TERM", "xterm", 1), 0);  // NOLINT(concurrency-mt-unsafe): one thread.
  {
    Console console(side, side);
    EXPECT_TRUE(console.hasLiveLine());
    console.live("scanning");
    console.line("KVR-1");
  }
  const std::string expected = "\rscanning\x1b[K\r\x1b[KKVR-1\r\n";
  std::string shown;
  while (shown.size() < expected.size()) {
    char buffer[128];
    const ssize_t length = ::read(terminal, buffer, sizeof buffer);
    ASSERT_GT(length, 0);
    shown.append(buffer, static_cast<std::size_t>(length));
  }
  EXPECT_EQ(shown, expected);
  ::close(side);
  ::close(terminal);
}

}  // namespace
}  // namespace kestrin::app
