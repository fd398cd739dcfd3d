#include "KestrinBLESDK/KestrinBLESDK_vers.h"

const double KestrinBLESDKVersionNumber = 1.0;
const unsigned char KestrinBLESDKVersionString[] =
    "@(#)PROGRAM:KestrinBLESDK  PROJECT:KestrinBLESDK-1\n";
