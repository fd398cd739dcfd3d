#include "tools/kestrin/InterruptSignals.h"

#include <pthread.h>
#include <unistd.h>

#include <utility>

namespace kestrin::app {
namespace {

/// Tells the waiting thread to end; no other thread is sent it.
constexpr int kEndOfWaiting = SIGUSR2;

sigset_t signalSet(std::initializer_list<int> numbers) {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int number : numbers) sigaddset(&signals, number);
  return signals;
}

void endProcess(int signalNumber) {
  // By the signal itself, so that the parent sees what ended this process.
  struct sigaction byDefault {};
  byDefault.sa_handler = SIG_DFL;
  sigaction(signalNumber, &byDefault, nullptr);
  const sigset_t signals = signalSet({signalNumber});
  pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
  ::kill(::getpid(), signalNumber);
}

}  // namespace

BlockedInterruptSignals::BlockedInterruptSignals() {
  const sigset_t signals = signalSet({SIGINT, SIGTERM});
  pthread_sigmask(SIG_BLOCK, &signals, &before_);
}

BlockedInterruptSignals::~BlockedInterruptSignals() {
  pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

InterruptSignals::InterruptSignals(MainRunLoop& loop, std::function<void()> onInterrupt)
    : loop_(loop), onInterrupt_(std::move(onInterrupt)) {
  // Blocked before the thread starts, which inherits it, so that the signal can not come too early.
  const sigset_t ending = signalSet({kEndOfWaiting});
  sigset_t before{};
  pthread_sigmask(SIG_BLOCK, &ending, &before);
  thread_ = std::thread([this] { wait(); });
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

InterruptSignals::~InterruptSignals() {
  ending_ = true;
  pthread_kill(thread_.native_handle(), kEndOfWaiting);
  thread_.join();
}

void InterruptSignals::wait() {
  const sigset_t signals = signalSet({SIGINT, SIGTERM, kEndOfWaiting});
  bool interrupted = false;
  while (!ending_) {
    int received = 0;
    if (sigwait(&signals, &received) != 0 || received == kEndOfWaiting) continue;
    if (interrupted) endProcess(received);
    interrupted = true;
    loop_.post(onInterrupt_);
  }
}

}  // namespace kestrin::app
