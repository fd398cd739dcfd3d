// The two objects for one device: what an application in Objective-C holds and what the library
// works with. For the face of the library in Objective-C.
//
// Threads: the main thread's. Lifetime: what is returned of Objective-C is the radio's. Errors:
// null or nil for what is not of such a radio.
#pragma once

#include <memory>

#include "KestrinBLESDK/platform/Export.h"
#include "KestrinBLESDK/platform/Radio.h"
#include "Values.h"

namespace kestrin::corebluetooth {

/// The library's object for a device that a central manager of `radio` has shown.
KESTRIN_EXPORT std::shared_ptr<CBPeripheral> peripheralOf(Radio& radio, ::CBPeripheral* device);
/// The object that the central manager which saw it last has for it.
KESTRIN_EXPORT ::CBPeripheral* deviceOf(const std::shared_ptr<CBPeripheral>& peripheral);

}  // namespace kestrin::corebluetooth
