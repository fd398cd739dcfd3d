// Recorded arrivals as text.
#include "tools/kestrin/Recording.h"

#include <gtest/gtest.h>

namespace kestrin::app {
namespace {

using Arrivals = std::vector<NSData>;

Arrivals arrivalsOf(const Recording& recording) {
  Arrivals arrivals;
  for (std::size_t i = 0; i < recording.size(); ++i) arrivals.push_back(recording.arrival(i));
  return arrivals;
}

/// Reads `text` in pieces of `step` characters.
Arrivals read(std::string_view text, std::size_t step) {
  RecordingReader reader;
  Recording recording;
  while (!text.empty()) {
    const auto error = reader.take(text.substr(0, step));
    EXPECT_FALSE(error) << error->line << ": " << error->text;
    text.remove_prefix(std::min(step, text.size()));
  }
  EXPECT_FALSE(reader.finish(recording));
  return arrivalsOf(recording);
}

/// Reads `text` in pieces of every size, which must make no difference.
Arrivals read(std::string_view text) {
  Arrivals whole = read(text, text.size() + 1);
  for (std::size_t step = 1; step <= text.size(); ++step) EXPECT_EQ(read(text, step), whole);
  return whole;
}

RecordingError recordingErrorOf(std::string_view text) {
  RecordingReader reader;
  Recording recording;
  auto error = reader.take(text);
  if (!error) error = reader.finish(recording);
  EXPECT_TRUE(error) << text;
  return error.value_or(RecordingError{});
}

TEST(Recording, EachLineIsAnArrival) {
  EXPECT_EQ(read("BB01\n02 03\n"), (Arrivals{{0xBB, 0x01}, {0x02, 0x03}}));
}

TEST(Recording, AFinalLineEndAddsNoArrivalAndAMissingOneLosesNone) {
  EXPECT_EQ(read("BB"), (Arrivals{{0xBB}}));
  EXPECT_EQ(read("BB\n"), (Arrivals{{0xBB}}));
  EXPECT_EQ(read("BB\n\n"), (Arrivals{{0xBB}, {}}));
  EXPECT_EQ(read("BB\n "), (Arrivals{{0xBB}, {}}));
  EXPECT_EQ(read("\n"), (Arrivals{{}}));
  EXPECT_EQ(read(""), Arrivals{});
}

TEST(Recording, EmptyAndBlankLinesAreArrivalsOfNoBytes) {
  EXPECT_EQ(read("\n  \n\t\nBB\n"), (Arrivals{{}, {}, {}, {0xBB}}));
}

TEST(Recording, LinesThatStartWithAHashAreComments) {
  EXPECT_EQ(read("# no hex\n#\n#\r\nBB\n# the end"), (Arrivals{{0xBB}}));
  EXPECT_EQ(recordingErrorOf(" # not at the start").column, 2U);
}

TEST(Recording, ACarriageReturnAtTheEndOfALineIsIgnored) {
  EXPECT_EQ(read("BB\r\n\r\n01\r"), (Arrivals{{0xBB}, {}, {0x01}}));
  EXPECT_EQ(recordingErrorOf("BB\r\r\n").column, 3U);
  EXPECT_EQ(recordingErrorOf("BB\r01\n").column, 3U);
}

TEST(Recording, AnErrorHasItsLineAndColumn) {
  const auto error = recordingErrorOf("# comment\n\nBB 00\nBB 0x\nzz\n");
  EXPECT_EQ(error.line, 4U);
  EXPECT_EQ(error.column, 5U);
  EXPECT_EQ(error.text, "bytes are written without 0x, as in BB 00 03");
  EXPECT_EQ(recordingErrorOf("00\n0").line, 2U);
}

}  // namespace
}  // namespace kestrin::app
