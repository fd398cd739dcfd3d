// A socket that listens on an address of this machine.
//
// Threads: one. Lifetime: closed with the object, unless it was given away. Errors: in words.
#pragma once

#include <cstdint>
#include <string>

namespace kestrin::gateway {

class Listener {
 public:
  Listener() = default;
  ~Listener();
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;

  /// `address` in digits; port 0: any that is free. Why not, or empty.
  std::string open(const std::string& address, std::uint16_t port);
  /// The port that it listens on.
  [[nodiscard]] std::uint16_t port() const;
  /// Whoever takes it closes it.
  int take();

 private:
  int descriptor_ = -1;
};

}  // namespace kestrin::gateway
