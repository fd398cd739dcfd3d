// The library's version symbols, for programs that look them up by name.
//
// Threads: constants, valid from load to unload.
#pragma once

#include "KestrinBLESDK/platform/Export.h"

extern "C" {
/// The version as a number.
KESTRIN_EXPORT extern const double KestrinBLESDKVersionNumber;
/// The version as the text "@(#)PROGRAM:... PROJECT:..." with a line feed and a terminating zero.
KESTRIN_EXPORT extern const unsigned char KestrinBLESDKVersionString[];
}
