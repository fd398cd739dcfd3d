// A radio with its run loop, as Python's platforms, managers and virtual readers share it.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "Calls.h"
#include "KestrinBLESDK/platform/Platform.h"
#include "bindings/FileRecording.h"
#include "kestrin/simulated/SimulatedPlatform.h"

namespace kestrin::python {

struct Parts : std::enable_shared_from_this<Parts> {
  explicit Parts(py::object ownerReference) : owner(std::move(ownerReference)) {}

  /// Raises unless this is the thread that the platform belongs to.
  void checkThread() const;
  /// Does `work` of the library's without Python's lock, and then raises what no callback may
  /// swallow.
  template <class Work>
  auto call(const Work& work);
  /// Calls a method of the Python platform; what it raises is reported or kept.
  template <class... Arguments>
  py::object callOwner(const char* method, Arguments&&... arguments) noexcept;
  /// Takes the exception that is set, see `KeptInterrupt`.
  void takeException(py::handle culprit) noexcept {
    if (interrupt.take(culprit) && running) loop->stop();
  }
  /// Turns the loop until `deadline`, without end without one, or until `done`; returns whether it
  /// is.
  bool turnUntil(std::optional<Time> deadline, const std::function<bool()>& done);
  void stop();

  const WeakReference owner;
  Platform platform;
  std::shared_ptr<MainRunLoop> loop;
  std::unique_ptr<simulated::SimulatedPlatform> simulated;
  std::shared_ptr<simulated::SimulatedRadio> simulatedRadio;
  std::shared_ptr<bindings::FileRecording> recording;
  std::shared_ptr<RunLoop> recordedLoop;
  bool virtualTime = false;
  /// Whether this is the group that `Platform::systemDefault()` returns.
  bool systemDefault = false;
  const std::thread::id thread = std::this_thread::get_id();
  KeptInterrupt interrupt;
  std::atomic<bool> stopped = false;
  /// Whether a `run` operation is under way, as opposed to a single turn.
  std::atomic<bool> running = false;
  std::atomic<bool> logIsHeard = false;

 private:
  bool turnOnce(std::optional<Time> deadline, const std::function<bool()>& done);
};

template <class Work>
auto Parts::call(const Work& work) {
  checkThread();
  const auto keep = shared_from_this();
  if constexpr (std::is_void_v<decltype(work())>) {
    withoutLock(work);
    keep->interrupt.raise();
  } else {
    auto result = withoutLock(work);
    keep->interrupt.raise();
    return result;
  }
}

template <class... Arguments>
py::object Parts::callOwner(const char* method, Arguments&&... arguments) noexcept {
  py::object self;
  try {
    self = owner.get();
    if (self) return self.attr(method)(std::forward<Arguments>(arguments)...);
  } catch (py::error_already_set& error) {
    error.restore();
    takeException(self);
  }
  return {};
}

/// What Python holds of a platform.
struct PlatformHandle {
  std::shared_ptr<Parts> parts;

  [[nodiscard]] Parts& get() const {
    if (!parts) throwReleased("platform");
    return *parts;
  }
  /// The platform's radio, if it is a simulated one.
  [[nodiscard]] simulated::SimulatedRadio& simulatedRadio() const;
};

/// What Python holds of a virtual reader.
struct VirtualPeripheralHandle {
  std::shared_ptr<Parts> parts;
  std::shared_ptr<simulated::VirtualPeripheral> peripheral;
};

// What the module is made of, a file each.
void definePlatforms(py::module_& module);
void defineManagers(py::module_& module);
void defineReaders(py::module_& module);
void defineSimulated(py::module_& module);
void defineVirtualPeripherals(py::module_& module);

}  // namespace kestrin::python
