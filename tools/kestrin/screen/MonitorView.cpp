#include "tools/kestrin/screen/MonitorView.h"

#include <KestrinBLESDK/RcpFrame.h>

#include <algorithm>
#include <chrono>

#include "tools/kestrin/text/Frames.h"
#include "tools/kestrin/text/Hex.h"
#include "tools/kestrin/text/SafeText.h"
#include "tools/kestrin/text/Seconds.h"

namespace kestrin::app {
namespace {

constexpr Time kBucket = std::chrono::milliseconds(250);
constexpr std::size_t kTimeCells = 10;
constexpr std::size_t kFieldCells = 25;  // Type, code, length and CRC.
constexpr std::size_t kNarrow = 60;      // Below, frames are shown without their time.

std::string tenths(std::uint64_t value) {
  return std::to_string(value / 10) + '.' + std::to_string(value % 10);
}

Span stateSpan(const MonitorView& view) {
  const std::string reader = printable(view.reader);
  switch (view.state) {
    case LinkState::searching:
      return {view.wanted.empty() ? "searching for a reader"
                                  : "searching for '" + printable(view.wanted) + "'",
              Style::busy};
    case LinkState::choosing:
      return {"which reader? press its number", Style::busy};
    case LinkState::connecting:
      return {"connecting to " + reader, Style::busy};
    case LinkState::linked:
      return {"linked, not ready yet: " + reader, Style::busy};
    case LinkState::plugged:
      return {"plugged in: " + reader, Style::good};
    case LinkState::lost:
      return {"link lost, connecting again: " + reader, Style::bad};
    case LinkState::closing:
      return {reader.empty() ? "closing" : "closing the link to " + reader, Style::busy};
    case LinkState::away:
      return {"in the background", Style::busy};
  }
  return {};
}

ScreenLine titleLine(const MonitorView& view) {
  ScreenLine line{stateSpan(view)};
  if (!view.identifier.empty()) line.push_back({" " + printable(view.identifier)});
  return line;
}

ScreenLine rateLine(const MonitorView& view) {
  return {{tenths(view.frameRate) + " frames/s, " + tenths(view.byteRate) + " bytes/s; " +
           countOf(view.frameCount, "frame") + ", " + countOf(view.byteCount, "byte")}};
}

ScreenLine linkLine(const MonitorView& view) {
  ScreenLine line{
      {countOf(view.linkUps, "link-up") + ", " + std::to_string(view.losses) + " lost"}};
  if (!view.radio.empty()) line.push_back({"; " + view.radio, Style::bad});
  return line;
}

/// `E2 80 11`, or what of it fits and how long the whole is.
std::string payloadText(std::span<const std::uint8_t> bytes, std::size_t cells) {
  std::string text = upperHex(bytes);
  if (text.size() <= cells) return text;
  const std::string length = " ... " + countOf(bytes.size(), "byte");
  const std::size_t room = cells > length.size() ? cells - length.size() : 0;
  // Whole bytes only, two digits and a space each but the last.
  text.resize(std::min(text.size(), (room + 1) / 3 * 3));
  if (text.empty()) return fitted(length.substr(1), cells);
  text.pop_back();
  return text + length;
}

std::string crcText(std::span<const std::uint8_t> bytes) {
  return upperHex(bytes.first(1)) + upperHex(bytes.subspan(1));
}

ScreenLine frameLine(const ShownFrame& frame, std::size_t columns) {
  ScreenLine line;
  std::size_t room = columns;
  if (columns >= kNarrow) {
    line.push_back({padded(millisecondsText(frame.at), kTimeCells), Style::dim});
    room -= kTimeCells;
  }
  const std::span<const std::uint8_t> bytes(frame.bytes);
  const std::size_t payloadRoom = room > kFieldCells ? room - kFieldCells : 0;
  const auto parsed = parseRcpFrame(bytes);
  if (!parsed) {
    // The values of a reader of the KVR-Q62T family arrive as they are, frames or not.
    line.push_back({padded("raw         " + std::to_string(bytes.size()), kFieldCells)});
    line.push_back({payloadText(bytes, payloadRoom)});
    return line;
  }
  line.push_back(
      {padded(upperHex({&parsed->type, 1}), 6) + padded(upperHex({&parsed->code, 1}), 6) +
       padded(std::to_string(parsed->payload.size()), 8) + padded(crcText(bytes.last(2)), 5)});
  line.push_back({payloadText(parsed->payload, payloadRoom)});
  return line;
}

ScreenLine frameHeading(std::size_t columns) {
  return {{(columns >= kNarrow ? padded("seconds", kTimeCells) : "") +
               "type  code  length  CRC  payload",
           Style::dim}};
}

ScreenLine readerLine(const ShownReader& reader) {
  const std::string mark = reader.isWorked ? "> " : "  ";
  const std::string key = reader.key == 0 ? "" : std::to_string(reader.key) + "  ";
  return {{mark + key + padded(printable(reader.name), 20) + "  " + printable(reader.identifier),
           reader.isWorked ? Style::bold : Style::plain}};
}

/// Fills the rows between the first lines and the last one.
class Body {
 public:
  Body(const MonitorView& view, ScreenSize size, std::vector<ScreenLine>& lines, std::size_t end)
      : view_(view), size_(size), lines_(lines), end_(end) {}

