// A status in a terminal.
#include "tools/gateway/commands/StatusPrint.h"

#include <gtest/gtest.h>

#include "gateway/page/Statuses.h"

namespace kestrin::gateway::test {
namespace {

TEST(StatusPrint, HasALineForEachPart) {
  const std::string log =
      "log       0123456789abcdef0123456789abcdef: 4.0 KiB of 1.0 MiB (0 %), number 100, on the "
      "disk 99, acknowledged 90, waiting 61";
  const std::string reader =
      "reader    KVR-0001 (C0:00:00:00:00:01): pluggedIn for 30 min, found at -61 dBm, 61 frames, "
      "61 in the last hour, 60 in this minute";
  EXPECT_EQ(
      linesOf(someStatus()),
      (std::vector<std::string>{
          "gateway   hall-1, version 1.0.0, running for 59 min, as of 2027-01-15T08:00:00.000Z",
          "broker    broker:8883: connected for 59 min, 7 messages in flight", log,
          "consumer  store: has everything up to 39, 61 behind", reader,
          "gap       41 to 49, refused", "frame     100 2027-01-15T08:00:00.000Z KVR-0001 bb02",
          "trouble   no broker"}));
}

TEST(StatusPrint, SaysThatNothingIsWrong) {
  Status status = someStatus();
  status.trouble.clear();
  EXPECT_EQ(linesOf(status).back(), "trouble   none");
}

TEST(StatusPrint, LetsNothingSteerTheTerminal) {
  Status status = someStatus();
  const std::string name = "\x1b[2J\n\x07\xC2\x9B\xFF";
  status.gateway = status.version = status.atUtc = status.log = status.broker.address = name;
  status.commits = {{name, 1}};
  status.readers[0].name = status.readers[0].reader = status.readers[0].phase = name;
  status.frames[0].name = name;
  status.trouble = {name};
  for (const std::string& line : linesOf(status)) {
    for (const char c : line)
      EXPECT_TRUE(static_cast<unsigned char>(c) >= 0x20 && c != 0x7F) << line;
    EXPECT_EQ(line.find("\xC2\x9B"), std::string::npos);
  }
  EXPECT_NE(linesOf(status)[4].find("\\x1b[2J\\x0a\\x07\\xc2\\x9b\\xff"), std::string::npos);
}

}  // namespace
}  // namespace kestrin::gateway::test
