// A weak reference to an Objective-C object: the compiler's own where it has one.
//
// Threads: the main thread's. Lifetime: keeps nothing; what `get` returns is kept for the caller.
// Errors: none.
#pragma once

#import <Foundation/Foundation.h>

#if __has_feature(objc_arc_weak)
namespace kestrin::objc {

class WeakReference {
 public:
  void set(id object) { object_ = object; }
  [[nodiscard]] id get() const { return object_; }

 private:
  __weak id object_ = nil;
};

}  // namespace kestrin::objc
#else
#include <ZeroingReference.h>  // The tests bring it.
namespace kestrin::objc {
using WeakReference = ::ZeroingReference;
}
#endif
