#include "gateway/support/LoopbackSockets.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

namespace kestrin::gateway {
namespace {

sockaddr_in loopback(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

const sockaddr* general(const sockaddr_in& address) {
  return static_cast<const sockaddr*>(static_cast<const void*>(&address));
}

Socket connected(std::uint16_t port, int flags) {
  Socket socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | flags, 0));
  const sockaddr_in address = loopback(port);
  if (::connect(socket.number(), general(address), sizeof address) == 0) return socket;
  return errno == EINPROGRESS ? std::move(socket) : Socket();
}

}  // namespace

Socket& Socket::operator=(Socket&& other) noexcept {
  if (this != &other) {
    close();
    number_ = std::exchange(other.number_, -1);
  }
  return *this;
}

void Socket::close() {
  if (number_ >= 0) ::close(std::exchange(number_, -1));
}

Socket listenOnLoopback(int backlog) {
  Socket socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const sockaddr_in address = loopback(0);
  if (::bind(socket.number(), general(address), sizeof address) != 0) return {};
  if (::listen(socket.number(), backlog) != 0) return {};
  return socket;
}

std::uint16_t portOf(const Socket& socket) {
  sockaddr_in address{};
  socklen_t length = sizeof address;
  auto* const place = static_cast<sockaddr*>(static_cast<void*>(&address));
  if (::getsockname(socket.number(), place, &length) != 0) return 0;
  return ntohs(address.sin_port);
}

Socket connectTo(std::uint16_t port) { return connected(port, 0); }

Socket beginToConnectTo(std::uint16_t port) { return connected(port, SOCK_NONBLOCK); }

std::uint16_t freePort() { return portOf(listenOnLoopback()); }

}  // namespace kestrin::gateway
