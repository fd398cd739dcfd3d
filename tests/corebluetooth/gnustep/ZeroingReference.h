// A weak reference for a runtime that has none: a table of all of them, looked through whenever an
// object ends.
//
// Threads: any, but not safe against an object that ends on another thread meanwhile. Lifetime:
// keeps nothing; what `get` returns is autoreleased. Errors: none.
#pragma once

#include <mutex>
#include <unordered_map>
#include <unordered_set>

#import <Foundation/Foundation.h>
#import <objc/runtime.h>

class ZeroingReference {
 public:
  ZeroingReference() { watch(); }
  ~ZeroingReference() { set(nil); }
  ZeroingReference(const ZeroingReference&) = delete;
  ZeroingReference& operator=(const ZeroingReference&) = delete;

  void set(id object) {
    const std::scoped_lock lock(table().mutex);
    if (object_ != nil) table().references[object_].erase(this);
    object_ = object;
    if (object_ != nil) table().references[object_].insert(this);
  }
  [[nodiscard]] id get() const {
    const std::scoped_lock lock(table().mutex);
    return [[object_ retain] autorelease];
  }

 private:
  struct Table {
    std::mutex mutex;
    std::unordered_map<id, std::unordered_set<ZeroingReference*>> references;
    IMP dealloc = nullptr;
  };
  static Table& table() {
    static auto* const one = new Table;
    return *one;
  }
  static void ended(id object, SEL selector) {
    {
      const std::scoped_lock lock(table().mutex);
      const auto found = table().references.find(object);
      if (found != table().references.end()) {
        for (auto* each : found->second) each->object_ = nil;
        table().references.erase(found);
      }
    }
    reinterpret_cast<void (*)(id, SEL)>(table().dealloc)(object, selector);
  }
  static void watch() {
    const std::scoped_lock lock(table().mutex);
    if (table().dealloc != nullptr) return;
    const auto method = class_getInstanceMethod([NSObject class], @selector(dealloc));
    table().dealloc = method_setImplementation(method, reinterpret_cast<IMP>(&ended));
  }

  id object_ = nil;
};
