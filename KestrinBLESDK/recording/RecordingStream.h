/// \class kestrin::RecordingStream
/// A recording on a stream, mostly a `std::ofstream`: one line per event, each written at once, so
/// that a process that is killed leaves everything that had happened. docs/recording.md has the
/// form; `kestrin timeline` and `kestrin replay` read it.
///
/// Threads: `take` and `isWhole` from any thread. While it records, nobody else uses the stream.
///
/// Lifetime: the stream stays the caller's and must outlive it.
///
/// Errors: the first write that fails ends the recording; the rest is left out, and `isWhole` is
/// false.
#pragma once

#include <iosfwd>
#include <mutex>
#include <string>

#include "KestrinBLESDK/platform/Export.h"
#include "KestrinBLESDK/recording/RecordingSink.h"

namespace kestrin {
/// \addtogroup recording
/// @{

/// What the header's `format` says.
inline constexpr char kRecordingFormat[] = "kestrin-recording";
/// The version of the form.
inline constexpr int kRecordingVersion = 1;

/// The event as a line of a recording, without its end: JSON in ASCII, so it may be shown on a
/// terminal. A byte of a text that is not UTF-8 becomes the replacement character; a name has its
/// bytes beside it then.
KESTRIN_EXPORT std::string recordingLine(const RecordedEvent& event);
/// The first line of a recording, without its end.
KESTRIN_EXPORT std::string recordingLine(const RecordingHeader& header);

class KESTRIN_EXPORT RecordingStream final : public RecordingSink {
 public:
  /// Writes the header. A stream that could not be opened makes a recording that is not whole.
  RecordingStream(std::ostream& stream, const RecordingHeader& header);
  ~RecordingStream() override;
  RecordingStream(const RecordingStream&) = delete;
  RecordingStream& operator=(const RecordingStream&) = delete;

  /// Writes the event; its time is not before that of the last one.
  void take(const RecordedEvent& event) noexcept override;
  /// Whether everything has been written so far.
  [[nodiscard]] bool isWhole() const;

 private:
  void write(const std::string& line) noexcept;

  std::ostream& stream_;
  mutable std::mutex mutex_;
  Time last_{};
  bool isWhole_ = true;
};

/// @}

}  // namespace kestrin
