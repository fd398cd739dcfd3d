#include "tools/gateway/commands/SimulatedReaders.h"

#include <KestrinBLESDK/RcpFrame.h>

#include <algorithm>
#include <charconv>
#include <utility>

#include "tools/gateway/commands/SafeText.h"

namespace kestrin::gateway {
namespace {

using simulated::ReaderFamily;

constexpr double kLeastPause = 0.001;
constexpr double kMostPause = 3600;
constexpr std::size_t kPieceSize = 20;  // What a notification of the simulated radio holds.
constexpr std::uint8_t kReport = 0x02;
constexpr std::uint8_t kInventory = 0x22;

ReaderFamily familyOf(const std::string& name) {
  return name.starts_with("KVR-Q62T") ? ReaderFamily::kvrQ62T : ReaderFamily::standard;
}

std::optional<SimulatedReaderPlan> planOf(std::string_view line, std::string& error) {
  const std::size_t space = line.find(' ');
  if (space == std::string_view::npos || space + 1 == line.size()) {
    error =
        "a reader's line has the seconds between what it sends, a space, and its name, as in "
        "0.5 KVR-0417";
    return std::nullopt;
  }
  double seconds = 0;
  const char* const end = line.data() + space;
  const auto result = std::from_chars(line.data(), end, seconds);
  const bool inRange =
      seconds >= kLeastPause && seconds <= kMostPause;  // Not so for what is no number.
  if (result.ec != std::errc() || result.ptr != end || !inRange) {
    error =
        "'" + safeText(line.substr(0, space)) + "' is not a pause; right are 0.001 to 3600 seconds";
    return std::nullopt;
  }
  return SimulatedReaderPlan{std::string(line.substr(space + 1)), timeFromSeconds(seconds)};
}

void addNumber(std::vector<std::uint8_t>& bytes, std::uint32_t number) {
  for (unsigned shift = 32; shift > 0; shift -= 8) {
    bytes.push_back(static_cast<std::uint8_t>(number >> (shift - 8)));
  }
}

}  // namespace

std::optional<std::vector<SimulatedReaderPlan>> simulatedReadersOf(std::string_view script,
                                                                   const std::string& file,
                                                                   std::string& error) {
  std::vector<SimulatedReaderPlan> plans;
  for (unsigned number = 1; !script.empty(); ++number) {
    const std::size_t length = std::min(script.find('\n'), script.size());
    const std::string_view line = script.substr(0, length);
    script.remove_prefix(std::min(length + 1, script.size()));
    if (line.empty() || line.front() == '#') continue;
    std::string why;
    const auto plan = planOf(line, why);
    if (!plan) {
      error = file;
      error.append(":").append(std::to_string(number)).append(": ").append(why);
      return std::nullopt;
    }
    plans.push_back(*plan);
  }
  if (!plans.empty()) return plans;
  error = file + ": has no reader; a line for one is 0.5 KVR-0417";
  return std::nullopt;
}

SimulatedReaders::SimulatedReaders(const std::weak_ptr<RunLoop>& loop,
                                   simulated::SimulatedRadio& radio,
                                   const std::vector<SimulatedReaderPlan>& plans, std::uint32_t run,
                                   const Sent& sent) {
  for (const SimulatedReaderPlan& plan : plans) {
    const auto reader = std::make_shared<Reader>();
    reader->plan = plan;
    reader->family = familyOf(plan.name);
    reader->run = run;
    reader->index = static_cast<std::uint8_t>(readers_.size());
    reader->sent = sent;
    reader->device = radio.addReader(plan.name, reader->family);
    reader->device->setScript(answersOf(*reader));
    readers_.push_back(reader);
    sendLater(loop, reader);
  }
}

simulated::ReaderScript SimulatedReaders::answersOf(const Reader& reader) {
  return [name = reader.plan.name, family = reader.family, sent = reader.sent,
          answers = simulated::defaultReaderScript()](const NSData& command) {
    std::vector<NSData> frames = answers(command);
    if (!sent) return frames;
    for (const NSData& frame : frames) {
      const bool whole = family == ReaderFamily::standard;
      const std::size_t size = whole ? frame.length() : kPieceSize;
      for (const NSData& piece : simulated::cutIntoPieces(frame, size)) sent(name, piece);
    }
    return frames;
  };
}

void SimulatedReaders::sendLater(const std::weak_ptr<RunLoop>& loop,
                                 const std::shared_ptr<Reader>& reader) {
  const auto alive = loop.lock();
  if (!alive) return;
  alive->arm(reader->plan.pause, [loop, weak = std::weak_ptr<Reader>(reader)] {
    const auto again = weak.lock();
    if (!again) return;
    send(*again);
    sendLater(loop, again);
  });
}

void SimulatedReaders::send(Reader& reader) {
  if (!reader.device->connected()) return;
  std::vector<std::uint8_t> content{reader.index};
  addNumber(content, reader.run);
  addNumber(content, reader.count + 1);
  const bool whole = reader.family == ReaderFamily::standard;
  const NSData bytes = whole ? *buildRcpFrame(kReport, kInventory, content) : NSData(content);
  const CBUUID& place = simulated::readerCharacteristics(reader.family).rx;
  if (!reader.device->simulateNotification(place, bytes)) return;
  ++reader.count;
  if (reader.sent) reader.sent(reader.plan.name, bytes);
}

}  // namespace kestrin::gateway
