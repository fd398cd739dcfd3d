// An SVG picture in the making: shapes and texts by class, light and dark.
//
// Threads: a plain value.
// Errors: none. Any text may be drawn: what XML cannot hold, or a person could not see, is
// escaped.
#pragma once

#include <string>
#include <string_view>

namespace kestrin::app {

/// How wide a text is about to be in the labels' font, in pixels.
double labelWidth(std::string_view text);

class Svg {
 public:
  enum class Anchor { start, middle, end };

  void line(double x1, double y1, double x2, double y2, std::string_view style);
  /// A line with a head at its end.
  void arrow(double x1, double x2, double y, std::string_view style);
  void rectangle(double x, double y, double width, double height, std::string_view style);
  void dot(double x, double y, std::string_view style);
  /// A line through points, `x,y x,y`.
  void path(std::string_view points, std::string_view style);
  void text(double x, double y, std::string_view text, std::string_view style,
            Anchor anchor = Anchor::start);
  /// Everything that another has, over what is there.
  void add(const Svg& other) { shapes_ += other.shapes_; }

  /// The whole picture, on a background of its own.
  [[nodiscard]] std::string finish(double width, double height, std::string_view title) const;

 private:
  std::string shapes_;
};

/// A coordinate with at most two digits after the point.
std::string coordinate(double value);

}  // namespace kestrin::app
