// Pictures of recorded conversations, and what they are made of.
#include <gtest/gtest.h>

#include <chrono>
#include <random>
#include <string>
#include <vector>

#include "tools/kestrin/picture/EventLabel.h"
#include "tools/kestrin/picture/LabelRows.h"
#include "tools/kestrin/picture/SequencePicture.h"
#include "tools/kestrin/picture/Svg.h"
#include "tools/kestrin/picture/TimeScale.h"
#include "tools/kestrin/picture/TimelinePicture.h"

namespace kestrin::app {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

RecordedEvent at(Time time, RecordedKind kind) {
  RecordedEvent event;
  event.kind = kind;
  event.time = time;
  event.name = "KVR-1";
  event.identifier = "C0:00";
  event.operation = "p_pluggedEvent";
  event.seconds = seconds(2);
  event.characteristic = "FFF1";
  event.plugged = true;
  return event;
}

std::size_t countOfText(const std::string& text, const std::string& part) {
  std::size_t count = 0;
  for (auto place = text.find(part); place != std::string::npos;
       place = text.find(part, place + 1)) {
    ++count;
  }
  return count;
}

/// The coordinate of the first shape of this class.
double coordinateOf(const std::string& picture, const std::string& name, const std::string& style) {
  const std::size_t shape = picture.find("class=\"" + style + "\"");
  EXPECT_NE(shape, std::string::npos) << style;
  const std::size_t place = picture.rfind(" " + name + "=\"", shape);
  return std::stod(picture.substr(place + name.size() + 3));
}

TEST(Svg, WritesCoordinatesInAsFewDigitsAsTheyNeed) {
  EXPECT_EQ(coordinate(0), "0");
  EXPECT_EQ(coordinate(-1.5), "-1.5");
  EXPECT_EQ(coordinate(12.054), "12.05");
  EXPECT_EQ(coordinate(-0.25), "-0.25");
}

TEST(LabelRows, NoLabelCoversAnotherOrTheLeaderOfAnother) {
  std::mt19937 random(417);
  for (int round = 0; round < 200; ++round) {
    std::vector<LabelSpan> labels(12);
    double begin = 0;
    for (LabelSpan& label : labels) {
      begin += static_cast<double>(random() % 4) * 10;
      label = {begin, begin + 5 + static_cast<double>(random() % 60)};
    }
    const auto rows = labelRows(labels);
    for (std::size_t i = 0; i < labels.size(); ++i) {
      for (std::size_t later = i + 1; later < labels.size(); ++later) {
        if (labels[later].begin > labels[i].end) continue;
        // The later one's leader goes down from its row: it must not begin at or over this one.
        EXPECT_GT(rows[i], rows[later]) << "round " << round;
      }
    }
  }
}

TEST(LabelRows, LabelsThatDoNotMeetShareARow) {
  const LabelSpan labels[] = {{0, 10}, {20, 30}, {40, 50}};
  EXPECT_EQ(labelRows(labels), (std::vector<std::size_t>{0, 0, 0}));
}

TEST(TimeScale, IsProportional) {
  const Time moments[] = {seconds(1), seconds(2), seconds(4)};
  const TimeScale scale(moments, 100);
  EXPECT_EQ(scale.place(seconds(1)), 100);
  const double second = scale.place(seconds(2)) - 100;
  EXPECT_NEAR(scale.place(seconds(4)), 100 + 3 * second, 1e-6);
  EXPECT_NEAR(scale.width(seconds(1)), second, 1e-6);
  EXPECT_EQ(scale.stretches().size(), 1U);
}

TEST(TimeScale, LeavesOutLongSilencesOnly) {
  const Time moments[] = {seconds(0), seconds(3), seconds(60)};
  const TimeScale scale(moments, 0);
  ASSERT_EQ(scale.stretches().size(), 2U);
  EXPECT_EQ(scale.stretches()[0].end, milliseconds(3500));
  EXPECT_EQ(scale.stretches()[1].begin, milliseconds(59500));
  EXPECT_NEAR(scale.place(seconds(60)), scale.width(seconds(4)) + kBreakWidth, 1e-6);
}

TEST(TimelinePicture, ADelayIsAsWideAsItIsLong) {
  const RecordedEvent events[] = {at(seconds(1), RecordedKind::delayArmed),
                                  at(seconds(3), RecordedKind::delayFired),
                                  at(seconds(3), RecordedKind::plug)};
  const std::string picture = timelinePicture(events, "title");
  const Time moments[] = {seconds(1), seconds(3)};
  EXPECT_NEAR(coordinateOf(picture, "width", "delay"), TimeScale(moments, 0).width(seconds(2)),
              0.01);
  EXPECT_NE(picture.find(">2 s p_pluggedEvent<"), std::string::npos) << picture;
  EXPECT_NE(picture.find(">plugged in<"), std::string::npos);
}

TEST(TimelinePicture, ADroppedDelayEndsWhereItWasDropped) {
  const RecordedEvent events[] = {at(seconds(1), RecordedKind::delayArmed),
                                  at(seconds(2), RecordedKind::delayCancelled)};
  const std::string picture = timelinePicture(events, "title");
  const Time moments[] = {seconds(1), seconds(2)};
  EXPECT_NEAR(coordinateOf(picture, "width", "dropped"), TimeScale(moments, 0).width(seconds(1)),
              0.01);
  EXPECT_EQ(picture.find("class=\"delay\""), std::string::npos);
}

TEST(TimelinePicture, WhatHappensSeveralTimesAtOneMomentIsToldOnce) {
  const RecordedEvent events[] = {at(seconds(1), RecordedKind::connected),
                                  at(seconds(1), RecordedKind::connected),
                                  at(seconds(2), RecordedKind::connected)};
  const std::string picture = timelinePicture(events, "title");
  EXPECT_EQ(countOfText(picture, ">connected x2<"), 1U);
  EXPECT_EQ(countOfText(picture, ">connected<"), 1U);
}

TEST(TimelinePicture, ABreakSaysHowMuchIsLeftOut) {
  const RecordedEvent events[] = {at(seconds(1), RecordedKind::connected),
                                  at(seconds(21), RecordedKind::connected)};
  const std::string picture = timelinePicture(events, "title");
  EXPECT_NE(picture.find(">19 s<"), std::string::npos) << picture;
  EXPECT_NE(picture.find("A zigzag leaves out the time that is written over it."),
            std::string::npos);
  EXPECT_NE(picture.find(" pixels are 1 s."), std::string::npos);
}

TEST(TimelinePicture, IsWideEnoughForItsLastLabel) {
  RecordedEvent lost = at(seconds(2), RecordedKind::disconnected);
  lost.error = std::string(56, 'x');
  const RecordedEvent events[] = {at(seconds(1), RecordedKind::connected), lost};
  const std::string picture = timelinePicture(events, "title");
  const std::string label = "disconnected: " + *lost.error;
  const std::size_t place = picture.rfind("<text x=\"", picture.find(">" + label + "<"));
  ASSERT_NE(place, std::string::npos);
  const std::size_t width = picture.find(" width=\"");
  EXPECT_GT(std::stod(picture.substr(width + 8)),
            std::stod(picture.substr(place + 9)) + labelWidth(label));
}

TEST(TimelinePicture, HasALimit) {
  std::vector<RecordedEvent> events(kMostPicturedEvents, at(seconds(1), RecordedKind::connected));
  EXPECT_TRUE(fitsTimeline(events));
  events.push_back(events.back());
  EXPECT_FALSE(fitsTimeline(events));
  events.clear();
  for (int second = 0; second < 1200; second += 2) {
    events.push_back(at(seconds(second), RecordedKind::connected));
  }
  EXPECT_FALSE(fitsTimeline(events));
}

TEST(SequencePicture, ArrowsPointTheWayThingsWent) {
  const auto ends = [](RecordedKind kind) {
    const RecordedEvent events[] = {at(seconds(1), kind)};
    const std::string picture = sequencePicture(events, "title");
    const std::size_t arrow = picture.find(" arrow\"");
    EXPECT_NE(arrow, std::string::npos);
    const auto value = [&](const std::string& name) {
      return std::stod(picture.substr(picture.rfind(" " + name + "=\"", arrow) + name.size() + 3));
    };
    return std::pair(value("x1"), value("x2"));
  };
  const auto [application, manager] = ends(RecordedKind::call);
  EXPECT_LT(application, manager);
  EXPECT_EQ(ends(RecordedKind::plug), std::pair(manager, application));
  const auto [from, radio] = ends(RecordedKind::scan);
  EXPECT_EQ(from, manager);
  EXPECT_EQ(ends(RecordedKind::state), std::pair(radio, manager));
  const auto [writer, reader] = ends(RecordedKind::write);
  EXPECT_EQ(writer, manager);
  EXPECT_GT(reader, radio);
  EXPECT_EQ(ends(RecordedKind::notification), std::pair(reader, manager));
}

TEST(SequencePicture, IsInTheOrderOfTheRecordingAndLeavesTheLogOut) {
  const RecordedEvent events[] = {at(seconds(1), RecordedKind::connect),
                                  at(seconds(1), RecordedKind::log),
                                  at(seconds(2), RecordedKind::connected)};
  const std::string picture = sequencePicture(events, "title");
  EXPECT_LT(picture.find(">connect &apos;KVR-1&apos;<"), picture.find(">connected<"));
  EXPECT_EQ(picture.find("log"), std::string::npos);
  EXPECT_NE(picture.find(">1 s later<"), std::string::npos);
}

TEST(Pictures, HostileTextsStayTexts) {
  std::vector<RecordedEvent> events;
  for (const RecordedKindInfo& info : recordedKinds()) {
    RecordedEvent event = at(seconds(1), info.kind);
    for (auto* text : {&event.name, &event.identifier, &event.operation, &event.state,
                       &event.service, &event.characteristic, &event.error, &event.text}) {
      *text = "</text><script>&\x01\xFF\"'";
    }
    event.services = {"</text><script>"};
    event.characteristics = {"</text><script>"};
    events.push_back(event);
    event.name.reset();
    event.error.reset();
    events.push_back(event);
  }
  for (const std::string& picture :
       {timelinePicture(events, "<script>"), sequencePicture(events, "<script>")}) {
    EXPECT_EQ(picture.find("<script"), std::string::npos);
    EXPECT_EQ(picture.find('\x01'), std::string::npos);
    EXPECT_EQ(picture.find('\xFF'), std::string::npos);
    EXPECT_EQ(countOfText(picture, "<text"), countOfText(picture, "</text>"));
  }
}

}  // namespace
}  // namespace kestrin::app
