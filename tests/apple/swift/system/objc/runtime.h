// What the declarations of Foundation need of the runtime, in this project's own words.
#pragma once
#import <objc/NSObject.h>
struct __objcFastEnumerationState;
