/// \file
/// The library's version symbols, for programs that look them up by name.
///
/// Threads: constants, valid from load to unload.
#pragma once

#include "KestrinBLESDK/platform/Export.h"

/// \addtogroup application
/// @{

extern "C" {
/// The version as a number, major and minor: 1.0 for the version 1.0.0.
KESTRIN_EXPORT extern const double KestrinBLESDKVersionNumber;
/// The version as the text "@(#)PROGRAM:... PROJECT:..." with a line feed and a terminating zero.
KESTRIN_EXPORT extern const unsigned char KestrinBLESDKVersionString[];
}

/// @}
