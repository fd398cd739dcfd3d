#include "tools/kestrin/commands/DemoTimeline.h"

#include <span>
#include <utility>

#include "tools/kestrin/console/Console.h"
#include "tools/kestrin/text/Frames.h"
#include "tools/kestrin/text/Hex.h"
#include "tools/kestrin/text/SafeText.h"
#include "tools/kestrin/text/Seconds.h"

namespace kestrin::app {
namespace {

constexpr std::size_t kTimeWidth = 8;
constexpr std::size_t kWhoWidth = 18;

constexpr char kToLibrary[] = "app -> library";
constexpr char kToApplication[] = "library -> app";
constexpr char kToReader[] = "library -> reader";
constexpr char kFromReader[] = "reader -> library";
constexpr char kRadio[] = "radio";

/// The log's form of bytes, `<bb000300 01b17e65 97>`, as this application prints them.
std::optional<std::vector<std::uint8_t>> bytesOfLog(std::string_view text) {
  if (!text.starts_with('<') || !text.ends_with('>')) return std::nullopt;
  std::vector<std::uint8_t> bytes;
  if (appendHex(text.substr(1, text.size() - 2), bytes)) return std::nullopt;
  return bytes;
}

std::string countInColumn(std::size_t bytes) {
  constexpr std::size_t kWidth = 8;
  const std::string count = countOf(bytes, "byte");
  return std::string(count.size() < kWidth ? kWidth - count.size() : 0, ' ') + count;
}

std::string bytesInWords(std::span<const std::uint8_t> bytes) {
  return countInColumn(bytes.size()) + "  " + upperHex(bytes);
}

/// The log lines that mean a row of their own as they stand.
struct Meaning {
  std::string_view logText;
  const char* who;
  std::string_view row;
};
constexpr Meaning kMeanings[] = {
    {" CBManager is powered on", kRadio, "powered on, so the scan starts"},
    {"BLE Connected", kRadio, "the link is up"},
    {"BLE Disconnected", kRadio, "the link is down"},
    {"Found correct service", kFromReader, "the data service is there"},
    {"Found RX - didDiscoverCharacteristicsForService", kFromReader, "both characteristics found"},
    {"Found TX - didDiscoverCharacteristicsForService", kFromReader, "both characteristics found"},
};

}  // namespace

DemoTimeline::DemoTimeline(Console& console, std::shared_ptr<NSLogSink> furtherLog)
    : console_(console), furtherLog_(std::move(furtherLog)) {}

void DemoTimeline::begin(const std::shared_ptr<RunLoop>& loop) {
  loop_ = loop;
  begin_ = loop->now();
  console_.line("  time s  who                 what");
}

Time DemoTimeline::elapsed() const {
  const auto loop = loop_.lock();
  return loop ? loop->now() - begin_ : Time{};
}

void DemoTimeline::row(std::string_view who, std::string_view what) {
  settleSighting();
  std::string content(who);
  content.append(kWhoWidth - who.size() + 2, ' ');
  content += what;
  // A KVR-Q62T reader is asked the same things once per service: one row tells it.
  if (content == lastContent_) return;
  lastContent_ = content;
  const std::string time = millisecondsText(elapsed());
  std::string line(time.size() < kTimeWidth ? kTimeWidth - time.size() : 0, ' ');
  line += time;
  line += "  ";
  line += content;
  console_.line(line);
}

void DemoTimeline::chapter(std::string_view title) {
  settleSighting();
  console_.line("");
  console_.line(title);
}

void DemoTimeline::application(std::string_view what) { row(kToLibrary, what); }
void DemoTimeline::air(std::string_view what) { row(kRadio, what); }

void DemoTimeline::piece(const NSData& bytes) {
  ++pieces_;
  pieceBytes_ += bytes.length();
  row(kFromReader, "notify " + bytesInWords(bytes.span()));
}

void DemoTimeline::takeSighting(std::string_view name) {
  settleSighting();
  sighting_ = name;
  if (const auto loop = loop_.lock()) {
    loop->post([weak = weak_from_this()] {
      if (const auto self = weak.lock()) self->settleSighting();
    });
  }
}

void DemoTimeline::settleSighting() {
  const auto sighting = std::exchange(sighting_, std::nullopt);
  if (!sighting) return;
  ++ignored_;
  const bool nameless = *sighting == "(null)";
  row(kRadio, "seen: " + (nameless ? "a device without a name" : "'" + printable(*sighting) + "'") +
                  ", ignored: no reader's name");
}

void DemoTimeline::scanBleStatus(std::int64_t status) noexcept {
  row(kToApplication, "scanBleStatus " + std::to_string(status));
}

void DemoTimeline::scanningBleDeive(const std::shared_ptr<CBPeripheral>& peripheral) noexcept {
  sighting_.reset();
  readers_.push_back(peripheral);
  const std::string name = printable(peripheral->name().value_or(""));
  row(kRadio, "seen: '" + name + "', passes the name filter");
  row(kToApplication, "scanningBleDeive '" + name + "'");
}

void DemoTimeline::plugChangedStatus(bool plugged) noexcept {
  plugged_ = plugged;
  ++plugReports_;
  row(kToApplication,
      plugged ? "plugChangedStatus true: plugged in" : "plugChangedStatus false: unplugged");
}

void DemoTimeline::dispatchRcpFrmReader(const std::optional<NSData>& frame) noexcept {
  const NSData bytes = frame.value_or(NSData());
  // Each arrival has a row of its own, also when it is as the one before and nothing came between.
  lastContent_.clear();
  if (raw_) {
    ++rawValues_;
    row(kToApplication, "raw    " + bytesInWords(bytes.span()));
    return;
  }
  ++frames_;
  row(kToApplication,
      "frame  " + countInColumn(bytes.length()) + ": " + describeFrame(bytes.span()));
}

void DemoTimeline::write(std::string_view line) noexcept {
  furtherLog_->write(line);
  for (const Meaning& meaning : kMeanings) {
    if (line == meaning.logText) row(meaning.who, meaning.row);
  }
  if (line == "==========get Reader Info==============") {
    ++readerInfoRequests_;
    row("library", "get-reader-info, by itself");
  }
  constexpr std::string_view kSighting = "DiscoverPeripheral  ";
  constexpr std::string_view kWrite = "[TX BLE] ";
  constexpr std::string_view kManufacturer = "BLE_D5_NOVA_Manufacturer_Name : ";
  if (line.starts_with(kSighting)) {
    takeSighting(line.substr(kSighting.size()));
  } else if (line.starts_with(kWrite)) {
    const auto bytes = bytesOfLog(line.substr(kWrite.size()));
    row(kToReader, "write  " + (bytes ? bytesInWords(*bytes) : printable(line)));
  } else if (line.starts_with(kManufacturer)) {
    row(kFromReader, "made by '" + printable(line.substr(kManufacturer.size())) + "'");
  } else if (line.find("ERROR") != std::string_view::npos || line.starts_with("Error")) {
    row("library", "log: " + printable(line));
  }
}

std::string DemoTimeline::seenFigures() {
  settleSighting();
  return countOf(readers_.size(), "reader") + " accepted, " + countOf(ignored_, "device") +
         " ignored";
}

std::string DemoTimeline::receivedFigures() const {
  return countOf(frames_, "frame") + " and " + countOf(rawValues_, "raw value") + " received in " +
         countOf(pieces_, "notification") + " of " + countOf(pieceBytes_, "byte");
}

}  // namespace kestrin::app
