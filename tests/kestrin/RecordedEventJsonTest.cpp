// The lines of a recording as JSON.
#include "tools/kestrin/recording/RecordedEventJson.h"

#include <KestrinBLESDK/recording/RecordingStream.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>

namespace kestrin::app {
namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;

RecordedEvent eventWithEverything(RecordedKind kind) {
  RecordedEvent event;
  event.kind = kind;
  event.time = microseconds(12'345'678);
  event.operation = "send";
  event.name = "KVR \"0417\"\n\x01 \xC3\xA4";
  event.identifier = "C0:00:00:00:00:02";
  event.state = "powered-on";
  event.service = "FFF0";
  event.characteristic = "FFF1";
  event.services = {"1800", "FFF0"};
  event.characteristics.emplace();
  event.properties = {"read+notify"};
  event.bytes = {0xBB, 0x00, 0x7E};
  event.status = -1;
  event.rssi = -60;
  event.seconds = milliseconds(50);
  event.plugged = true;
  event.enabled = false;
  event.accepted = true;
  event.error = "Error Domain=CBErrorDomain Code=7 \"gone\"";
  event.text = "[TX BLE] <bb>";
  return event;
}

RecordLineError lineErrorOf(std::string_view line) {
  const auto read = readEventLine(line);
  EXPECT_TRUE(std::holds_alternative<RecordLineError>(read)) << line;
  return std::holds_alternative<RecordLineError>(read) ? std::get<RecordLineError>(read)
                                                       : RecordLineError{};
}

void expectDamage(std::string_view line, std::size_t column, std::string_view text) {
  const RecordLineError error = lineErrorOf(line);
  EXPECT_EQ(error.column, column) << line << "\n" << error.text;
  EXPECT_NE(error.text.find(text), std::string::npos) << error.text;
  EXPECT_FALSE(error.cut) << line;
}

TEST(RecordedEventJson, AnEventOfEachKindIsReadAsItWasWritten) {
  for (const RecordedKindInfo& info : recordedKinds()) {
    const RecordedEvent event = eventWithEverything(info.kind);
    const auto read = readEventLine(recordingLine(event));
    ASSERT_TRUE(std::holds_alternative<RecordedEvent>(read)) << info.text;
    EXPECT_EQ(std::get<RecordedEvent>(read), event) << info.text;
    EXPECT_EQ(recordedKindInfo(info.kind).kind, info.kind);
    EXPECT_EQ(findRecordedKind(info.text), &info);
  }
}

TEST(RecordedEventJson, AnEventHasItsTimeDirectionKindAndWhatTheKindNeeds) {
  RecordedEvent event;
  event.kind = RecordedKind::write;
  event.time = microseconds(1'000'050);
  event.identifier = "C0";
  event.characteristic = "FFF2";
  event.bytes.emplace();
  EXPECT_EQ(recordingLine(event),
            R"({"time":1.000050,"direction":"out","kind":"write","identifier":"C0",)"
            R"("characteristic":"FFF2","bytes":""})");
}

TEST(RecordedEventJson, AHeaderIsReadAsItWasWritten) {
  const RecordingHeader header{"kestrin 1", "send", "bluez", "2026-01-31T12:00:00Z"};
  const auto read = readHeaderLine(recordingLine(header));
  ASSERT_TRUE(std::holds_alternative<RecordingHeader>(read));
  EXPECT_EQ(std::get<RecordingHeader>(read), header);
}

TEST(RecordedEventJson, AHeaderOfAnotherFormOrVersionIsRefused) {
  const auto refusal = [](std::string_view line) {
    const auto read = readHeaderLine(line);
    return std::holds_alternative<RecordLineError>(read) ? std::get<RecordLineError>(read)
                                                         : RecordLineError{};
  };
  EXPECT_EQ(refusal(R"({"format":"kestrin-recording","version":2})").column, 41U);
  EXPECT_EQ(refusal(R"({"format":"kestrin-recording","version":2})").text,
            "this is version 2; this program reads version 1");
  EXPECT_EQ(refusal(R"({"format":"x","version":1})").column, 11U);
  EXPECT_EQ(refusal(R"({"version":1})").column, 1U);
  EXPECT_EQ(refusal(R"({"format":"kestrin-recording"})").column, 1U);
}

TEST(RecordedEventJson, ANameThatIsNoUtf8KeepsItsBytes) {
  RecordedEvent event;
  event.kind = RecordedKind::reader;
  event.name = "KVR\xFF\xC3";
  event.identifier = "C0";
  const std::string line = recordingLine(event);
  EXPECT_NE(line.find(R"("nameBytes":"4b5652ffc3")"), std::string::npos) << line;
  EXPECT_EQ(std::get<RecordedEvent>(readEventLine(line)), event);
}

TEST(RecordedEventJson, ALineMayBeShownOnATerminalAndIsReadAsItWas) {
  RecordedEvent event;
  event.kind = RecordedKind::reader;
  event.name = "\x1b[2J\x7f\u009b\u202e\U000E0041";
  event.identifier = "C0";
  const std::string line = recordingLine(event);
  EXPECT_NE(line.find(R"("\u001b[2J\u007f\u009b\u202e\udb40\udc41")"), std::string::npos) << line;
  EXPECT_EQ(std::get<RecordedEvent>(readEventLine(line)), event);
}

TEST(RecordedEventJson, EveryBeginningOfALineIsACutLine) {
  std::string line = recordingLine(eventWithEverything(RecordedKind::notification));
  line.insert(line.size() - 1, R"(,"later":[{"a":null},1.5e-3,false,"\u00e4\ud83d\ude00"])");
  ASSERT_TRUE(std::holds_alternative<RecordedEvent>(readEventLine(line)));
  for (std::size_t length = 1; length < line.size(); ++length) {
    EXPECT_TRUE(lineErrorOf(line.substr(0, length)).cut) << line.substr(0, length);
  }
}

TEST(RecordedEventJson, DamageIsToldWithItsColumn) {
  expectDamage("", 1, "a line is one JSON object");
  expectDamage("[1]", 1, "a line is one JSON object");
  expectDamage(R"({"time":1,})", 11, "this is not JSON");
  expectDamage(R"({"time":1} x)", 12, "this is not JSON");
  expectDamage("{\"time\":1,\"kind\":\"l\x01g\"}", 20, "this is not JSON");
  expectDamage("{\"kind\":\"log\",\"text\":\"\xFFxx\"}", 23, "this is not JSON");
  expectDamage(R"({"kind":"log","text":""})", 1, R"("time" is missing)");
  expectDamage(R"({"time":"1","kind":"log","text":""})", 9, "a number of seconds");
  expectDamage(R"({"time":-1,"kind":"log","text":""})", 9, "from 0 to");
  expectDamage(R"({"time":4e9,"kind":"log","text":""})", 9, "from 0 to");
  expectDamage(R"({"time":1e999,"kind":"log","text":""})", 1, "too large");
  expectDamage(R"({"time":1})", 1, R"("kind" is missing)");
  expectDamage(R"({"time":1,"kind":"lob"})", 18, "'lob' is not a kind of event; there are call,");
  expectDamage(R"({"time":1,"kind":"log"})", 1, R"("text" is missing: events of the kind log)");
  expectDamage(R"({"time":1,"direction":"in","kind":"log","text":""})", 23, "log is self");
  expectDamage(R"({"time":1,"kind":"frame","bytes":"bbz0"})", 37, "'z' is not a hexadecimal digit");
  expectDamage(R"({"time":1,"kind":"frame","bytes":"\u0062z"})", 34,
               "'z' is not a hexadecimal digit");
  expectDamage(R"({"time":1,"kind":"frame","bytes":7})", 34, "a text of hexadecimal digits");
  expectDamage(R"({"time":1,"kind":"frame","bytes":"","bytes":""})", 37, "stands here twice");
  expectDamage(R"({"time":1,"kind":"plug","plugged":1})", 35, "true or false");
  expectDamage(R"({"time":1,"kind":"scan","services":["a",1]})", 36, "a list of texts");
  expectDamage(R"({"time":1,"kind":"scan-status","status":1.5})", 41, "a whole number");
}

TEST(RecordedEventJson, WhatIsKnownByNobodyIsLeftAlone) {
  const auto read = readEventLine(R"({ "later" : [[{}]], "time" : 1, "kind" : "frame" })");
  ASSERT_TRUE(std::holds_alternative<RecordedEvent>(read));
  EXPECT_EQ(std::get<RecordedEvent>(read).time, microseconds(1'000'000));
}

TEST(RecordedEventJson, BracketsGoNoDeeperThanEight) {
  const auto line = [](std::size_t deep) {
    return R"({"time":1,"kind":"frame","x":)" + std::string(deep - 1, '[') +
           std::string(deep - 1, ']') + "}";
  };
  EXPECT_TRUE(std::holds_alternative<RecordedEvent>(readEventLine(line(8))));
  expectDamage(line(9), 37, "more than 8 brackets");
  expectDamage(line(100'000), 37, "more than 8 brackets");
}

TEST(RecordedEventJson, ALineHasAMillionCharactersAtMost) {
  const std::string begin = R"({"time":1,"kind":"log","text":")";
  const auto line = [&](std::size_t size) {
    return begin + std::string(size - begin.size() - 2, 'x') + "\"}";
  };
  EXPECT_TRUE(std::holds_alternative<RecordedEvent>(readEventLine(line(kLongestRecordLine))));
  expectDamage(line(kLongestRecordLine + 1), kLongestRecordLine + 1, "longer than 1048576");
}

TEST(RecordedEvents, StatesAndPropertiesHaveNames) {
  EXPECT_EQ(recordedState(CBManagerState::poweredOff), "powered-off");
  EXPECT_EQ(recordedState(static_cast<CBManagerState>(9)), "9");
  EXPECT_EQ(recordedProperties(0x1A), "read+write+notify");
  EXPECT_EQ(recordedProperties(0), "none");
}

}  // namespace
}  // namespace kestrin::app
