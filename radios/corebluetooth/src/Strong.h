// A pointer that keeps an Objective-C object, with and without automatic reference counting: under
// it the compiler counts, elsewhere this class does.
//
// Threads: as any pointer. Lifetime: keeps its object. Errors: none.
#pragma once

#include <utility>

#import <Foundation/Foundation.h>

namespace kestrin::corebluetooth {

#if __has_feature(objc_arc)
template <class Object>
class Strong {
 public:
  Strong() = default;
  explicit Strong(Object object) : object_(object) {}
  /// Takes over what `alloc` and `init` gave.
  static Strong adopt(Object object) { return Strong(object); }
  [[nodiscard]] Object get() const { return object_; }

 private:
  Object object_ = nil;
};
#else
template <class Object>
class Strong {
 public:
  Strong() = default;
  explicit Strong(Object object) : object_([object retain]) {}
  Strong(const Strong& other) : Strong(other.object_) {}
  Strong(Strong&& other) noexcept : object_(std::exchange(other.object_, nil)) {}
  Strong& operator=(Strong other) noexcept {
    std::swap(object_, other.object_);
    return *this;
  }
  ~Strong() { [object_ release]; }
  /// Takes over what `alloc` and `init` gave.
  static Strong adopt(Object object) {
    Strong strong;
    strong.object_ = object;
    return strong;
  }
  [[nodiscard]] Object get() const { return object_; }

 private:
  Object object_ = nil;
};
#endif

}  // namespace kestrin::corebluetooth
