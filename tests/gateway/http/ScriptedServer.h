// A web server on 127.0.0.1 that answers what a test says, also what no real one would.
//
// Threads: the test's and one of its own, on which `answer` is called. Lifetime: the drop ends it.
// Errors: none; a connection that breaks is let go.
#pragma once

#include <poll.h>
#include <sys/socket.h>

#include <atomic>
#include <charconv>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "gateway/support/LoopbackSockets.h"

namespace kestrin::gateway {

class ScriptedServer {
 public:
  /// Given a whole request; what it returns is sent, and the connection ended. Absent: nothing is
  /// sent, and the connection stays until the client ends it.
  using Answer = std::function<std::optional<std::string>(const std::string& request)>;

  explicit ScriptedServer(Answer answer)
      : answer_(std::move(answer)), listening_(listenOnLoopback()), port_(portOf(listening_)) {
    thread_ = std::thread([this] { serve(); });
  }
  ~ScriptedServer() {
    ending_ = true;
    thread_.join();
  }
  ScriptedServer(const ScriptedServer&) = delete;
  ScriptedServer& operator=(const ScriptedServer&) = delete;

  [[nodiscard]] std::string url(const std::string& path = "/frames") const {
    return "http://127.0.0.1:" + std::to_string(port_) + path;
  }
  /// What has come, each request whole.
  [[nodiscard]] std::vector<std::string> requests() const {
    const std::lock_guard lock(mutex_);
    return requests_;
  }

 private:
  void serve() {
    while (!ending_) {
      if (!isReadable(listening_.number())) continue;
      const Socket connection(::accept4(listening_.number(), nullptr, nullptr, SOCK_CLOEXEC));
      const std::string request = requestOf(connection);
      {
        const std::lock_guard lock(mutex_);
        requests_.push_back(request);
      }
      if (const auto answer = answer_(request)) {
        ::send(connection.number(), answer->data(), answer->size(), MSG_NOSIGNAL);
      } else {
        waitForEnd(connection);
      }
    }
  }
  [[nodiscard]] bool isReadable(int socket) const {
    constexpr int kLookMs = 20;
    pollfd look{socket, POLLIN, 0};
    return ::poll(&look, 1, kLookMs) > 0;
  }
  void waitForEnd(const Socket& connection) const {
    char byte = 0;
    while (!ending_) {
      if (isReadable(connection.number()) && ::recv(connection.number(), &byte, 1, 0) <= 0) return;
    }
  }
  [[nodiscard]] std::string requestOf(const Socket& connection) const {
    std::string request;
    while (!ending_ && !isWhole(request)) {
      if (!isReadable(connection.number())) continue;
      char piece[4096];
      const auto count = ::recv(connection.number(), piece, sizeof piece, 0);
      if (count <= 0) break;
      request.append(piece, static_cast<std::size_t>(count));
    }
    return request;
  }
  static bool isWhole(const std::string& request) {
    // A beginning that is encrypted is answered at once, too.
    if (!request.empty() && !request.starts_with('P')) return true;
    const auto head = request.find("\r\n\r\n");
    if (head == std::string::npos) return false;
    const std::string kLength = "Content-Length: ";
    const auto at = request.find(kLength);
    if (at == std::string::npos) return true;
    std::size_t length = 0;
    std::from_chars(request.data() + at + kLength.size(), request.data() + head, length);
    return request.size() >= head + 4 + length;
  }

  const Answer answer_;
  const Socket listening_;
  const std::uint16_t port_;
  std::atomic<bool> ending_{false};
  mutable std::mutex mutex_;
  std::vector<std::string> requests_;
  std::thread thread_;
};

}  // namespace kestrin::gateway
