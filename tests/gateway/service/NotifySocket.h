// The service manager's end: a datagram socket in a folder, named in $NOTIFY_SOCKET.
//
// Threads: one.
// Lifetime: with the object the variable goes.
// Errors: fail the test.
#pragma once

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <string>
#include <system_error>
#include <utility>

#include "gateway/support/TestEnvironment.h"

namespace kestrin::gateway {

class NotifySocket {
 public:
  explicit NotifySocket(const std::string& path)
      : socket_(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    EXPECT_LT(path.size(), sizeof(address.sun_path)) << path;
    std::memcpy(address.sun_path, path.c_str(),
                std::min(path.size() + 1, sizeof(address.sun_path)));
    // The system's call takes every kind of address as this one.
    const auto* const any = reinterpret_cast<const sockaddr*>(&address);
    EXPECT_EQ(::bind(socket_, any, sizeof(address)), 0) << std::generic_category().message(errno);
    setVariable("NOTIFY_SOCKET", path);
  }
  ~NotifySocket() {
    removeVariable("NOTIFY_SOCKET");
    removeVariable("WATCHDOG_USEC");
    ::close(socket_);
  }
  NotifySocket(const NotifySocket&) = delete;
  NotifySocket& operator=(const NotifySocket&) = delete;

  /// The next datagram; empty: there is none now.
  std::string next() {
    std::array<char, 4096> bytes{};
    const ssize_t length = ::recv(socket_, bytes.data(), bytes.size(), 0);
    return length <= 0 ? "" : std::string(bytes.data(), static_cast<std::size_t>(length));
  }
  /// Every datagram that has come, one behind the other.
  std::string all() {
    drain();
    return std::exchange(drained_, "");
  }
  /// Takes what has come. The system holds no more than ten, and then whoever sends waits.
  void drain() {
    for (std::string each = next(); !each.empty(); each = next()) drained_ += each;
  }
  /// How often the watchdog was fed since the last look.
  int fed() {
    const std::string text = all();
    int count = 0;
    for (std::size_t at = text.find(kFood); at != std::string::npos;
         at = text.find(kFood, at + 1)) {
      ++count;
    }
    return count;
  }

 private:
  static constexpr const char* kFood = "WATCHDOG=1\n";
  const int socket_;
  std::string drained_;
};

}  // namespace kestrin::gateway
