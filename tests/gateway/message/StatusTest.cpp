// A status as JSON, and back.
#include "tools/gateway/message/Status.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "gateway/page/Statuses.h"

namespace kestrin::gateway::test {
namespace {

TEST(StatusText, ComesBack) {
  std::string error;
  EXPECT_EQ(statusOf(textOf(someStatus()), error), someStatus()) << error;
  EXPECT_EQ(statusOf(textOf(Status{}), error), Status{}) << error;
}

TEST(StatusText, BringsNamesOfAnyBytesBack) {
  Status status = someStatus();
  status.readers[0].name = "a\xFF\x1b[31m\xC2\x9B<b>\xE2\x80\xAE";
  status.frames[0].name = status.readers[0].name;
  std::string error;
  EXPECT_EQ(statusOf(textOf(status), error), status) << error;
}

TEST(StatusText, IsOneLineOfAscii) {
  Status status = someStatus();
  status.readers[0].name = "\n\x1b\x7f\xC2\x9B\xFF\xC3\xA4";
  status.trouble = {"\xC3\xA4\r\n"};
  for (const char c : textOf(status)) {
    EXPECT_GE(c, ' ');
    EXPECT_LE(c, '~');
  }
}

TEST(StatusText, HasTheMembersThatProgramsKnow) {
  const auto json = nlohmann::json::parse(textOf(someStatus()));
  EXPECT_EQ(json["v"], 1);
  EXPECT_EQ(json["broker"]["up"], true);
  EXPECT_EQ(json["broker"]["inFlight"], 7);
  EXPECT_EQ(json["log"]["budget"], 1'048'576);
  EXPECT_EQ(json["commits"]["store"], 39);
  EXPECT_EQ(json["readers"][0]["signal"], -61);
  EXPECT_EQ(json["readers"][0]["minutes"].size(), 3U);
  EXPECT_EQ(json["frames"][0]["bytes"], "bb02");
  EXPECT_EQ(json["gaps"][0]["reason"], "refused");
  EXPECT_EQ(json["trouble"][0], "no broker");
}

TEST(StatusText, SaysWhatItCannotRead) {
  std::string error;
  EXPECT_FALSE(statusOf("<html>", error));
  EXPECT_EQ(error, "it is not the status of a gateway: it is not an object of JSON");
  EXPECT_FALSE(statusOf("{\"v\":2}", error));
  EXPECT_EQ(error, "it is the status of a newer gateway");
  EXPECT_FALSE(statusOf("{}", error));
  EXPECT_TRUE(error.starts_with("it is not the status of a gateway: ")) << error;
  EXPECT_FALSE(statusOf("{\"v\":1,\"gateway\":7}", error));
  EXPECT_TRUE(error.starts_with("it is not the status of a gateway: ")) << error;
}

TEST(StatusText, SaysHowManyFramesAreLeftOut) {
  const std::vector<Record> frames{frameNumber(7)};
  const auto json = nlohmann::json::parse(framesText(frames, 12));
  EXPECT_EQ(json["frames"][0]["n"], 7);
  EXPECT_EQ(json["left"], 12);
}

}  // namespace
}  // namespace kestrin::gateway::test
