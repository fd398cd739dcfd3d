// What the live screen shows in terminals of any size. No terminal is needed.
#include "tools/kestrin/screen/MonitorView.h"
#include "tools/kestrin/text/SafeText.h"

#include <KestrinBLESDK/RcpFrame.h>
#include <KestrinBLESDK/platform/NSData.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

namespace kestrin::app {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

std::vector<std::uint8_t> frameOf(std::size_t payload) {
  const auto frame = *buildRcpFrame(0x02, 0x22, std::vector<std::uint8_t>(payload, 0xE2));
  return {frame.span().begin(), frame.span().end()};
}

MonitorView plugged() {
  MonitorView view;
  view.wanted = "KVR";
  view.state = LinkState::plugged;
  view.reader = "KVR-1";
  view.identifier = "C0:00:00:00:00:01";
  view.readers = {{"KVR-1", "C0:00:00:00:00:01", true, 0}, {"TQM", "C0:00:00:00:00:02", false, 0}};
  view.linkUps = 2;
  view.losses = 1;
  view.frameCount = 3;
  view.byteCount = 60;
  view.frameRate = 15;
  view.byteRate = 304;
  view.frames = {{milliseconds(1500), frameOf(2)}, {seconds(12), frameOf(3)}};
  return view;
}

std::vector<std::string> texts(const MonitorView& view, ScreenSize size) {
  std::vector<std::string> rows;
  for (const ScreenLine& line : drawn(view, size)) {
    std::string& row = rows.emplace_back();
    for (const Span& span : fitted(line, size.columns)) row += span.text;
  }
  return rows;
}

std::string joined(const std::vector<std::string>& rows) {
  std::string text;
  for (const std::string& row : rows) text += row + '\n';
  return text;
}

TEST(MonitorView, ShowsTheLinkTheRatesTheReadersAndTheFramesTakenApart) {
  EXPECT_EQ(joined(texts(plugged(), {70, 12})),
            "plugged in: KVR-1 C0:00:00:00:00:01\n"
            "1.5 frames/s, 30.4 bytes/s; 3 frames, 60 bytes\n"
            "2 link-ups, 1 lost\n"
            "readers seen\n"
            "> KVR-1                 C0:00:00:00:00:01\n"
            "  TQM                   C0:00:00:00:00:02\n"
            "seconds   type  code  length  CRC  payload\n"
            "1.500     02    22    2       E5D5 E2 E2\n"
            "12.000    02    22    3       1005 E2 E2 E2\n"
            "\n\n"
            "q or Ctrl-C ends, Ctrl-Z suspends\n");
}

TEST(MonitorView, ALongPayloadIsCutBetweenBytesAndItsLengthTold) {
  MonitorView view = plugged();
  view.frames = {{seconds(1), frameOf(1021)}};
  const std::string row = texts(view, {70, 12}).at(7);
  EXPECT_EQ(row, "1.000     02    22    1021    0CC9 E2 E2 E2 E2 E2 E2 E2 ... 1021 bytes");
  EXPECT_EQ(row.size(), 70U);
}

TEST(MonitorView, APayloadThatJustFitsIsNotCut) {
  MonitorView view = plugged();
  // Behind time and fields there is room for 35 cells, which is 12 bytes.
  view.frames = {{seconds(1), frameOf(12)}, {seconds(2), frameOf(13)}};
  const auto rows = texts(view, {70, 12});
  EXPECT_TRUE(rows.at(7).ends_with("E2 E2")) << rows.at(7);
  EXPECT_TRUE(rows.at(8).ends_with("E2 ... 13 bytes")) << rows.at(8);
}

TEST(MonitorView, WhatIsNoFrameIsShownRaw) {
  MonitorView view = plugged();
  view.frames = {{seconds(1), {0x01, 0x02}}, {seconds(2), {}}};
  const auto rows = texts(view, {70, 12});
  EXPECT_EQ(rows.at(7), "1.000     raw         2            01 02");
  EXPECT_EQ(rows.at(8).substr(0, 23), "2.000     raw         0");
}

TEST(MonitorView, NothingFromTheAirReachesTheTerminalRaw) {
  MonitorView view = plugged();
  view.reader = view.identifier = view.readers[1].name = view.readers[1].identifier =
      "\x1b[2J\x9b\n\xff\u202e";
  for (const LinkState state :
       {LinkState::searching, LinkState::choosing, LinkState::connecting, LinkState::linked,
        LinkState::plugged, LinkState::lost, LinkState::closing, LinkState::away}) {
    view.state = state;
    view.wanted = view.reader;
    for (const char c : joined(texts(view, {200, 40}))) {
      EXPECT_TRUE(c == '\n' || (c >= ' ' && c <= '~')) << static_cast<int>(c);
    }
  }
}

TEST(MonitorView, EverySizeIsKeptTo) {
  MonitorView view = plugged();
  view.radio = "the radio is powered off";
  view.log = {"[RX BLE] <bb010300 01b17e20 37>", "another line"};
  for (int i = 0; i < 30; ++i) {
    view.readers.push_back({"KVR-\u4e2d\u6587 reader " + std::to_string(i), "C0", false, 0});
    view.frames.push_back({seconds(i), frameOf(static_cast<std::size_t>(i) * 40)});
  }
  for (const LinkState state : {LinkState::plugged, LinkState::choosing}) {
    view.state = state;
    for (std::size_t rows = 0; rows <= 26; ++rows) {
      for (std::size_t columns = 0; columns <= 130; columns += 3) {
        const auto shown = texts(view, {columns, rows});
        EXPECT_LE(shown.size(), rows);
        for (const std::string& row : shown) {
          ASSERT_LE(cellsOf(row), columns) << rows << " rows: " << row;
        }
      }
    }
  }
}

TEST(MonitorView, ALowTerminalKeepsWhatMattersMost) {
  const MonitorView view = plugged();
  EXPECT_EQ(joined(texts(view, {80, 1})), "plugged in: KVR-1 C0:00:00:00:00:01\n");
  EXPECT_EQ(joined(texts(view, {80, 2})),
            "plugged in: KVR-1 C0:00:00:00:00:01\n"
            "12.000    02    22    3       1005 E2 E2 E2\n");
  EXPECT_EQ(texts(view, {80, 3}).at(1).substr(0, 12), "1.5 frames/s");
  EXPECT_TRUE(texts(view, {80, 0}).empty());
}

TEST(MonitorView, TheNewestFramesAreThoseShown) {
  MonitorView view = plugged();
  view.frames.clear();
  for (int i = 0; i < 100; ++i) view.frames.push_back({seconds(i), frameOf(1)});
  const std::string all = joined(texts(view, {80, 24}));
  EXPECT_NE(all.find("99.000"), std::string::npos) << all;
  EXPECT_EQ(all.find("50.000"), std::string::npos) << all;
}

TEST(MonitorView, ANarrowTerminalLeavesTheTimeOut) {
  EXPECT_EQ(texts(plugged(), {40, 12}).at(7), "02    22    2       E5D5 E2 E2");
}

TEST(MonitorView, MoreReadersThanFitAreCounted) {
  MonitorView view = plugged();
  for (int i = 0; i < 30; ++i) view.readers.push_back({"KVR", "C0", false, 0});
  EXPECT_NE(joined(texts(view, {80, 24})).find("  and 28 more readers\n"), std::string::npos);
}

TEST(MonitorView, AChoiceShowsTheKeyOfEachReader) {
  MonitorView view = plugged();
  view.state = LinkState::choosing;
  view.readers[0] = {"KVR-1", "C0:00:00:00:00:01", false, 1};
  view.readers[1].key = 2;
  EXPECT_EQ(joined(texts(view, {80, 7})),
            "which reader? press its number C0:00:00:00:00:01\n"
            "1.5 frames/s, 30.4 bytes/s; 3 frames, 60 bytes\n"
            "readers seen\n"
            "  1  KVR-1                 C0:00:00:00:00:01\n"
            "  2  TQM                   C0:00:00:00:00:02\n"
            "\n"
            "q or Ctrl-C ends, Ctrl-Z suspends\n");
}

TEST(MonitorView, TheLogHasItsShareAndTheLastLinesOfIt) {
  MonitorView view = plugged();
  for (int i = 0; i < 20; ++i) view.log.push_back("line " + std::to_string(i));
  const auto rows = texts(view, {80, 24});
  EXPECT_EQ(rows.at(17), "log");
  EXPECT_EQ(rows.at(18), "line 15");
  EXPECT_EQ(rows.at(22), "line 19");
}

TEST(ScreenLine, IsCutInThePartThatDoesNotFit) {
  const ScreenLine line{{"abcde", Style::good}, {"fghij"}, {"k", Style::bad}};
  EXPECT_EQ(fitted(line, 11), line);
  EXPECT_EQ(fitted(line, 9), (ScreenLine{{"abcde", Style::good}, {"f..."}}));
  EXPECT_EQ(fitted(line, 4), (ScreenLine{{"a...", Style::good}}));
}

TEST(ArrivalRate, CountsTheLastSecondsAndForgets) {
  ArrivalRate rate;
  EXPECT_EQ(rate.arrivals(seconds(5)), 0U);
  for (int i = 0; i < 80; ++i) rate.add(seconds(10) + milliseconds(100) * i, 20);
  const Time now = seconds(10) + milliseconds(7900);
  rate.forget(now);
  EXPECT_NEAR(static_cast<double>(rate.arrivals(now)), 100, 8);
  EXPECT_NEAR(static_cast<double>(rate.bytes(now)), 2000, 160);
  rate.forget(seconds(30));
  EXPECT_EQ(rate.arrivals(seconds(30)), 0U);
  EXPECT_EQ(rate.bytes(seconds(30)), 0U);
}

TEST(ArrivalRate, TheFirstMomentsAreNotJudgedByTimeBeforeThem) {
  ArrivalRate rate;
  rate.add(seconds(100), 10);
  EXPECT_EQ(rate.arrivals(seconds(100)), 10U) << "one in a second, in tenths";
  EXPECT_EQ(rate.bytes(seconds(102)), 50U);
}

}  // namespace
}  // namespace kestrin::app
