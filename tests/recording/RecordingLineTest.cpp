// How an event stands in a recording. That everything is read as it was written is a test of what
// reads it.
#include <KestrinBLESDK/recording/RecordingStream.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>

namespace kestrin {
namespace {

using std::chrono::microseconds;

std::string logLine(const std::string& text) {
  RecordedEvent event;
  event.text = text;
  return recordingLine(event);
}

std::string logged(const std::string& json) {
  return R"({"time":0.000000,"direction":"self","kind":"log","text":")" + json + "\"}";
}

TEST(RecordingLine, HasItsFieldsInOrder) {
  RecordedEvent event;
  event.kind = RecordedKind::subscription;
  event.time = microseconds(12'000'345);
  event.name = "KVR";
  event.identifier = "C0";
  event.characteristic = "FFF1";
  event.services = {"1800", "FFF0"};
  event.characteristics.emplace();
  event.bytes = {0xBB, 0x00, 0x7E};
  event.status = -1;
  event.rssi = -60;
  event.enabled = false;
  event.plugged = true;
  EXPECT_EQ(recordingLine(event),
            R"({"time":12.000345,"direction":"in","kind":"subscription","name":"KVR",)"
            R"("identifier":"C0","characteristic":"FFF1","services":["1800","FFF0"],)"
            R"("characteristics":[],"bytes":"bb007e","status":-1,"rssi":-60,"plugged":true,)"
            R"("enabled":false})");
}

TEST(RecordingLine, AHeaderSaysWhenItBeganIfThatIsKnown) {
  RecordingHeader header{.program = "test 1", .command = "scan", .radio = "bluez"};
  EXPECT_EQ(recordingLine(header),
            R"({"format":"kestrin-recording","version":1,"program":"test 1","command":"scan",)"
            R"("radio":"bluez"})");
  header.started = "2026-01-31T12:00:00Z";
  EXPECT_TRUE(recordingLine(header).ends_with(R"(,"started":"2026-01-31T12:00:00Z"})"));
}

TEST(RecordingLine, SecondsHaveTheDigitsThatTheyNeed) {
  const auto secondsIn = [](Time time) {
    RecordedEvent event;
    event.kind = RecordedKind::pause;
    event.seconds = time;
    const std::string line = recordingLine(event);
    return line.substr(line.find("\"seconds\""));
  };
  EXPECT_EQ(secondsIn(std::chrono::milliseconds(50)), "\"seconds\":0.05}");
  EXPECT_EQ(secondsIn(std::chrono::seconds(2)), "\"seconds\":2.0}");
  EXPECT_EQ(secondsIn(std::chrono::milliseconds(-500)), "\"seconds\":-0.5}");
  EXPECT_EQ(secondsIn(Time::zero()), "\"seconds\":0.0}");
  EXPECT_EQ(secondsIn(Time(1)), "\"seconds\":0.000000001}");
  EXPECT_EQ(secondsIn(std::chrono::hours(24) - Time(1)), "\"seconds\":86399.999999999}");
}

TEST(RecordingLine, IsAsciiThatMeansTheSameText) {
  EXPECT_EQ(logLine("a\"b\\c~ "), logged(R"(a\"b\\c~ )"));
  EXPECT_EQ(logLine("\x01\n\x7f"), logged(R"(\u0001\u000a\u007f)"));
  EXPECT_EQ(logLine("\u00e4\u0800\uffff"), logged(R"(\u00e4\u0800\uffff)"));
  EXPECT_EQ(logLine("\U00010000\U0001F600\U0010FFFF"),
            logged(R"(\ud800\udc00\ud83d\ude00\udbff\udfff)"));
  EXPECT_EQ(logLine(std::string("\0", 1)), logged(R"(\u0000)"));
}

TEST(RecordingLine, AByteThatIsNoUtf8BecomesTheReplacementCharacter) {
  EXPECT_EQ(logLine("\xFFz"), logged(R"(\ufffdz)"));
  EXPECT_EQ(logLine("\xC3"), logged(R"(\ufffd)"));
  EXPECT_EQ(logLine("\xC3("), logged(R"(\ufffd()"));
  EXPECT_EQ(logLine("\xC1\xBF"), logged(R"(\ufffd\ufffd)"));            // Longer than need be.
  EXPECT_EQ(logLine("\xE0\x9F\xBF"), logged(R"(\ufffd\ufffd\ufffd)"));  // Likewise.
  EXPECT_EQ(logLine("\xF0\x8F\xBF\xBF"), logged(R"(\ufffd\ufffd\ufffd\ufffd)"));
  EXPECT_EQ(logLine("\xED\xA0\x80"), logged(R"(\ufffd\ufffd\ufffd)"));  // A surrogate.
  EXPECT_EQ(logLine("\xF4\x90\x80\x80"), logged(R"(\ufffd\ufffd\ufffd\ufffd)"));
  EXPECT_EQ(logLine("\xF5\x80\x80\x80"), logged(R"(\ufffd\ufffd\ufffd\ufffd)"));
  EXPECT_EQ(logLine("\xE2\x82z"), logged(R"(\ufffd\ufffdz)"));
  EXPECT_EQ(logLine("\xBF\xBF"), logged(R"(\ufffd\ufffd)"));
  EXPECT_EQ(logLine("\xF8\x90\x80\x80"), logged(R"(\ufffd\ufffd\ufffd\ufffd)"));
}

TEST(RecordingLine, OnlyANameThatIsNoUtf8HasItsBytesBesideIt) {
  RecordedEvent event;
  event.kind = RecordedKind::sighting;
  event.name = "K\xFF";
  EXPECT_NE(recordingLine(event).find(R"("name":"K\ufffd","nameBytes":"4bff"})"), std::string::npos)
      << recordingLine(event);
  event.name = "K\u00e4";
  EXPECT_EQ(recordingLine(event).find("nameBytes"), std::string::npos) << recordingLine(event);
}

}  // namespace
}  // namespace kestrin
