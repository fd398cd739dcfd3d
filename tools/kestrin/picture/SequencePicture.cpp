#include "tools/kestrin/picture/SequencePicture.h"

#include <algorithm>
#include <chrono>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "tools/kestrin/picture/EventLabel.h"
#include "tools/kestrin/picture/Svg.h"
#include "tools/kestrin/text/Seconds.h"

namespace kestrin::app {
namespace {

// Where the four stand.
constexpr double kApplicationLine = 180;
constexpr double kManagerLine = 500;
constexpr double kRadioLine = 730;
constexpr double kReaderLine = 990;
constexpr std::pair<double, std::string_view> kLifelines[] = {{kApplicationLine, "application"},
                                                              {kManagerLine, "manager"},
                                                              {kRadioLine, "radio"},
                                                              {kReaderLine, "reader"}};

constexpr double kPictureWidth = 1090;
constexpr double kTimeColumn = 104;
constexpr double kHeads = 44;
constexpr double kFirstRow = 96;
constexpr double kArrowRow = 24;
constexpr double kBoxWidth = 100;
constexpr double kBoxHeight = 24;
constexpr double kBarWidth = 6;
// Shorter spans of time are not worth a row of their own.
constexpr Time kNotedSilence = std::chrono::milliseconds(100);

struct Arrow {
  double from = 0;
  double to = 0;
};

/// Absent for what the manager does by itself.
std::optional<Arrow> arrowOf(RecordedKind kind) {
  switch (kind) {
    case RecordedKind::call:
      return Arrow{kApplicationLine, kManagerLine};
    case RecordedKind::scan:
    case RecordedKind::stopScan:
      return Arrow{kManagerLine, kRadioLine};
    case RecordedKind::state:
      return Arrow{kRadioLine, kManagerLine};
    default:
      break;
  }
  switch (recordedKindInfo(kind).direction) {
    case RecordedDirection::out:
      return Arrow{kManagerLine, kReaderLine};
    case RecordedDirection::in:
      if (kind <= RecordedKind::frame) return Arrow{kManagerLine, kApplicationLine};
      return Arrow{kReaderLine, kManagerLine};
    case RecordedDirection::self:
      break;
  }
  return std::nullopt;
}

/// A delayed request from the row in which it is armed to that in which it ends.
struct RunningDelay {
  std::string operation;
  double top = 0;
  std::size_t column = 0;
};

class Sequence {
 public:
  explicit Sequence(std::span<const RecordedEvent> events) : events_(events) {}
  std::string draw(const std::string& title);

 private:
  void drawEvent(const RecordedEvent& event, const std::string& label);
  void drawArrow(const Arrow& arrow, const std::string& label, std::string_view style);
  void drawOwnDoing(const RecordedEvent& event, const std::string& label);
  void armDelay(const std::string& operation);
  void endDelay(const std::string& operation, bool fired);
  void drawDelay(const RunningDelay& delay, bool fired);
  void drawTime(Time time);
  void drawHeads(double y);

