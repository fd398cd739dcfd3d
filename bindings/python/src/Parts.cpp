#include "Parts.h"

#include <algorithm>
#include <stdexcept>

namespace kestrin::python {
namespace {

// How long a signal may wait for its handler while the loop waits for the radio.
constexpr Time kSignalPause = std::chrono::milliseconds(100);
// How many turns of virtual time may.
constexpr unsigned kSignalTurns = 256;

void runSignalHandlers() {
  if (PyErr_CheckSignals() != 0) throw py::error_already_set();
}

}  // namespace

void Parts::checkThread() const {
  if (std::this_thread::get_id() == thread) return;
  throw std::runtime_error(
      "a platform, its managers and its virtual readers are used on the thread that made the "
      "platform; Platform.post brings work there from another one");
}

bool Parts::turnOnce(std::optional<Time> deadline, const std::function<bool()>& done) {
  return call([&] {
    if (virtualTime && !deadline) {
      loop->run();
      return false;
    }
    unsigned turns = 0;
    return loop->runUntil(*deadline, [&] {
      if (++turns % kSignalTurns == 0) {
        const py::gil_scoped_acquire lock;
        runSignalHandlers();
      }
      return done && done();
    });
  });
}

bool Parts::turnUntil(std::optional<Time> deadline, const std::function<bool()>& done) {
  checkThread();
  if (loop->isTurning()) {
    throw std::runtime_error(
        "the run loop is being turned already; return from the callback first");
  }
  struct Running {
    std::atomic<bool>& flag;
    ~Running() { flag = false; }
  } const whileRunning{running};
  running = true;
  while (true) {
    const Time soon = timeAfter(loop->now(), kSignalPause);
    const auto slice = virtualTime ? deadline : std::min(soon, deadline.value_or(soon));
    if (turnOnce(slice, done)) return true;
    if (stopped.exchange(false) || virtualTime) return false;
    if (deadline && loop->now() >= *deadline) return false;
    runSignalHandlers();
  }
}

void Parts::stop() {
  // In this order: a slice that ends by the first is followed by one that ends by the second.
  loop->stop();
  stopped = true;
}

simulated::SimulatedRadio& PlatformHandle::simulatedRadio() const {
  const auto& radio = get().simulatedRadio;
  if (!radio) throw py::type_error("this platform's radio is not a simulated one");
  return *radio;
}

}  // namespace kestrin::python
