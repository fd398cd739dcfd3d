// What a reader sends, into the log, inside the reader's callback.
//
// Threads: the main run loop's.
// Lifetime: belongs to a gateway; log and troubles outlive it.
// Errors: what the disk refuses is a trouble until it takes records again; the log reports by a gap
// which numbers are lost.
#pragma once

#include "tools/gateway/core/HeldReader.h"
#include "tools/gateway/core/Parts.h"
#include "tools/gateway/core/Troubles.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <span>

namespace kestrin::gateway {

class Recorder {
 public:
  using Appended = std::function<void(const Record&, std::optional<RecordNumber>)>;
  Recorder(Log& log, Clocks clocks, Troubles& troubles, Appended onAppended);

  void take(const HeldReader& reader, RecordKind kind, std::span<const std::uint8_t> bytes);
  /// Looks whether the wall clock can be right.
  void checkClock();

 private:
  void refused(const FileError& error);

  Log& log_;
  const Clocks clocks_;
  Troubles& troubles_;
  const Appended onAppended_;
  std::uint64_t refusedInARow_ = 0;
};

}  // namespace kestrin::gateway
