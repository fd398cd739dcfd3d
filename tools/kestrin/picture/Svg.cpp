#include "tools/kestrin/picture/Svg.h"

#include <cmath>

#include "tools/kestrin/text/SafeText.h"

namespace kestrin::app {
namespace {

constexpr double kCharacterWidth = 6.65;  // Of the labels' font at 11 pixels.

// Colours of both appearances. A viewer that knows no appearances draws the light one.
constexpr char kStyle[] = R"(<style>
text { font: 11px "DejaVu Sans Mono", Menlo, Consolas, monospace; fill: #24292f; }
.background { fill: #ffffff; }
.title { font: bold 15px "DejaVu Sans", Helvetica, Arial, sans-serif; }
.note { font: 12px "DejaVu Sans", Helvetica, Arial, sans-serif; fill: #57606a; }
.head { font: bold 13px "DejaVu Sans", Helvetica, Arial, sans-serif; }
.axis { fill: #57606a; }
.grid { stroke: #d8dee4; stroke-width: 1; }
.rule { stroke: #8c959f; stroke-width: 1; fill: none; }
.box { fill: #f6f8fa; stroke: #8c959f; }
.lane { fill: #f6f8fa; }
.leader { stroke: #8c959f; stroke-width: 0.7; }
.application { fill: #0550ae; stroke: #0550ae; }
.link { fill: #116329; stroke: #116329; }
.scan { fill: #57606a; stroke: #57606a; }
.write { fill: #953800; stroke: #953800; }
.value { fill: #6639ba; stroke: #6639ba; }
.frame { fill: #00618a; stroke: #00618a; }
.delay { fill: #ffd8a8; stroke: #953800; }
.dropped { fill: #eaeef2; stroke: #8c959f; }
.pause { fill: #ffd8b5; stroke: #953800; }
.wrong { fill: #a40e26; stroke: #a40e26; }
.arrow { stroke-width: 1.4; }
@media (prefers-color-scheme: dark) {
text { fill: #e6edf3; }
.background { fill: #0d1117; }
.note, .axis { fill: #9da7b3; }
.grid { stroke: #262c36; }
.rule { stroke: #6e7681; }
.box { fill: #161b22; stroke: #6e7681; }
.lane { fill: #161b22; }
.leader { stroke: #6e7681; }
.application { fill: #79c0ff; stroke: #79c0ff; }
.link { fill: #56d364; stroke: #56d364; }
.scan { fill: #9da7b3; stroke: #9da7b3; }
.write { fill: #ffa657; stroke: #ffa657; }
.value { fill: #d2a8ff; stroke: #d2a8ff; }
.frame { fill: #56d4dd; stroke: #56d4dd; }
.delay { fill: #5a3a10; stroke: #ffa657; }
.dropped { fill: #262c36; stroke: #6e7681; }
.pause { fill: #5a3a10; stroke: #ffa657; }
.wrong { fill: #ff7b72; stroke: #ff7b72; }
}
</style>
)";

std::string attribute(std::string_view name, double value) {
  return " " + std::string(name) + "=\"" + coordinate(value) + "\"";
}

std::string classAttribute(std::string_view style) {
  return " class=\"" + std::string(style) + "\"";
}

}  // namespace

double labelWidth(std::string_view text) {
  return kCharacterWidth * static_cast<double>(cellsOf(printable(text)));
}

std::string coordinate(double value) {
  const auto hundredths = std::llround(value * 100);
  const auto size = std::llabs(hundredths);
  std::string text = (hundredths < 0 ? "-" : "") + std::to_string(size / 100);
  if (size % 100 == 0) return text;
  text += size % 100 < 10 ? ".0" : ".";
  text += std::to_string(size % 100);
  if (text.ends_with('0')) text.pop_back();
  return text;
}

void Svg::line(double x1, double y1, double x2, double y2, std::string_view style) {
  shapes_ += "<line" + attribute("x1", x1) + attribute("y1", y1) + attribute("x2", x2) +
             attribute("y2", y2) + classAttribute(style) + "/>\n";
}

void Svg::arrow(double x1, double x2, double y, std::string_view style) {
  constexpr double kHead = 7;
  line(x1, y, x2, y, std::string(style) + " arrow");
  const double back = x2 > x1 ? x2 - kHead : x2 + kHead;
  path(coordinate(x2) + "," + coordinate(y) + " " + coordinate(back) + "," + coordinate(y - 4) +
           " " + coordinate(back) + "," + coordinate(y + 4),
       style);
}

void Svg::rectangle(double x, double y, double width, double height, std::string_view style) {
  shapes_ += "<rect" + attribute("x", x) + attribute("y", y) + attribute("width", width) +
             attribute("height", height) + classAttribute(style) + "/>\n";
}

void Svg::dot(double x, double y, std::string_view style) {
  shapes_ += "<circle" + attribute("cx", x) + attribute("cy", y) + " r=\"3\"" +
             classAttribute(style) + "/>\n";
}

void Svg::path(std::string_view points, std::string_view style) {
  shapes_ += "<polyline points=\"" + std::string(points) + "\"" + classAttribute(style) + "/>\n";
}

void Svg::text(double x, double y, std::string_view text, std::string_view style, Anchor anchor) {
  shapes_ += "<text" + attribute("x", x) + attribute("y", y) + classAttribute(style);
  if (anchor == Anchor::middle) shapes_ += " text-anchor=\"middle\"";
  if (anchor == Anchor::end) shapes_ += " text-anchor=\"end\"";
  shapes_ += ">" + xmlText(text) + "</text>\n";
}

std::string Svg::finish(double width, double height, std::string_view title) const {
  const std::string size = attribute("width", width) + attribute("height", height);
  return "<svg xmlns=\"http://www.w3.org/2000/svg\"" + size + " viewBox=\"0 0 " +
         coordinate(width) + " " + coordinate(height) + "\" role=\"img\">\n<title>" +
         xmlText(title) + "</title>\n" + kStyle + "<rect" + size + " class=\"background\"/>\n" +
         shapes_ + "</svg>";
}

}  // namespace kestrin::app
