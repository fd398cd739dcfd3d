// The root class and the plain types, in this project's own words: what a compiler for another
// system needs to read headers for Objective-C.
#pragma once
#include <stdint.h>

typedef signed char BOOL;
#define YES ((BOOL)1)
#define NO ((BOOL)0)
typedef long NSInteger;
typedef unsigned long NSUInteger;

#pragma clang assume_nonnull begin
@protocol NSObject
- (BOOL)isEqual:(nullable id)object;
@property(readonly) NSUInteger hash;
- (BOOL)respondsToSelector:(SEL)aSelector;
@end
__attribute__((objc_root_class))
@interface NSObject<NSObject>
+ (instancetype)alloc;
- (instancetype)init __attribute__((objc_designated_initializer));
@end
#pragma clang assume_nonnull end
