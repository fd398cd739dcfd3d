#include "tools/gateway/commands/Signals.h"

#include <pthread.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <utility>

namespace kestrin::gateway {
namespace {

bool isIgnored(int number) {
  struct sigaction action {};
  return sigaction(number, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

/// SIGHUP stays ignored where the parent had it ignored and nothing is reloaded, as nohup(1) does.
sigset_t steering(bool reloads) {
  sigset_t signals{};
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGINT);
  if (reloads || !isIgnored(SIGHUP)) sigaddset(&signals, SIGHUP);
  return signals;
}

}  // namespace

Signals::Signals(MainRunLoop& loop, Handlers handlers)
    : loop_(loop), handlers_(std::move(handlers)) {
  const sigset_t signals = steering(static_cast<bool>(handlers_.reload));
  pthread_sigmask(SIG_BLOCK, &signals, &before_);
  // What is ignored never comes by a descriptor.
  if (handlers_.reload) ::signal(SIGHUP, SIG_DFL);
  descriptor_ = ::signalfd(-1, &signals, SFD_NONBLOCK | SFD_CLOEXEC);
  if (descriptor_ < 0) return;
  watch_ = loop_.watch(descriptor_, Readiness::readable, [this](Readiness) { take(); });
}

Signals::~Signals() {
  if (watch_) loop_.unwatch(*watch_);
  if (descriptor_ >= 0) ::close(descriptor_);
  pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

void Signals::take() {
  signalfd_siginfo come{};
  while (::read(descriptor_, &come, sizeof come) == static_cast<ssize_t>(sizeof come)) {
    take(static_cast<int>(come.ssi_signo));
  }
}

void Signals::take(int number) {
  if (number == SIGHUP && handlers_.reload) {
    handlers_.reload();
    return;
  }
  if (std::exchange(ending_, true)) {
    // By the signal itself, so that the parent sees what ended this process.
    ::signal(number, SIG_DFL);
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    ::raise(number);
    return;
  }
  if (handlers_.end) handlers_.end();
}

}  // namespace kestrin::gateway
