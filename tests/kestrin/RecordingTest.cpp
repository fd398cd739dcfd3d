// Recorded arrivals as text.
#include "tools/kestrin/recording/Recording.h"

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

constexpr char kHeader[] = R"({"format":"kestrin-recording","version":1})"
                           "\n";

std::string valueLine(const std::string& kind, const std::string& name,
                      const std::string& characteristic, const std::string& rest) {
  return R"({"time":1,"kind":")" + kind + R"(","identifier":"C0","name":")" + name +
         R"(","characteristic":")" + characteristic + "\"" + rest + "}\n";
}

Recording recordingOf(std::string_view text) {
  RecordingReader reader;
  Recording recording;
  auto error = reader.take(text);
  if (!error) error = reader.finish(recording);
  EXPECT_FALSE(error) << error->line << ":" << error->column << ": " << error->text;
  return recording;
}

TEST(JsonRecording, ItsArrivalsAreItsValuesAsTheManagerRoutesThem) {
  const std::string bytes = R"(,"bytes":"bb01")";
  const std::string text =
      kHeader + valueLine("notification", "KVR", "FFF1", bytes) +
      valueLine("notification", "KVR-Q62T 1", "FFF1", bytes) +
      valueLine("read-value", "KVR-Q62T 1", "2A29", bytes) +
      valueLine("notification", "KVR", "FFF1", bytes + R"(,"error":"no")") +
      valueLine("notification", "KVR", "FFF1", "") +
      valueLine("subscription", "KVR-Q62T 1", "FFF1", bytes + R"(,"error":"no")") +
      valueLine("write", "KVR", "FFF2", bytes) +
      valueLine("notification", "KVR", "FFF1", R"(,"bytes":"")");
  const Recording recording = recordingOf(text);
  EXPECT_TRUE(recording.isJson());
  ASSERT_EQ(arrivalsOf(recording), (Arrivals{{0xBB, 0x01}, {0xBB, 0x01}, {0xBB, 0x01}, {}}));
  EXPECT_FALSE(recording.isRaw(0));
  EXPECT_TRUE(recording.isRaw(1));
  EXPECT_FALSE(recording.isRaw(2));
  EXPECT_EQ(recording.events().size(), 8U);
  EXPECT_EQ(read(text), arrivalsOf(recording));
}

TEST(JsonRecording, ACutLastLineIsLeftOutAndTold) {
  const std::string line = valueLine("notification", "KVR", "FFF1", R"(,"bytes":"bb")");
  const std::string text = kHeader + line + line;
  for (std::size_t length = text.size() - line.size() + 1; length < text.size() - 1; ++length) {
    const Recording recording = recordingOf(text.substr(0, length));
    EXPECT_EQ(arrivalsOf(recording), Arrivals{{0xBB}});
    EXPECT_EQ(recording.cutLine(), 3U);
  }
  // Without its end alone a line is whole.
  EXPECT_EQ(recordingOf(text.substr(0, text.size() - 1)).size(), 2U);
  EXPECT_EQ(recordingOf(text.substr(0, text.size() - 1)).cutLine(), std::nullopt);
  EXPECT_EQ(recordingOf(text.substr(0, text.size() - line.size())).cutLine(), std::nullopt);
}

TEST(JsonRecording, ACutHeaderLeavesNothing) {
  const Recording recording = recordingOf(R"({"format":"kestr)");
  EXPECT_TRUE(recording.isJson());
  EXPECT_EQ(recording.cutLine(), 1U);
  EXPECT_EQ(recording.header(), std::nullopt);
}

TEST(JsonRecording, ALineThatIsCutInTheMiddleIsDamage) {
  const std::string line = valueLine("notification", "KVR", "FFF1", R"(,"bytes":"bb")");
  const auto error = recordingErrorOf(kHeader + line.substr(0, 10) + "\n" + line);
  EXPECT_EQ(error.line, 2U);
  EXPECT_EQ(error.column, 11U);
}

TEST(JsonRecording, AnErrorHasItsLineAndColumn) {
  const auto error =
      recordingErrorOf(std::string(kHeader) + R"({"time":1,"kind":"frame","bytes":"zz"})");
  EXPECT_EQ(error.line, 2U);
  EXPECT_EQ(error.column, 35U);
  EXPECT_EQ(recordingErrorOf(std::string(kHeader) + "\n").line, 2U);
  EXPECT_EQ(recordingErrorOf(std::string("BB\n") + kHeader).line, 2U);
}

TEST(JsonRecording, TimeDoesNotGoBack) {
  const auto error = recordingErrorOf(std::string(kHeader) +
                                      "{\"time\":2,\"kind\":\"scan\"}\n"
                                      "{\"kind\":\"scan\",\"time\":1.5}\n");
  EXPECT_EQ(error.line, 3U);
  EXPECT_EQ(error.column, 23U);
  EXPECT_EQ(error.text, "the time goes back, from 2 s to 1.5 s; a recording is in order of time");
}

TEST(JsonRecording, ALineWithoutAnEndIsNotGatheredForEver) {
  RecordingReader reader;
  ASSERT_FALSE(reader.take(kHeader));
  ASSERT_FALSE(reader.take(R"({"time":1,"kind":"log","text":")"));
  std::optional<RecordingError> error;
  const std::string piece(1U << 16, 'x');
  std::size_t pieces = 0;
  while (!error && pieces < 100) {
    error = reader.take(piece);
    ++pieces;
  }
  ASSERT_TRUE(error);
  EXPECT_EQ(pieces, 16U);
  EXPECT_EQ(error->line, 2U);
  EXPECT_EQ(error->column, (1U << 20) + 1);
}

}  // namespace
}  // namespace kestrin::app