  const std::span<const RecordedEvent> events_;
  Svg shapes_;
  Svg bars_;
  std::vector<RunningDelay> running_;
  std::optional<Time> lastTime_;
  double y_ = kFirstRow;
};

void Sequence::drawTime(Time time) {
  if (lastTime_ && time - *lastTime_ >= kNotedSilence) {
    shapes_.text(kTimeColumn, y_, secondsText(time - *lastTime_) + " s later", "note",
                 Svg::Anchor::end);
    shapes_.line(kTimeColumn + 8, y_ - 4, kReaderLine, y_ - 4, "grid");
    y_ += kArrowRow;
  }
  if (!lastTime_ || *lastTime_ != time) {
    shapes_.text(kTimeColumn, y_, millisecondsText(time), "axis", Svg::Anchor::end);
  }
  lastTime_ = time;
}

void Sequence::drawArrow(const Arrow& arrow, const std::string& label, std::string_view style) {
  shapes_.arrow(arrow.from, arrow.to, y_ - 4, style);
  const bool throughRadio = arrow.from == kReaderLine || arrow.to == kReaderLine;
  const double middle = (arrow.from + arrow.to) / 2;
  if (throughRadio) {
    shapes_.dot(kRadioLine, y_ - 4, style);
    // The radio's line must not go through the letters.
    const double width = labelWidth(label) + 4;
    shapes_.rectangle(middle - width / 2, y_ - 18, width, 11, "background");
  }
  shapes_.text(middle, y_ - 8, label, "label", Svg::Anchor::middle);
}

void Sequence::armDelay(const std::string& operation) {
  std::size_t column = 0;
  const auto isTaken = [&](const RunningDelay& delay) { return delay.column == column; };
  while (std::any_of(running_.begin(), running_.end(), isTaken)) ++column;
  running_.push_back({operation, y_ - 8, column});
}

void Sequence::drawDelay(const RunningDelay& delay, bool fired) {
  const double x = kManagerLine - 3 + static_cast<double>(delay.column) * (kBarWidth + 3);
  bars_.rectangle(x, delay.top, kBarWidth, std::max(y_ - delay.top, kBarWidth),
                  fired ? "delay" : "dropped");
}

void Sequence::endDelay(const std::string& operation, bool fired) {
  const auto delay =
      std::find_if(running_.begin(), running_.end(),
                   [&](const RunningDelay& running) { return running.operation == operation; });
  if (delay == running_.end()) return;
  drawDelay(*delay, fired);
  running_.erase(delay);
}

void Sequence::drawOwnDoing(const RecordedEvent& event, const std::string& label) {
  const std::string operation = event.operation.value_or("");
  if (event.kind == RecordedKind::delayArmed) armDelay(operation);
  if (event.kind == RecordedKind::delayFired) endDelay(operation, true);
  if (event.kind == RecordedKind::delayCancelled) endDelay(operation, false);
  shapes_.text(kManagerLine - 12, y_, label, "label", Svg::Anchor::end);
}

void Sequence::drawEvent(const RecordedEvent& event, const std::string& label) {
  drawTime(event.time);
  if (const auto arrow = arrowOf(event.kind)) {
    drawArrow(*arrow, label, eventStyle(event));
  } else {
    drawOwnDoing(event, label);
  }
  y_ += kArrowRow;
}

void Sequence::drawHeads(double y) {
  for (const auto& [x, name] : kLifelines) {
    shapes_.rectangle(x - kBoxWidth / 2, y, kBoxWidth, kBoxHeight, "box");
    shapes_.text(x, y + 16, name, "head", Svg::Anchor::middle);
  }
}

std::string Sequence::draw(const std::string& title) {
  for (std::size_t i = 0; i < events_.size();) {
    const RecordedEvent& event = events_[i];
    std::size_t next = i + 1;
    if (event.kind != RecordedKind::log) {
      std::string label = eventLabel(event);
      // The same thing several times in a row is told once.
      while (next < events_.size() && events_[next] == event) ++next;
      if (next - i > 1) label += " x" + std::to_string(next - i);
      drawEvent(event, label);
    }
    i = next;
  }
  while (!running_.empty()) endDelay(running_.front().operation, true);
  drawHeads(y_);
  const Svg body = std::exchange(shapes_, Svg());
  shapes_.text(14, 26, title, "title");
  drawHeads(kHeads);
  for (const auto& lifeline : kLifelines) {
    shapes_.line(lifeline.first, kHeads + kBoxHeight, lifeline.first, y_, "rule");
  }
  shapes_.text(kTimeColumn, kHeads + 16, "time in s", "axis", Svg::Anchor::end);
  shapes_.add(bars_);
  shapes_.add(body);
  return shapes_.finish(kPictureWidth, y_ + kBoxHeight + 14, title);
}

}  // namespace

std::string sequencePicture(std::span<const RecordedEvent> events, const std::string& title) {
  return Sequence(events).draw(title);
}

}  // namespace kestrin::app
