#include "tools/gateway/commands/StatusPrint.h"

#include <algorithm>
#include <array>
#include <cstdint>

#include "tools/gateway/commands/SafeText.h"

namespace kestrin::gateway {
namespace {

constexpr std::size_t kFramesShown = 5;

std::string spanText(const std::string& fromUtc, const std::string& toUtc) {
  const auto from = wallMsOf(fromUtc);
  const auto to = wallMsOf(toUtc);
  if (!from || !to) return "an unknown time";
  const std::int64_t seconds = std::max<std::int64_t>(0, (*to - *from) / 1000);
  if (seconds < 60) return std::to_string(seconds) + " s";
  if (seconds < 3600) return std::to_string(seconds / 60) + " min";
  if (seconds < 172'800) return std::to_string(seconds / 3600) + " h";
  return std::to_string(seconds / 86'400) + " days";
}

std::string sizeText(std::uint64_t bytes) {
  constexpr std::array<const char*, 5> kUnits{"B", "KiB", "MiB", "GiB", "TiB"};
  std::size_t unit = 0;
  std::uint64_t tenths = 0;
  while (bytes >= 1024 && unit + 1 < kUnits.size()) {
    tenths = bytes % 1024 * 10 / 1024;
    bytes /= 1024;
    ++unit;
  }
  const std::string rest = unit == 0 ? "" : "." + std::to_string(tenths);
  return std::to_string(bytes) + rest + " " + kUnits[unit];
}

std::string percentText(std::uint64_t part, std::uint64_t whole) {
  const std::uint64_t most = std::max<std::uint64_t>(whole, 1);
  const double percent = 100.0 * static_cast<double>(part) / static_cast<double>(most);
  return std::to_string(static_cast<std::uint64_t>(percent)) + " %";
}

std::string readerLine(const ReaderStatus& reader, const std::string& now) {
  const std::string name = reader.name.empty() ? reader.key : reader.name;
  std::string line = "reader    " + safeText(name);
  if (reader.reader != name) line += " (" + safeText(reader.reader) + ")";
  line += ": " + safeText(reader.phase) + " for " + spanText(reader.sinceUtc, now);
  if (reader.signal) line += ", found at " + std::to_string(*reader.signal) + " dBm";
  std::uint64_t hour = 0;
  for (const std::uint64_t each : reader.minutes) hour += each;
  line += ", " + std::to_string(reader.frames) + " frames, " + std::to_string(hour) +
          " in the last hour";
  if (!reader.minutes.empty()) {
    line += ", " + std::to_string(reader.minutes.back()) + " in this minute";
  }
  return line;
}

std::string logLine(const Status& status) {
  const std::uint64_t waiting = status.last - std::min(status.last, status.forgotten);
  return "log       " + safeText(status.log) + ": " + sizeText(status.bytes) + " of " +
         sizeText(status.budget) + " (" + percentText(status.bytes, status.budget) + "), number " +
         std::to_string(status.last) + ", on the disk " + std::to_string(status.synced) +
         ", acknowledged " + std::to_string(status.published) + ", waiting " +
         std::to_string(waiting);
}

std::string gapLine(const Gap& gap) {
  return "gap       " + std::to_string(gap.from) + " to " + std::to_string(gap.to) + ", " +
         std::string(wordOf(gap.reason));
}

std::string frameLine(const Record& frame) {
  return "frame     " + std::to_string(frame.number) + " " + utcText(frame.wallMs) + " " +
         safeText(frame.name.empty() ? frame.reader : frame.name) + " " + hexText(frame.bytes);
}

}  // namespace

std::vector<std::string> linesOf(const Status& status) {
  std::vector<std::string> lines;
  lines.push_back("gateway   " + safeText(status.gateway) + ", version " +
                  safeText(status.version) + ", running for " +
                  spanText(status.startedUtc, status.atUtc) + ", as of " + safeText(status.atUtc));
  lines.push_back("broker    " + safeText(status.broker.address) + ": " +
                  (status.broker.up ? "connected" : "no connection") + " for " +
                  spanText(status.broker.sinceUtc, status.atUtc) + ", " +
                  std::to_string(status.broker.inFlight) + " messages in flight");
  lines.push_back(logLine(status));
  for (const auto& [consumer, number] : status.commits) {
    lines.push_back("consumer  " + safeText(consumer) + ": has everything up to " +
                    std::to_string(number) + ", " +
                    std::to_string(status.last - std::min(status.last, number)) + " behind");
  }
  for (const ReaderStatus& each : status.readers) lines.push_back(readerLine(each, status.atUtc));
  for (const Record& each : status.gaps) {
    if (each.gap) lines.push_back(gapLine(*each.gap));
  }
  const std::size_t count = std::min(status.frames.size(), kFramesShown);
  for (std::size_t i = status.frames.size() - count; i < status.frames.size(); ++i) {
    lines.push_back(frameLine(status.frames[i]));
  }
  for (const std::string& each : status.trouble) lines.push_back("trouble   " + lineText(each));
  if (status.trouble.empty()) lines.push_back("trouble   none");
  return lines;
}

}  // namespace kestrin::gateway
