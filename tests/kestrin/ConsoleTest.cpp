// What reaches standard output and standard error.
#include "tools/kestrin/console/Console.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "kestrin/Captured.h"

namespace kestrin::app {
namespace {

TEST(Printable, LeavesOrdinaryTextAlone) {
  EXPECT_EQ(printable("KVR-0417 ~!"), "KVR-0417 ~!");
  EXPECT_EQ(printable(""), "");
  EXPECT_EQ(printable("L\xC3\xA4sare \xE2\x82\xAC \xF0\x9F\x98\x80"),
            "L\xC3\xA4sare \xE2\x82\xAC \xF0\x9F\x98\x80");
}

TEST(Printable, EscapesWhatCouldSteerATerminal) {
  EXPECT_EQ(printable("a\x1b[2Jb\n\r\t\x7f"), "a\\x1b[2Jb\\x0a\\x0d\\x09\\x7f");
  EXPECT_EQ(printable(std::string_view("\0", 1)), "\\x00");
  EXPECT_EQ(printable("\xC2\x9B"), "\\xc2\\x9b");           // The 8-bit form of ESC [.
  EXPECT_EQ(printable("\xE2\x80\xAE"), "\\xe2\\x80\\xae");  // Right-to-left override.
  EXPECT_EQ(printable("\xE2\x81\xA6"), "\\xe2\\x81\\xa6");
}

TEST(Printable, CanBeToldFromAnEscape) { EXPECT_EQ(printable("\\x1b"), "\\\\x1b"); }

TEST(Printable, EscapesBytesThatAreNoText) {
  EXPECT_EQ(printable("\xFF"), "\\xff");
  EXPECT_EQ(printable("\xC3"), "\\xc3");           // Cut short.
  EXPECT_EQ(printable("\xC3("), "\\xc3(");         // Not continued.
  EXPECT_EQ(printable("\xC0\x8A"), "\\xc0\\x8a");  // A line feed in two bytes.
  EXPECT_EQ(printable("\xE0\x80\x8A"), "\\xe0\\x80\\x8a");
  EXPECT_EQ(printable("\xED\xA0\x80"), "\\xed\\xa0\\x80");  // A surrogate.
  EXPECT_EQ(printable("\xF4\x90\x80\x80"), "\\xf4\\x90\\x80\\x80");
}

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
