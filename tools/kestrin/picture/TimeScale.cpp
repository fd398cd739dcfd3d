#include "tools/kestrin/picture/TimeScale.h"

#include <algorithm>
#include <chrono>

namespace kestrin::app {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

// Longer than the manager's longest delay, so that no delay has a break.
constexpr Time kLongestSilence = seconds(3);
constexpr Time kKeptSilence = milliseconds(500);  // On either side of a break.
constexpr double kWantedWidth = 1300;
constexpr double kFewestPixels = 60;  // A pause of 0.05 s is to be seen.
constexpr double kMostPixels = 400;
constexpr double kLeastMarkDistance = 64;

double inSeconds(Time time) { return std::chrono::duration<double>(time).count(); }

}  // namespace

TimeScale::TimeScale(std::span<const Time> moments, double x) {
  const Time begin = moments.empty() ? Time::zero() : moments.front();
  stretches_.push_back({begin, begin, x});
  for (const Time moment : moments) {
    if (moment - stretches_.back().end > kLongestSilence) {
      stretches_.back().end += kKeptSilence;
      stretches_.push_back({moment - kKeptSilence, moment, 0});
    }
    stretches_.back().end = std::max(stretches_.back().end, moment);
  }
  stretches_.back().end += milliseconds(100);
  double drawn = 0;
  for (const Stretch& stretch : stretches_) drawn += inSeconds(stretch.end - stretch.begin);
  pixelsPerSecond_ = std::clamp(kWantedWidth / drawn, kFewestPixels, kMostPixels);
  for (std::size_t i = 1; i < stretches_.size(); ++i) {
    const Stretch& before = stretches_[i - 1];
    stretches_[i].x = before.x + width(before.end - before.begin) + kBreakWidth;
  }
}

double TimeScale::width(Time span) const { return inSeconds(span) * pixelsPerSecond_; }

double TimeScale::place(Time moment) const {
  for (std::size_t i = stretches_.size(); i > 0; --i) {
    const Stretch& stretch = stretches_[i - 1];
    if (moment >= stretch.begin || i == 1) {
      return stretch.x + width(std::clamp(moment, stretch.begin, stretch.end) - stretch.begin);
    }
  }
  return 0;
}

double TimeScale::end() const { return place(stretches_.back().end); }

Time TimeScale::step() const {
  for (const int millisecondCount : {100, 200, 500, 1000, 2000, 5000}) {
    if (width(milliseconds(millisecondCount)) >= kLeastMarkDistance) {
      return milliseconds(millisecondCount);
    }
  }
  return seconds(10);
}

}  // namespace kestrin::app
