#include "tools/gateway/page/Listener.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <optional>
#include <system_error>
#include <utility>

namespace kestrin::gateway {
namespace {

constexpr int kMostWaiting = 16;
// What the system holds for a viewer that does not read.
constexpr int kSendBuffer = 64 << 10;

struct Place {
  sockaddr_storage address{};
  socklen_t size = 0;
};

template <class Address>
Place placeOf(const Address& address) {
  Place place;
  std::memcpy(&place.address, &address, sizeof address);
  place.size = sizeof address;
  return place;
}

std::optional<Place> placeOf(const std::string& text, std::uint16_t port) {
  sockaddr_in four{};
  if (::inet_pton(AF_INET, text.c_str(), &four.sin_addr) == 1) {
    four.sin_family = AF_INET;
    four.sin_port = htons(port);
    return placeOf(four);
  }
  sockaddr_in6 six{};
  if (::inet_pton(AF_INET6, text.c_str(), &six.sin6_addr) != 1) return std::nullopt;
  six.sin6_family = AF_INET6;
  six.sin6_port = htons(port);
  return placeOf(six);
}

/// The system's functions take every kind of address by the pointer of one.
template <class Pointer>
Pointer asAddress(const void* address) {
  return static_cast<Pointer>(const_cast<void*>(address));
}

std::string systemWords() { return std::generic_category().message(errno); }

}  // namespace

Listener::~Listener() {
  if (descriptor_ >= 0) ::close(descriptor_);
}

std::string Listener::open(const std::string& address, std::uint16_t port) {
  const auto place = placeOf(address, port);
  if (!place) return address + " is not an address";
  descriptor_ =
      ::socket(place->address.ss_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, IPPROTO_TCP);
  if (descriptor_ < 0) return systemWords();
  const int on = 1;
  ::setsockopt(descriptor_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  ::setsockopt(descriptor_, SOL_SOCKET, SO_SNDBUF, &kSendBuffer, sizeof kSendBuffer);
  if (::bind(descriptor_, asAddress<const sockaddr*>(&place->address), place->size) != 0 ||
      ::listen(descriptor_, kMostWaiting) != 0) {
    return systemWords();
  }
  return "";
}

std::uint16_t Listener::port() const {
  sockaddr_storage address{};
  socklen_t size = sizeof address;
  if (::getsockname(descriptor_, asAddress<sockaddr*>(&address), &size) != 0) return 0;
  // The port stands at the same place in both.
  sockaddr_in four{};
  std::memcpy(&four, &address, sizeof four);
  return ntohs(four.sin_port);
}

int Listener::take() { return std::exchange(descriptor_, -1); }

}  // namespace kestrin::gateway
