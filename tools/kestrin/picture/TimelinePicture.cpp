#include "tools/kestrin/picture/TimelinePicture.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <string_view>
#include <utility>
#include <vector>

#include "tools/kestrin/picture/EventLabel.h"
#include "tools/kestrin/picture/LabelRows.h"
#include "tools/kestrin/picture/Svg.h"
#include "tools/kestrin/picture/TimeScale.h"
#include "tools/kestrin/text/Frames.h"
#include "tools/kestrin/text/SafeText.h"
#include "tools/kestrin/text/Seconds.h"

namespace kestrin::app {
namespace {

constexpr double kLeftEdge = 150;  // Lanes' names stand in front of it.
constexpr double kRightRoom = 24;
constexpr double kLeastWidth = 620;  // The note over the lanes has to fit.
constexpr double kTop = 92;
constexpr double kLabelRow = 14;
constexpr double kLanePadding = 10;
constexpr double kBreakTooth = 12;  // From one corner of a zigzag to the next.
constexpr double kBarHeight = 15;

constexpr char kApplicationLane[] = "application";
constexpr char kScanLane[] = "scan";
constexpr char kLinkLane[] = "link";
constexpr char kWriteLane[] = "writes";
constexpr char kPauseLane[] = "pauses";
constexpr char kValueLane[] = "notifications";
constexpr char kFrameLane[] = "frames";
constexpr char kDelayLane[] = "delays";
constexpr const char* kLanes[] = {kApplicationLane, kScanLane,  kLinkLane,  kWriteLane,
                                  kPauseLane,       kValueLane, kFrameLane, kDelayLane};

/// Null for what has no place in a timeline.
const char* laneOf(RecordedKind kind) {
  switch (kind) {
    case RecordedKind::frame:
      return kFrameLane;
    case RecordedKind::scan:
    case RecordedKind::stopScan:
    case RecordedKind::state:
    case RecordedKind::sighting:
    case RecordedKind::reader:
    case RecordedKind::scanStatus:
      return kScanLane;
    case RecordedKind::write:
      return kWriteLane;
    case RecordedKind::notification:
    case RecordedKind::readValue:
      return kValueLane;
    case RecordedKind::pause:
      return kPauseLane;
    case RecordedKind::delayArmed:
    case RecordedKind::delayFired:
    case RecordedKind::delayCancelled:
      return kDelayLane;
    case RecordedKind::log:
      return nullptr;
    default:
      return kind <= RecordedKind::plug ? kApplicationLane : kLinkLane;
  }
}

std::string timelineLabel(const RecordedEvent& event) {
  switch (event.kind) {
    // Their lanes say what they are.
    case RecordedKind::write:
      return bytesLabel(event.bytes);
    case RecordedKind::notification:
      if (!event.error) return bytesLabel(event.bytes);
      break;
    case RecordedKind::pause:
      return secondsText(event.seconds.value_or(Time::zero())) + " s";
    case RecordedKind::frame:
      if (event.bytes && whyNoFrame(*event.bytes).empty()) return describeFrame(*event.bytes);
      break;
    default:
      break;
  }
  return eventLabel(event);
}

/// What happened at one moment in one lane, the same things once.
struct Mark {
  Time time{};
  std::string label;
  std::string_view style;
  std::size_t count = 1;
};

struct DelayBar {
  std::string operation;
  Time begin{};
  Time end{};
  bool fired = false;
  std::string label;
};

class Timeline {
 public:
  explicit Timeline(std::span<const RecordedEvent> events)
      : events_(events), moments_(momentsOf(events)), scale_(moments_, kLeftEdge) {}

  std::string draw(const std::string& title);
  static std::vector<Time> momentsOf(std::span<const RecordedEvent> events);

 private:
  [[nodiscard]] std::vector<Mark> marksOf(std::string_view lane) const;
  [[nodiscard]] std::vector<DelayBar> delayBars() const;
  double drawMarks(std::string_view lane, double top);
  double drawDelays(double top);
  void drawLaneName(std::string_view lane, double top, double bottom);
  void drawPauseBars(double bottom);
  void drawAxis(double bottom);
  void drawBreaks(double bottom);

