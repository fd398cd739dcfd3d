// A platform that records: everything that a manager asks of its radio, its readers and its run
// loop, and everything that they answer, is written down and passed on unchanged. It stands on the
// platform's declared operations alone, so it records every radio.
//
// Threads: as those operations say.
// Lifetime: `keep` holds the recording run loop, which a platform does not; drop it with the loop.
// Errors: those of the recorder, which change nothing for the manager.
#pragma once

#include <KestrinBLESDK/platform/Platform.h>

#include <memory>

#include "tools/kestrin/recording/Recorder.h"

namespace kestrin::app {

struct RecordedPlatform {
  Platform platform;
  std::shared_ptr<RunLoop> keep;
};
RecordedPlatform recordedPlatform(const Platform& platform,
                                  const std::shared_ptr<Recorder>& recorder);

/// A radio whose central managers and peripherals record.
std::shared_ptr<Radio> recordedRadio(std::shared_ptr<Radio> radio,
                                     std::shared_ptr<Recorder> recorder);

}  // namespace kestrin::app
