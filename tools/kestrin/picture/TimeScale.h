// Where a moment stands in a timeline: to scale, with long stretches in which nothing happens left
// out and marked.
//
// Threads: plain values. Errors: none.
#pragma once

#include <KestrinBLESDK/platform/Clock.h>

#include <span>
#include <vector>

namespace kestrin::app {

class TimeScale {
 public:
  /// A stretch of time that is drawn, and where. Between two of them time has been left out.
  struct Stretch {
    Time begin{};
    Time end{};
    double x = 0;
  };

  /// For these moments, in order, from the left edge `x` on.
  TimeScale(std::span<const Time> moments, double x);

  [[nodiscard]] double pixelsPerSecond() const noexcept { return pixelsPerSecond_; }
  [[nodiscard]] const std::vector<Stretch>& stretches() const noexcept { return stretches_; }
  [[nodiscard]] double width(Time span) const;
  /// The moment's place; one that has been left out stands at the break.
  [[nodiscard]] double place(Time moment) const;
  [[nodiscard]] double end() const;
  /// The distance of the axis's marks.
  [[nodiscard]] Time step() const;

 private:
  std::vector<Stretch> stretches_;
  double pixelsPerSecond_ = 0;
};

/// How wide a break is, in pixels.
inline constexpr double kBreakWidth = 56;

}  // namespace kestrin::app
