/// \class kestrin::RecordingSink
/// Takes the events of a recording, each as it happens: `RecordingStream` writes them down, an
/// application's own may count them or show them.
///
/// Threads: `take` from any thread, also from several at a time; mostly the main run loop's. An
/// event from another thread may be a little older than the one before.
///
/// Lifetime: shared by everything that records to it.
///
/// Errors: its own; they change nothing for what is recorded.
#pragma once

#include "KestrinBLESDK/platform/Export.h"
#include "KestrinBLESDK/recording/RecordedEvent.h"

namespace kestrin {
/// \addtogroup recording
/// @{

class KESTRIN_EXPORT RecordingSink {
 public:
  RecordingSink() = default;
  virtual ~RecordingSink();
  RecordingSink(const RecordingSink&) = delete;
  RecordingSink& operator=(const RecordingSink&) = delete;
  /// Something has happened. It must not call what is recorded.
  virtual void take(const RecordedEvent& event) noexcept = 0;
};

/// @}

}  // namespace kestrin
