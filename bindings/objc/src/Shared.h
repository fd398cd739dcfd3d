// What all objects of the face share: the radio, and the platform that managers and readers are
// made on.
//
// Threads: the main thread's; `platform` may be called from any. Lifetime: for the life of the
// process. Errors: none.
#pragma once

#include <memory>

#include "KestrinBLESDK/platform/Platform.h"
#include "KestrinBLESDK/platform/Radio.h"

namespace kestrin::objc {

/// The one radio, so that a device is the same to every manager and reader.
const std::shared_ptr<Radio>& radio();
/// On that radio, the main run loop and the system's log. The first call has the application's run
/// loop host the library's, and passes the application's entering the background on.
Platform platform();

}  // namespace kestrin::objc
