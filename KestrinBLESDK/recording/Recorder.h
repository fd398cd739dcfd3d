// The clock of a recording: gives each event its time and hands it to the sink.
//
// Threads: any.
// Lifetime: shared by what records. It keeps the sink, not the loop.
// Errors: none; without its loop events have the time zero.
#pragma once

#include <memory>

#include "KestrinBLESDK/platform/Platform.h"
#include "KestrinBLESDK/platform/RunLoop.h"
#include "KestrinBLESDK/recording/RecordingSink.h"

namespace kestrin {

class Recorder {
 public:
  /// Counts time from now on, by this loop.
  Recorder(std::shared_ptr<RecordingSink> sink, std::weak_ptr<RunLoop> loop);
  /// Something happens now.
  void take(RecordedEvent event) const noexcept;

 private:
  const std::shared_ptr<RecordingSink> sink_;
  const std::weak_ptr<RunLoop> loop_;
  const Time begin_;
};

/// The recorder of a platform that records; null for any other.
std::shared_ptr<Recorder> recorderOf(const Platform& platform);

/// The radio that a recording one passes on to; null for any other.
std::shared_ptr<Radio> unrecordedRadio(const std::shared_ptr<Radio>& radio);

/// A radio whose central managers and peripherals record.
std::shared_ptr<Radio> recordedRadio(std::shared_ptr<Radio> radio,
                                     std::shared_ptr<Recorder> recorder);

}  // namespace kestrin