  const std::span<const RecordedEvent> events_;
  const std::vector<Time> moments_;
  const TimeScale scale_;
  Svg shapes_;
  double right_ = 0;  // Where the rightmost label ends.
};

std::vector<Time> Timeline::momentsOf(std::span<const RecordedEvent> events) {
  std::vector<Time> moments;
  for (const RecordedEvent& event : events) {
    if (laneOf(event.kind) != nullptr) moments.push_back(event.time);
  }
  return moments;
}

std::vector<Mark> Timeline::marksOf(std::string_view lane) const {
  std::vector<Mark> marks;
  for (const RecordedEvent& event : events_) {
    const char* const where = laneOf(event.kind);
    if (where == nullptr || where != lane) continue;
    const std::string label = timelineLabel(event);
    // Several times at one moment: told once, where it was first.
    auto same = marks.rbegin();
    while (same != marks.rend() && same->time == event.time && same->label != label) ++same;
    if (same != marks.rend() && same->time == event.time) {
      ++same->count;
    } else {
      marks.push_back({event.time, label, eventStyle(event), 1});
    }
  }
  return marks;
}

std::vector<DelayBar> Timeline::delayBars() const {
  std::vector<DelayBar> bars;
  for (const RecordedEvent& event : events_) {
    const std::string operation = event.operation.value_or("");
    if (event.kind == RecordedKind::delayArmed) {
      const Time length = event.seconds.value_or(Time::zero());
      bars.push_back({operation, event.time, timeAfter(event.time, length), true,
                      secondsText(length) + " s " + shortened(operation, 24)});
    } else if (event.kind == RecordedKind::delayFired ||
               event.kind == RecordedKind::delayCancelled) {
      const auto bar = std::find_if(bars.rbegin(), bars.rend(), [&](const DelayBar& candidate) {
        return candidate.operation == operation;
      });
      if (bar == bars.rend()) continue;
      bar->end = event.time;
      bar->fired = event.kind == RecordedKind::delayFired;
    }
  }
  // One that was still running when the recording ended is shown up to there.
  for (DelayBar& bar : bars) bar.end = std::min(bar.end, scale_.stretches().back().end);
  return bars;
}

void Timeline::drawLaneName(std::string_view lane, double top, double bottom) {
  shapes_.text(kLeftEdge - 14, (top + bottom) / 2 + 4, lane, "head", Svg::Anchor::end);
}

/// Labels stand over the line on which the marks are, each on a row that no earlier label reaches
/// into, so that they are read from the top down in the order of time.
double Timeline::drawMarks(std::string_view lane, double top) {
  const std::vector<Mark> marks = marksOf(lane);
  std::vector<LabelSpan> spans;
  std::vector<std::string> labels;
  for (const Mark& mark : marks) {
    labels.push_back(mark.count == 1 ? mark.label : mark.label + " x" + std::to_string(mark.count));
    const double x = scale_.place(mark.time);
    spans.push_back({x, x + 10 + labelWidth(labels.back())});
    right_ = std::max(right_, spans.back().end);
  }
  const std::vector<std::size_t> rows = labelRows(spans);
  const std::size_t most = rows.empty() ? 0 : *std::max_element(rows.begin(), rows.end());
  const double line = top + kLanePadding + kLabelRow * static_cast<double>(most + 1) + 4;
  shapes_.line(kLeftEdge, line, scale_.end(), line, "rule");
  if (lane == kPauseLane) drawPauseBars(line);
  for (std::size_t i = 0; i < marks.size(); ++i) {
    const double y = line - 6 - kLabelRow * static_cast<double>(rows[i]);
    shapes_.line(spans[i].begin, y - 8, spans[i].begin, line, "leader");
    if (lane != kPauseLane) shapes_.dot(spans[i].begin, line, marks[i].style);
    shapes_.text(spans[i].begin + 4, y, labels[i], "label");
  }
  const double bottom = line + kLanePadding;
  drawLaneName(lane, top, bottom);
  return bottom;
}

void Timeline::drawPauseBars(double bottom) {
  for (const RecordedEvent& event : events_) {
    if (event.kind != RecordedKind::pause) continue;
    const double x = scale_.place(event.time);
    const double end = scale_.place(timeAfter(event.time, event.seconds.value_or(Time::zero())));
    shapes_.rectangle(x, bottom - 3, std::max(end - x, 1.0), 6, "pause");
  }
}

double Timeline::drawDelays(double top) {
  std::vector<double> rowEnds;
  for (const DelayBar& bar : delayBars()) {
    const double x = scale_.place(bar.begin);
    const double end = scale_.place(bar.end);
    const bool inside = bar.fired && end - x > labelWidth(bar.label) + 8;
    // A dropped request's successor says what it was.
    const double reach = inside || !bar.fired ? end : end + 8 + labelWidth(bar.label);
    std::size_t row = 0;
    while (row < rowEnds.size() && rowEnds[row] > x) ++row;
    if (row == rowEnds.size()) rowEnds.push_back(0);
    right_ = std::max(right_, reach);
    rowEnds[row] = bar.fired ? reach + 6 : reach;
    const double y = top + kLanePadding + static_cast<double>(row) * (kBarHeight + 4);
    shapes_.rectangle(x, y, std::max(end - x, 1.0), kBarHeight, bar.fired ? "delay" : "dropped");
    if (bar.fired) shapes_.text(inside ? x + 5 : end + 5, y + 11, bar.label, "label");
  }
  const auto rows = static_cast<double>(std::max<std::size_t>(rowEnds.size(), 1));
  const double bottom = top + 2 * kLanePadding + rows * (kBarHeight + 4);
  drawLaneName(kDelayLane, top, bottom);
  return bottom;
}

void Timeline::drawAxis(double bottom) {
  shapes_.text(kLeftEdge - 14, kTop - 10, "time in s", "axis", Svg::Anchor::end);
  const Time step = scale_.step();
  for (const TimeScale::Stretch& stretch : scale_.stretches()) {
    const double end = scale_.place(stretch.end);
    shapes_.line(stretch.x, kTop - 4, end, kTop - 4, "rule");
    for (Time mark = (stretch.begin + step - Time(1)) / step * step; mark <= stretch.end;
         mark += step) {
      const double x = scale_.place(mark);
      shapes_.line(x, kTop - 8, x, bottom, "grid");
      shapes_.text(x, kTop - 12, secondsText(mark), "axis", Svg::Anchor::middle);
    }
  }
}

void Timeline::drawBreaks(double bottom) {
  const auto& stretches = scale_.stretches();
  for (std::size_t i = 1; i < stretches.size(); ++i) {
    const double x = scale_.place(stretches[i - 1].end) + kBreakWidth / 2;
    std::string points;
    const double top = kTop - 4;
    const auto corners = static_cast<int>(std::ceil((bottom - top) / kBreakTooth));
    for (int corner = 0; corner < corners; ++corner) {
      points += (points.empty() ? "" : " ") + coordinate(corner % 2 == 0 ? x - 4 : x + 4) + "," +
                coordinate(top + corner * kBreakTooth);
    }
    shapes_.path(points, "rule");
    const Time leftOut = stretches[i].begin - stretches[i - 1].end;
    shapes_.text(x, kTop - 28, secondsText(leftOut) + " s", "axis", Svg::Anchor::middle);
  }
}

std::string Timeline::draw(const std::string& title) {
  double top = kTop;
  std::vector<double> edges{top};
  for (const char* const lane : kLanes) {
    top = lane == std::string_view(kDelayLane) ? drawDelays(top) : drawMarks(lane, top);
    edges.push_back(top);
  }
  // How high the lanes are is known now; what stands behind them comes first.
  const Svg body = std::exchange(shapes_, Svg());
  const double width = std::max({scale_.end(), right_, kLeastWidth}) + kRightRoom;
  for (std::size_t i = 0; i + 1 < edges.size(); i += 2) {
    shapes_.rectangle(0, edges[i], width, edges[i + 1] - edges[i], "lane");
  }
  drawAxis(top);
  drawBreaks(top);
  shapes_.text(14, 26, title, "title");
  std::string note =
      "Time is to scale: " + coordinate(scale_.pixelsPerSecond()) + " pixels are 1 s.";
  if (scale_.stretches().size() > 1) {
    note += " A zigzag leaves out the time that is written over it.";
  }
  shapes_.text(14, 46, note, "note");
  shapes_.add(body);
  return shapes_.finish(width, top + 14, title);
}

}  // namespace

std::string timelinePicture(std::span<const RecordedEvent> events, const std::string& title) {
  return Timeline(events).draw(title);
}

bool fitsTimeline(std::span<const RecordedEvent> events) {
  const std::vector<Time> moments = Timeline::momentsOf(events);
  if (moments.size() > kMostPicturedEvents) return false;
  const TimeScale scale(moments, 0);
  return scale.end() <= scale.width(kLongestTimeline);
}

}  // namespace kestrin::app
