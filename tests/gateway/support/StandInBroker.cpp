#include "gateway/support/StandInBroker.h"

#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <cstddef>
#include <utility>

namespace kestrin::gateway {
namespace {

constexpr int kAnswerTurnMilliseconds = 20;

/// The length of the first packet's fixed header and of the whole packet, once they are known.
std::optional<std::pair<std::size_t, std::size_t>> lengthsOf(const std::string& bytes) {
  std::size_t rest = 0;
  for (std::size_t i = 1; i < bytes.size() && i <= 4; ++i) {
    const auto byte = static_cast<unsigned char>(bytes[i]);
    rest |= static_cast<std::size_t>(byte & 0x7FU) << (7 * (i - 1));
    if ((byte & 0x80U) == 0) return std::pair(i + 1, i + 1 + rest);
  }
  return std::nullopt;
}

std::string bodyOf(const std::string& packet) {
  const auto lengths = lengthsOf(packet);
  return lengths ? packet.substr(lengths->first) : std::string();
}

}  // namespace

StandInBroker::StandInBroker(Answer answer)
    : answer_(std::move(answer)), listening_(listenOnLoopback()), thread_([this] { serve(); }) {}

StandInBroker::~StandInBroker() {
  ends_ = true;
  thread_.join();
}

bool StandInBroker::waitFor(const Socket& socket) const {
  while (!ends_) {
    pollfd watched{socket.number(), POLLIN, 0};
    if (::poll(&watched, 1, kAnswerTurnMilliseconds) > 0) return true;
  }
  return false;
}

void StandInBroker::serve() {
  while (waitFor(listening_)) {
    serveOne(Socket(::accept4(listening_.number(), nullptr, nullptr, SOCK_CLOEXEC)));
  }
}

void StandInBroker::serveOne(const Socket& client) {
  std::string bytes;
  while (waitFor(client)) {
    std::array<char, 4096> part{};
    const auto count = ::recv(client.number(), part.data(), part.size(), 0);
    if (count <= 0) return;
    bytes.append(part.data(), static_cast<std::size_t>(count));
    for (auto lengths = lengthsOf(bytes); lengths && bytes.size() >= lengths->second;
         lengths = lengthsOf(bytes)) {
      const auto answer = answer_(bytes.substr(0, lengths->second));
      if (!answer) return;
      bytes.erase(0, lengths->second);
      ::send(client.number(), answer->data(), answer->size(), MSG_NOSIGNAL);
    }
  }
}

int protocolIn(const std::string& connect) {
  const std::string body = bodyOf(connect);
  return body.size() > 6 ? body[6] : 0;
}

std::string subscriptionIdIn(const std::string& subscribe) {
  return bodyOf(subscribe).substr(0, 2);
}

}  // namespace kestrin::gateway
