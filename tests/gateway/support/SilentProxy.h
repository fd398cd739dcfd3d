// Hands on what comes, both ways, until it goes silent: then both ends stay connected and nothing
// comes through, like a network whose cable is pulled.
//
// Threads: one of its own; the operations from any.
// Lifetime: destroying it closes everything.
// Errors: a connection whose target refuses it is closed.
#pragma once

#include "gateway/support/LoopbackSockets.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <thread>
#include <vector>

namespace kestrin::gateway {

class SilentProxy {
 public:
  explicit SilentProxy(std::uint16_t target);
  ~SilentProxy();
  SilentProxy(const SilentProxy&) = delete;
  SilentProxy& operator=(const SilentProxy&) = delete;

  [[nodiscard]] std::uint16_t port() const { return portOf(listening_); }
  /// For the connections that there are; later ones come through.
  void silenceThoseConnected() { silenceUpTo_ = accepted_.load(); }

 private:
  struct Pair {
    Socket client, target;
    int number = 0;
  };
  void serve();
  void accept();
  bool handOn(const Socket& from, const Socket& to);

  const std::uint16_t target_;
  Socket listening_;
  std::vector<Pair> pairs_;
  std::atomic<int> accepted_{0}, silenceUpTo_{0};
  std::atomic<bool> ends_{false};
  std::thread thread_;
};

}  // namespace kestrin::gateway
