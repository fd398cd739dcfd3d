// The recording of a command: a file whose failures are told to the person at the console.
//
// Threads: `take` from any thread; the rest on the main run loop's.
// Lifetime: shared by what records.
// Errors: a file that cannot be opened, or no longer be written, is told on the console, once. The
// rest of the recording is then left out.
#pragma once

#include <KestrinBLESDK/platform/RunLoop.h>
#include <KestrinBLESDK/recording/RecordingFile.h>

#include <atomic>
#include <memory>
#include <string>

namespace kestrin::app {

class Console;

class CommandRecording final : public RecordingSink,
                               public std::enable_shared_from_this<CommandRecording> {
 public:
  /// Null when the file cannot be opened, which has been told.
  static std::shared_ptr<CommandRecording> open(const std::string& file,
                                                const RecordingHeader& header, Console& console);
  CommandRecording(std::shared_ptr<RecordingFile> file, std::string name, Console& console);

  /// Where a failure is told; until then, and without one, `finish` does.
  void setLoop(const std::shared_ptr<RunLoop>& loop) { loop_ = loop; }
  void take(const RecordedEvent& event) noexcept override;
  /// Ends the recording; false when it is not whole.
  bool finish();

 private:
  void tellFailure();

  const std::shared_ptr<RecordingFile> file_;
  const std::string name_;
  Console& console_;
  std::weak_ptr<RunLoop> loop_;
  std::atomic<bool> failed_ = false;
  bool told_ = false;
};

}  // namespace kestrin::app
