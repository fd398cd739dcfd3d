#include "tools/gateway/broker/MosquittoLink.h"

#include <mosquitto.h>
#include <poll.h>

#include <array>
#include <csignal>
#include <mutex>
#include <system_error>
#include <utility>

namespace kestrin::gateway {
namespace {

constexpr int kTickMilliseconds = 1000;

/// Once, and it is never cleaned up: a thread that was left to itself may still use the library.
void prepareLibrary() {
  static std::once_flag prepared;
  std::call_once(prepared, [] { mosquitto_lib_init(); });
}

/// A broken connection must not send SIGPIPE to the program, and the program's own signals are for
/// its other threads.
class SignalsBlocked {
 public:
  SignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before_);
  }
  ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;

 private:
  sigset_t before_{};
};

/// Returns whether the thread goes on.
bool obey(const LinkOrders& orders, MosquittoClient& client) {
  if (orders.end) return false;
  for (const HandedMessage& handed : orders.messages) client.publish(handed);
  if (orders.farewell) client.sayFarewell();
  if (!client.ended() && client.wantsWrite()) client.write();
  return true;
}

void serve(MosquittoClient& client, MosquittoMailbox& mailbox) {
  const auto wanted =
      static_cast<short>((mailbox.isFull() ? 0 : POLLIN) | (client.wantsWrite() ? POLLOUT : 0));
  std::array<pollfd, 2> watched{{{client.socket(), wanted, 0}, {mailbox.readable(), POLLIN, 0}}};
  ::poll(watched.data(), watched.size(), kTickMilliseconds);
  mailbox.awake();
  const int ready = watched[0].revents;
  if ((ready & (POLLIN | POLLHUP | POLLERR)) != 0) client.read();
  if (!client.ended() && (ready & POLLOUT) != 0) client.write();
  if (!client.ended()) client.tick();
}

}  // namespace

void runLink(const LinkSettings& settings, MosquittoMailbox& mailbox) {
  MosquittoClient client(settings);
  mailbox.beginHoldUp();
  if (!mailbox.mustEnd()) client.connect();
  if (!mailbox.endHoldUp()) return;
  while (!client.ended()) {
    mailbox.report(client.events());
    if (!obey(mailbox.takeOrders(), client)) return;
    mailbox.report(client.events());
    if (!client.ended()) serve(client, mailbox);
  }
  client.events().emplace_back(*client.ended());
  mailbox.report(client.events());
}

std::optional<std::thread> startLink(LinkSettings settings,
                                     std::shared_ptr<MosquittoMailbox> mailbox) {
  prepareLibrary();
  const SignalsBlocked blocked;
  try {
    return std::thread([settings = std::move(settings), mailbox = std::move(mailbox)] {
      runLink(settings, *mailbox);
    });
  } catch (const std::system_error&) {
    return std::nullopt;
  }
}

}  // namespace kestrin::gateway
