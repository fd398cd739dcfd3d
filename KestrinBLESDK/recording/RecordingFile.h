/// \class kestrin::RecordingFile
/// A recording as a file: one line per event, each written at once, so that a process that is
/// killed leaves everything that had happened. docs/recording.md has the form; `kestrin timeline`
/// and `kestrin replay` read it.
///
/// Threads: `take` and `failure` from any thread.
///
/// Lifetime: the file is closed with the drop.
///
/// Errors: a file that cannot be opened gives null. The first write that fails ends the recording;
/// the rest is left out, and `failure` says why.
#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

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

class KESTRIN_EXPORT RecordingFile final : public RecordingSink {
 public:
  /// Makes the file, or empties it, and writes the header. Null when it cannot be opened; `reason`,
  /// where there is one, then has the system's word for it.
  static std::shared_ptr<RecordingFile> open(const std::string& path, const RecordingHeader& header,
                                             std::error_code* reason = nullptr);
  ~RecordingFile() override;
  RecordingFile(const RecordingFile&) = delete;
  RecordingFile& operator=(const RecordingFile&) = delete;

  /// Writes the event; its time is not before that of the last one.
  void take(const RecordedEvent& event) noexcept override;
  /// Why the recording has ended early; absent while it is whole.
  [[nodiscard]] std::optional<std::error_code> failure() const;

 private:
  explicit RecordingFile(int descriptor) : descriptor_(descriptor) {}
  void write(std::string_view line);

  const int descriptor_;
  mutable std::mutex mutex_;
  Time last_{};
  std::optional<std::error_code> failure_;
};

/// @}

}  // namespace kestrin
