// Sockets on 127.0.0.1.
//
// Threads: any.
// Lifetime: a `Socket` closes what it holds.
// Errors: an empty `Socket`, or 0 for a port.
#pragma once

#include <cstdint>
#include <utility>

namespace kestrin::gateway {

class Socket {
 public:
  Socket() = default;
  explicit Socket(int number) : number_(number) {}
  Socket(Socket&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  Socket& operator=(Socket&& other) noexcept;
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;
  ~Socket() { close(); }

  void close();
  [[nodiscard]] int number() const { return number_; }
  explicit operator bool() const { return number_ >= 0; }

 private:
  int number_ = -1;
};

/// A listening socket on a port that was free. Those who wait to be accepted are at most `backlog`
/// and one more; whoever comes then is not answered at all.
Socket listenOnLoopback(int backlog = 16);
std::uint16_t portOf(const Socket& socket);
Socket connectTo(std::uint16_t port);
/// The same without waiting for the other side.
Socket beginToConnectTo(std::uint16_t port);
/// A port that nobody listened on a moment ago.
std::uint16_t freePort();

}  // namespace kestrin::gateway
