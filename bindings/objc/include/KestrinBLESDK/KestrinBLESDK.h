/// The library for Objective-C and Swift.
#import <KestrinBLESDK/KestrinManager.h>
#import <KestrinBLESDK/KestrinReader.h>
