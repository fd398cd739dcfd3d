// The way from this path, which C++ has a header of its own at, to what is meant.
#if defined(__clang__)
#pragma clang system_header
#endif
#ifdef __OBJC__
#import <KestrinBLESDK/KestrinBLESDK.h>
#endif
#if defined(__cplusplus) && __cplusplus >= 202002L
#if __has_include_next(<KestrinBLESDK/KestrinBleMgr.h>)
#include_next <KestrinBLESDK/KestrinBleMgr.h>
#endif
#endif
