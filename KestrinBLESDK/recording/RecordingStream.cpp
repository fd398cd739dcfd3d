#include "KestrinBLESDK/recording/RecordingStream.h"

#include <algorithm>
#include <ostream>

namespace kestrin {

RecordingStream::RecordingStream(std::ostream& stream, const RecordingHeader& header)
    : stream_(stream) {
  write(recordingLine(header));
}

RecordingStream::~RecordingStream() = default;

void RecordingStream::take(const RecordedEvent& event) noexcept {
  RecordedEvent inOrder = event;
  const std::scoped_lock lock(mutex_);
  // The loop's own thread sees its time stand still within a turn, others do not.
  inOrder.time = last_ = std::max(last_, event.time);
  write(recordingLine(inOrder));
}

bool RecordingStream::isWhole() const {
  const std::scoped_lock lock(mutex_);
  return isWhole_;
}

/// With the lock held, or before anybody else has the recording.
void RecordingStream::write(const std::string& line) noexcept {
  if (!isWhole_) return;
  try {
    stream_ << line << '\n' << std::flush;
    isWhole_ = stream_.good();
  } catch (...) {  // Of a stream whose owner asked it to throw.
    isWhole_ = false;
  }
}

}  // namespace kestrin
