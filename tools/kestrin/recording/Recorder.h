// Writes a recording: a file with one line per event, each written at once, so that a process that
// is killed leaves everything that had happened.
//
// Threads: `take` from any thread; the rest on the main run loop's.
// Lifetime: shared by what records.
// Errors: a file that can not be opened, or no longer be written, is told on the console, once. The
// rest of the recording is then left out.
#pragma once

#include <KestrinBLESDK/platform/RunLoop.h>

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <system_error>

#include "tools/kestrin/recording/RecordedEvent.h"

namespace kestrin::app {

class Console;

class Recorder : public std::enable_shared_from_this<Recorder> {
 public:
  /// Null when the file can not be opened, which has been told.
  static std::shared_ptr<Recorder> open(const std::string& file, Console& console);
  Recorder(int descriptor, std::string file, Console& console);
  ~Recorder();
  Recorder(const Recorder&) = delete;
  Recorder& operator=(const Recorder&) = delete;

  /// Writes the header and counts time from now on, by this loop.
  void begin(const RecordingHeader& header, const std::shared_ptr<RunLoop>& loop);
  /// Adds an event, which happens now.
  void take(RecordedEvent event) noexcept;
  /// Ends the recording; false when it is not whole.
  bool finish();

 private:
  void write(const std::string& line);
  void tellFailure();

  const int descriptor_;
  const std::string file_;
  Console& console_;
  std::weak_ptr<RunLoop> loop_;
  Time begin_{};
  bool told_ = false;
  std::mutex mutex_;
  Time last_{};
  std::optional<std::error_code> failure_;
};

/// The wall-clock time in UTC, as in 2026-01-31T12:00:00Z.
std::string utcNow();

}  // namespace kestrin::app
