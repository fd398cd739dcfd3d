/// What the headers for Objective-C need of the compiler.
#import <Foundation/Foundation.h>

#if defined(__APPLE__)
#define KESTRIN_WEAK weak
#define KESTRIN_PARTS(name)
#else
// The tests' runtime has no weak references of the compiler's, and wants instance variables in the
// interface.
#define KESTRIN_WEAK assign
#define KESTRIN_PARTS(name)    \
  {                            \
   @private                    \
    struct name##Parts* parts; \
  }
#endif

#ifndef NS_SWIFT_NAME
#define NS_SWIFT_NAME(name) __attribute__((swift_name(#name)))
#endif
#define KESTRIN_UNAVAILABLE __attribute__((unavailable))

#define KESTRIN_CLASS __attribute__((visibility("default")))
#ifdef __cplusplus
#define KESTRIN_CONSTANT extern "C" __attribute__((visibility("default")))
#else
#define KESTRIN_CONSTANT extern __attribute__((visibility("default")))
#endif
