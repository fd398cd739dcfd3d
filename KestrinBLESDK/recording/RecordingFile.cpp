#include "KestrinBLESDK/recording/RecordingFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace kestrin {

std::shared_ptr<RecordingFile> RecordingFile::open(const std::string& path,
                                                   const RecordingHeader& header,
                                                   std::error_code* reason) {
  constexpr mode_t kEverybodys = 0666;
  const int descriptor =
      ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOCTTY, kEverybodys);
  if (descriptor < 0) {
    if (reason != nullptr) *reason = std::error_code(errno, std::generic_category());
    return nullptr;
  }
  std::shared_ptr<RecordingFile> file(new RecordingFile(descriptor));
  file->write(recordingLine(header) + '\n');
  return file;
}

RecordingFile::~RecordingFile() { ::close(descriptor_); }

void RecordingFile::take(const RecordedEvent& event) noexcept {
  RecordedEvent inOrder = event;
  const std::scoped_lock lock(mutex_);
  // The loop's own thread sees its time stand still within a turn, others do not.
  inOrder.time = last_ = std::max(last_, event.time);
  write(recordingLine(inOrder) + '\n');
}

std::optional<std::error_code> RecordingFile::failure() const {
  const std::scoped_lock lock(mutex_);
  return failure_;
}

/// With the lock held, or before anybody else has the file.
void RecordingFile::write(std::string_view line) {
  while (!line.empty() && !failure_) {
    const ssize_t written = ::write(descriptor_, line.data(), line.size());
    if (written > 0) {
      line.remove_prefix(static_cast<std::size_t>(written));
    } else if (written == 0 || errno != EINTR) {
      failure_ = std::error_code(written == 0 ? EIO : errno, std::generic_category());
    }
  }
}

}  // namespace kestrin
