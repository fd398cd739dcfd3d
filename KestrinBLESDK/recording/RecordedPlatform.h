/// \struct kestrin::RecordedPlatform
/// A platform that records: everything that a manager asks of its radio, its readers and its run
/// loop, and everything that they return, goes to a sink and is passed on unchanged. It stands on
/// the platform's declared operations alone, so it records every radio.
///
/// \code
/// std::ofstream file("run.jsonl");
/// const auto recording = std::make_shared<RecordingStream>(file, RecordingHeader{});
/// const auto recorded = recordedPlatform(platform, recording);
/// const auto manager = std::make_unique<RecordedManager>(recorded.platform);
/// \endcode
///
/// A `KestrinBleMgr` on such a platform is recorded as well, without what passes between it and the
/// application; `RecordedManager` adds that.
///
/// Threads: as the operations of the platform say.
///
/// Lifetime: `keep` holds the recording run loop, which a platform does not; drop it with the loop.
///
/// Errors: those of the sink, which change nothing for the manager.
#pragma once

#include <memory>

#include "KestrinBLESDK/platform/CBPeripheral.h"
#include "KestrinBLESDK/platform/Export.h"
#include "KestrinBLESDK/platform/Platform.h"
#include "KestrinBLESDK/recording/RecordingSink.h"

namespace kestrin {
/// \addtogroup recording
/// @{

struct RecordedPlatform {
  /// What a manager is made with. Its run loop records too and is no `MainRunLoop`; the one that
  /// was wrapped is turned as before.
  Platform platform;
  /// The recording run loop.
  std::shared_ptr<RunLoop> keep;
};

/// The platform, recording to `sink` from now on: the time of the first event counts from here.
/// Without a sink, the platform as it is.
KESTRIN_EXPORT RecordedPlatform recordedPlatform(const Platform& platform,
                                                 const std::shared_ptr<RecordingSink>& sink);

/// What was wrapped: the radio and the run loop that do not record, everything else as it is. Any
/// other platform as it is.
KESTRIN_EXPORT Platform unrecorded(const Platform& platform);
/// The device that one of a recording radio stands for; any other device as it is.
KESTRIN_EXPORT std::shared_ptr<CBPeripheral> unrecorded(
    const std::shared_ptr<CBPeripheral>& device);

/// @}

}  // namespace kestrin
