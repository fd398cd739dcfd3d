#include "tools/kestrin/radio/InterruptSignals.h"

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

bool isIgnored(int number) {
  struct sigaction action {};
  return sigaction(number, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

/// The signals that are waited for, and that must be blocked for that.
sigset_t steeringSignals() {
  sigset_t signals = signalSet({SIGINT, SIGTERM, SIGQUIT, SIGCONT, SIGWINCH});
  for (const int number : {SIGHUP, SIGTSTP}) {
    if (!isIgnored(number)) sigaddset(&signals, number);
  }
  return signals;
}

sigset_t with(sigset_t signals, int number) {
  sigaddset(&signals, number);
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
  const sigset_t signals = steeringSignals();
  pthread_sigmask(SIG_BLOCK, &signals, &before_);
}

BlockedInterruptSignals::~BlockedInterruptSignals() {
  pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

InterruptSignals::InterruptSignals(MainRunLoop& loop, SignalTasks tasks)
    : loop_(loop), tasks_(std::move(tasks)), awaited_(with(steeringSignals(), kEndOfWaiting)) {
  // Blocked before the thread starts, which inherits it, so that the signal cannot come too early.
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
  while (!ending_) {
    int received = 0;
    if (sigwait(&awaited_, &received) == 0 && received != kEndOfWaiting) take(received);
  }
}

void InterruptSignals::take(int received) {
  switch (received) {
    case SIGCONT:
      post(tasks_.continued);
      return;
    case SIGWINCH:
      post(tasks_.resized);
      return;
    case SIGTSTP:
      if (!tasks_.suspend) return;
      // The loop may be stuck, for example in a write that nobody takes.
      if (suspending_.exchange(true)) {
        if (tasks_.beforeEnd) tasks_.beforeEnd();
        stopThisProcess();
      } else {
        loop_.post([this] {
          suspending_ = false;
          tasks_.suspend();
        });
      }
      return;
    default:
      if (received == SIGQUIT || std::exchange(interrupted_, true)) {
        if (tasks_.beforeEnd) tasks_.beforeEnd();
        endProcess(received);
      }
      post(tasks_.interrupt);
  }
}

void InterruptSignals::post(const std::function<void()>& task) {
  if (task) loop_.post(task);
}

void stopThisProcess() {
  sigset_t stop{};
  sigset_t before{};
  sigemptyset(&stop);
  sigaddset(&stop, SIGTSTP);
  pthread_sigmask(SIG_UNBLOCK, &stop, &before);
  // To this thread, or the one that waits for signals would take it for a further wish. Where
  // nobody could continue the process, the system does not stop it.
  pthread_kill(pthread_self(), SIGTSTP);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

}  // namespace kestrin::app
