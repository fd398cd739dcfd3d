// A block that is kept, with and without automatic reference counting.
//
// Threads: the main thread's. Lifetime: keeps a copy of its block. Errors: an absent block is
// called without effect.
#pragma once

#include <utility>

#import <Foundation/Foundation.h>

#if !__has_feature(objc_arc)
#include <Block.h>
#endif

namespace kestrin::objc {

template <class Signature>
class Block;

template <class... Arguments>
class Block<void(Arguments...)> {
 public:
  using Type = void (^)(Arguments...);

  Block() = default;
#if __has_feature(objc_arc)
  explicit Block(Type block) : block_([block copy]) {}
#else
  explicit Block(Type block) : block_(block == nil ? block : Block_copy(block)) {}
  Block(const Block& other) : Block(other.block_) {}
  Block& operator=(Block other) noexcept {
    std::swap(block_, other.block_);
    return *this;
  }
  ~Block() {
    if (block_ != nil) Block_release(block_);
  }
#endif
  [[nodiscard]] Type get() const { return block_; }
  void operator()(Arguments... arguments) const {
    // It may drop itself.
    const Block kept(*this);
    if (kept.block_ != nil) kept.block_(arguments...);
  }

 private:
  Type block_ = nil;
};

}  // namespace kestrin::objc
