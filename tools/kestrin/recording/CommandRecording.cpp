#include "tools/kestrin/recording/CommandRecording.h"

#include <utility>

#include "tools/kestrin/console/Console.h"
#include "tools/kestrin/text/SafeText.h"

namespace kestrin::app {

std::shared_ptr<CommandRecording> CommandRecording::open(const std::string& file,
                                                         const RecordingHeader& header,
                                                         Console& console) {
  std::error_code reason;
  auto recording = RecordingFile::open(file, header, &reason);
  if (!recording) {
    console.note("--record '" + printable(file) + "': " + reason.message());
    return nullptr;
  }
  return std::make_shared<CommandRecording>(std::move(recording), file, console);
}

CommandRecording::CommandRecording(std::shared_ptr<RecordingFile> file, std::string name,
                                   Console& console)
    : file_(std::move(file)), name_(std::move(name)), console_(console) {}

void CommandRecording::take(const RecordedEvent& event) noexcept {
  file_->take(event);
  if (failed_ || !file_->failure() || failed_.exchange(true)) return;
  const auto loop = loop_.lock();
  if (!loop) return;
  loop->post([weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->tellFailure();
  });
}

bool CommandRecording::finish() {
  tellFailure();
  return !file_->failure();
}

void CommandRecording::tellFailure() {
  const auto failure = file_->failure();
  if (!failure || std::exchange(told_, true)) return;
  console_.note("--record '" + printable(name_) + "': " + failure->message() +
                "; the recording ends here, the command goes on");
}

}  // namespace kestrin::app
