#include "gateway/support/SilentProxy.h"

#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <cstddef>

namespace kestrin::gateway {
namespace {

constexpr int kProxyTurnMilliseconds = 20;

}  // namespace

SilentProxy::SilentProxy(std::uint16_t target)
    : target_(target), listening_(listenOnLoopback()), thread_([this] { serve(); }) {}

SilentProxy::~SilentProxy() {
  ends_ = true;
  thread_.join();
}

void SilentProxy::accept() {
  Pair pair{Socket(::accept4(listening_.number(), nullptr, nullptr, SOCK_CLOEXEC)),
            connectTo(target_), accepted_ + 1};
  if (!pair.client || !pair.target) return;
  pairs_.push_back(std::move(pair));
  ++accepted_;
}

bool SilentProxy::handOn(const Socket& from, const Socket& to) {
  std::array<char, 4096> bytes{};
  const auto count = ::recv(from.number(), bytes.data(), bytes.size(), 0);
  if (count <= 0) return false;
  return ::send(to.number(), bytes.data(), static_cast<std::size_t>(count), MSG_NOSIGNAL) == count;
}

void SilentProxy::serve() {
  while (!ends_) {
    std::vector<pollfd> watched{{listening_.number(), POLLIN, 0}};
    for (const Pair& pair : pairs_) {
      const short wanted = pair.number <= silenceUpTo_ ? 0 : POLLIN;
      // A silenced one is not even looked at, so that a hang-up does not wake this without end.
      watched.push_back({wanted == 0 ? -1 : pair.client.number(), wanted, 0});
      watched.push_back({wanted == 0 ? -1 : pair.target.number(), wanted, 0});
    }
    ::poll(watched.data(), watched.size(), kProxyTurnMilliseconds);
    std::vector<Pair> left;
    for (std::size_t i = 0; i < pairs_.size(); ++i) {
      Pair& pair = pairs_[i];
      bool lives = true;
      if (watched[1 + 2 * i].revents != 0) lives = handOn(pair.client, pair.target);
      if (lives && watched[2 + 2 * i].revents != 0) lives = handOn(pair.target, pair.client);
      if (lives) left.push_back(std::move(pair));
    }
    pairs_ = std::move(left);
    if (watched[0].revents != 0) accept();
  }
}

}  // namespace kestrin::gateway
