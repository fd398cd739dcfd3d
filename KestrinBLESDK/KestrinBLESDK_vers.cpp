#include "KestrinBLESDK/KestrinBLESDK_vers.h"

// KESTRIN_VERSION_NUMBER and KESTRIN_VERSION_MAJOR come from the project's one version.
const double KestrinBLESDKVersionNumber = KESTRIN_VERSION_NUMBER;
const unsigned char KestrinBLESDKVersionString[] =
    "@(#)PROGRAM:KestrinBLESDK  PROJECT:KestrinBLESDK-" KESTRIN_VERSION_MAJOR "\n";