  void fill() {
    const bool choosing = view_.state == LinkState::choosing;
    if (choosing || left() >= 7) addReaders(choosing ? left() : size_.rows / 4);
    if (choosing) return;
    const std::size_t forLog = view_.log.empty() || left() < 7 ? 0 : size_.rows / 4;
    addFrames(forLog);
    if (forLog == 0) return;
    while (left() > std::min(forLog, view_.log.size() + 1)) lines_.emplace_back();
    lines_.push_back({{"log", Style::dim}});
    for (std::size_t i = view_.log.size() - std::min(view_.log.size(), left());
         i < view_.log.size(); ++i) {
      lines_.push_back({{view_.log[i]}});
    }
  }

 private:
  [[nodiscard]] std::size_t left() const { return end_ > lines_.size() ? end_ - lines_.size() : 0; }

  void addReaders(std::size_t most) {
    if (view_.readers.empty() || most == 0) return;
    if (most > 2) lines_.push_back({{"readers seen", Style::dim}});
    const std::size_t room = std::max<std::size_t>(most > 2 ? most - 1 : most, 1);
    const std::size_t count = view_.readers.size();
    const std::size_t shown = count <= room ? count : room - 1;
    for (std::size_t i = 0; i < shown; ++i) lines_.push_back(readerLine(view_.readers[i]));
    if (shown < count) {
      lines_.push_back(
          {{"  and " + countOf(count - shown, shown == 0 ? "reader" : "more reader")}});
    }
  }

  void addFrames(std::size_t keepFree) {
    if (left() > keepFree + 2) lines_.push_back(frameHeading(size_.columns));
    const std::size_t room = left() > keepFree ? left() - keepFree : 0;
    const std::size_t count = std::min(room, view_.frames.size());
    for (std::size_t i = view_.frames.size() - count; i < view_.frames.size(); ++i) {
      lines_.push_back(frameLine(view_.frames[i], size_.columns));
    }
  }

  const MonitorView& view_;
  const ScreenSize size_;
  std::vector<ScreenLine>& lines_;
  const std::size_t end_;
};

}  // namespace

void ArrivalRate::add(Time at, std::size_t bytes) {
  forget(at);
  if (buckets_.empty()) first_ = at;
  if (buckets_.empty() || at - buckets_.back().begin >= kBucket) buckets_.push_back({at, 0, 0});
  ++buckets_.back().count;
  buckets_.back().bytes += bytes;
  ++count_;
  bytes_ += bytes;
}

void ArrivalRate::forget(Time now) {
  while (!buckets_.empty() && now - buckets_.front().begin >= kSpan) {
    count_ -= buckets_.front().count;
    bytes_ -= buckets_.front().bytes;
    buckets_.pop_front();
  }
}

std::uint64_t ArrivalRate::perSecond(std::size_t sum, Time now) const {
  if (sum == 0) return 0;
  // What began a moment ago is not judged by seconds in which there was nothing yet.
  const Time span = std::clamp<Time>(now - first_, std::chrono::seconds(1), kSpan);
  const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(span).count();
  return std::uint64_t{sum} * 10'000 / static_cast<std::uint64_t>(milliseconds);
}

std::vector<ScreenLine> drawn(const MonitorView& view, ScreenSize size) {
  std::vector<ScreenLine> lines;
  if (size.rows == 0) return lines;
  lines.push_back(titleLine(view));
  if (size.rows >= 3) lines.push_back(rateLine(view));
  if (size.rows >= 8) lines.push_back(linkLine(view));
  const bool hasFooter = size.rows >= 5;
  Body(view, size, lines, size.rows - (hasFooter ? 1 : 0)).fill();
  if (hasFooter) {
    lines.resize(size.rows - 1);
    lines.push_back({{"q or Ctrl-C ends, Ctrl-Z suspends", Style::dim}});
  }
  return lines;
}

}  // namespace kestrin::app
