// The recording of a command: a file whose failures are told to the person at the console.
//
// Threads: `take` from any thread; the rest on the main run loop's.
// Lifetime: shared by what records.
// Errors: a file that cannot be opened, or no longer be written, is told on the console, once. The
// rest of the recording is then left out.
#pragma once

#include <KestrinBLESDK/platform/RunLoop.h>
#include <KestrinBLESDK/recording/RecordingStream.h>

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <system_error>

namespace kestrin::app {

class Console;

class CommandRecording final : public RecordingSink,
                               public std::enable_shared_from_this<CommandRecording> {
 public:
  /// Null when the file cannot be opened, which has been told.
  static std::shared_ptr<CommandRecording> open(const std::string& file,
                                                const RecordingHeader& header, Console& console);
  CommandRecording(int descriptor, std::string name, const RecordingHeader& header,
                   Console& console);
  ~CommandRecording() override;
  CommandRecording(const CommandRecording&) = delete;
  CommandRecording& operator=(const CommandRecording&) = delete;

  /// Where a failure is told; until then, and without one, `finish` does.
  void setLoop(const std::shared_ptr<RunLoop>& loop) { loop_ = loop; }
  void take(const RecordedEvent& event) noexcept override;
  /// Ends the recording; false when it is not whole.
  bool finish();

 private:
  void write(const std::string& line);
  void tellFailure();

  const int descriptor_;
  const std::string name_;
  Console& console_;
  std::weak_ptr<RunLoop> loop_;
  bool told_ = false;
  std::mutex mutex_;
  Time last_{};
  std::optional<std::error_code> failure_;
};

}  // namespace kestrin::app
