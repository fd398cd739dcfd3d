#include "tools/kestrin/recording/CommandRecording.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "tools/kestrin/console/Console.h"
#include "tools/kestrin/console/WriteAll.h"
#include "tools/kestrin/text/SafeText.h"

namespace kestrin::app {

std::shared_ptr<CommandRecording> CommandRecording::open(const std::string& file,
                                                         const RecordingHeader& header,
                                                         Console& console) {
  constexpr mode_t kEverybodys = 0666;
  const int descriptor =
      ::open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOCTTY, kEverybodys);
  if (descriptor < 0) {
    const std::error_code reason(errno, std::generic_category());
    console.note("--record '" + printable(file) + "': " + reason.message());
    return nullptr;
  }
  return std::make_shared<CommandRecording>(descriptor, file, header, console);
}

CommandRecording::CommandRecording(int descriptor, std::string name, const RecordingHeader& header,
                                   Console& console)
    : descriptor_(descriptor), name_(std::move(name)), console_(console) {
  write(recordingLine(header));
}

CommandRecording::~CommandRecording() { ::close(descriptor_); }

void CommandRecording::take(const RecordedEvent& event) noexcept {
  RecordedEvent inOrder = event;
  {
    const std::scoped_lock lock(mutex_);
    // The loop's own thread sees its time stand still within a turn, others do not.
    inOrder.time = last_ = std::max(last_, event.time);
    const bool wasWhole = !failure_;
    write(recordingLine(inOrder));
    if (!wasWhole || !failure_) return;
  }
  const auto loop = loop_.lock();
  if (!loop) return;
  loop->post([weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->tellFailure();
  });
}

bool CommandRecording::finish() {
  tellFailure();
  const std::scoped_lock lock(mutex_);
  return !failure_;
}

/// With the lock held, or before anybody else has the recording.
void CommandRecording::write(const std::string& line) {
  if (!failure_) failure_ = writeAll(descriptor_, line + '\n');
}

void CommandRecording::tellFailure() {
  std::optional<std::error_code> failure;
  {
    const std::scoped_lock lock(mutex_);
    failure = failure_;
  }
  if (!failure || std::exchange(told_, true)) return;
  console_.note("--record '" + printable(name_) + "': " + failure->message() +
                "; the recording ends here, the command goes on");
}

}  // namespace kestrin::app
