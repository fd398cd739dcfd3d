#include "tools/gateway/core/Recorder.h"

#include <string>
#include <utility>

namespace kestrin::gateway {
namespace {

constexpr std::int64_t kBeginOf2024Ms = 1'704'067'200'000;

}  // namespace

Recorder::Recorder(Log& log, Clocks clocks, Troubles& troubles, Appended onAppended)
    : log_(log),
      clocks_(std::move(clocks)),
      troubles_(troubles),
      onAppended_(std::move(onAppended)) {}

void Recorder::take(const HeldReader& reader, RecordKind kind,
                    std::span<const std::uint8_t> bytes) {
  Record record;
  record.kind = kind;
  record.reader = reader.identifier();
  record.name = reader.name();
  record.link = reader.link();
  record.wallMs = clocks_.wallMs();
  record.monoMs = clocks_.monoMs();
  record.bytes.assign(bytes.begin(), bytes.end());
  FileError error;
  const auto number = log_.append(record, error);
  if (!number) {
    refused(error);
  } else if (refusedInARow_ > 0) {
    refusedInARow_ = 0;
    troubles_.clear("append");
  }
  if (onAppended_) onAppended_(record, number);
}

void Recorder::refused(const FileError& error) {
  ++refusedInARow_;
  // The number in the line would make each of them news.
  troubles_.set("append", "the disk refuses records, which are lost until it takes them again: " +
                              error.text);
}

void Recorder::checkClock() {
  const auto wall = clocks_.wallMs();
  if (wall >= kBeginOf2024Ms) return troubles_.clear("clock");
  troubles_.set(
      "clock", "clock not set: it says a time before 2024, and records are kept with what it says");
}

}  // namespace kestrin::gateway
