#include "KestrinBLESDK/KestrinBLESDK_vers.h"

// KESTRIN_VERSION_NUMBER and KESTRIN_VERSION_MAJOR come from the project's one version, as numbers:
// not every build passes a text through whole.
#define KESTRIN_QUOTED(text) #text
#define KESTRIN_TEXT_OF(macro) KESTRIN_QUOTED(macro)

const double KestrinBLESDKVersionNumber = KESTRIN_VERSION_NUMBER;
const unsigned char KestrinBLESDKVersionString[] =
    "@(#)PROGRAM:KestrinBLESDK  PROJECT:KestrinBLESDK-" KESTRIN_TEXT_OF(KESTRIN_VERSION_MAJOR) "\n";
