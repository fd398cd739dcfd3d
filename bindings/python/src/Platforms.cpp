// Platforms: a radio with its run loop.
#include <pybind11/functional.h>
#include <pybind11/stl.h>

#include <array>
#include <stdexcept>

#include "KestrinBLESDK/recording/RecordedPlatform.h"
#include "Parts.h"

#ifdef KESTRIN_HAS_BLUEZ
#include "kestrin/bluez/Bluez.h"
#endif

namespace kestrin::python {
namespace {

/// Hands the lines to the Python platform's function, on the platform's thread.
class LogToPython final : public NSLogSink {
 public:
  explicit LogToPython(const std::shared_ptr<Parts>& parts) : parts_(parts) {}

  [[nodiscard]] bool isListening() const noexcept override {
    const auto parts = parts_.lock();
    return parts && parts->logIsHeard;
  }
  void write(std::string_view line) noexcept override {
    const auto parts = parts_.lock();
    if (!parts || !pythonIsThere()) return;
    if (std::this_thread::get_id() == parts->thread) {
      tell(*parts, std::string(line));
    } else {
      parts->loop->post([weak = parts_, text = std::string(line)] {
        if (const auto there = weak.lock()) tell(*there, text);
      });
    }
  }

 private:
  static void tell(Parts& parts, const std::string& line) noexcept {
    const py::gil_scoped_acquire lock;
    // Names come from the air and need not be text.
    const auto text = py::reinterpret_steal<py::object>(PyUnicode_DecodeUTF8(
        line.data(), static_cast<py::ssize_t>(line.size()), "backslashreplace"));
    parts.callOwner("_log_line", text);
  }

  const std::weak_ptr<Parts> parts_;
};

std::shared_ptr<Parts> makeParts(const py::object& owner) {
  // The end of a radio may have to wait for the system, and nobody else is to wait with it.
  std::shared_ptr<Parts> parts(new Parts(owner),
                               [](const Parts* it) { withoutLock([it] { delete it; }); });
  parts->platform.log = std::make_shared<LogToPython>(parts);
  return parts;
}

std::shared_ptr<PlatformHandle> handleOf(std::shared_ptr<Parts> parts) {
  return std::make_shared<PlatformHandle>(PlatformHandle{std::move(parts)});
}

std::shared_ptr<PlatformHandle> makeSimulated(const py::object& owner,
                                              const simulated::Options& options) {
  auto parts = makeParts(owner);
  auto completed = options;
  completed.log = parts->platform.log;
  parts->simulated = std::make_unique<simulated::SimulatedPlatform>(completed);
  parts->platform = parts->simulated->platform();
  parts->simulatedRadio =
      std::static_pointer_cast<simulated::SimulatedRadio>(parts->platform.radio);
  // The simulated platform, whose loop it is, lives exactly as long as these parts.
  parts->loop = std::shared_ptr<MainRunLoop>(std::shared_ptr<void>(), &parts->simulated->runLoop());
  parts->virtualTime = options.virtualTime;
  return handleOf(std::move(parts));
}

/// The system's default group, with whichever radio was installed.
std::shared_ptr<Parts> makeDefaultParts(const py::object& owner) {
  auto parts = makeParts(owner);
  parts->loop = MainRunLoop::main();
  parts->platform = Platform::systemDefault();
  parts->platform.log = std::make_shared<LogToPython>(parts);
  parts->systemDefault = true;
  return parts;
}

std::shared_ptr<PlatformHandle> makeDefault(const py::object& owner) {
  return handleOf(makeDefaultParts(owner));
}

std::shared_ptr<PlatformHandle> installSimulated(const py::object& owner,
                                                 const simulated::Options& options) {
  auto radio = simulated::install(options);
  auto parts = makeDefaultParts(owner);
  parts->simulatedRadio = std::move(radio);
  return handleOf(std::move(parts));
}

#ifdef KESTRIN_HAS_BLUEZ
std::shared_ptr<PlatformHandle> makeBluez(const py::object& owner,
                                          std::optional<std::string> adapter,
                                          std::optional<std::string> busAddress) {
  auto parts = makeParts(owner);
  parts->loop = std::make_shared<MainRunLoop>();
  parts->platform.radio =
      bluez::makeRadio(parts->loop, {std::move(adapter), std::move(busAddress)});
  parts->platform.mainRunLoop = parts->loop;
  parts->platform.thread = sleepOn(parts->loop);
  parts->platform.notificationCenter = std::make_shared<NSNotificationCenter>();
  parts->platform = parts->platform.completed();
  return handleOf(std::move(parts));
}

std::shared_ptr<PlatformHandle> installBluez(const py::object& owner,
                                             std::optional<std::string> adapter,
                                             std::optional<std::string> busAddress) {
  bluez::install({std::move(adapter), std::move(busAddress)});
  return makeDefault(owner);
}
#else
std::shared_ptr<PlatformHandle> makeBluez(const py::object& /*owner*/,
                                          const std::optional<std::string>& /*adapter*/,
                                          const std::optional<std::string>& /*busAddress*/) {
  PyErr_SetString(PyExc_NotImplementedError, "this package was built without the real radio");
  throw py::error_already_set();
}

std::shared_ptr<PlatformHandle> installBluez(const py::object& owner,
                                             const std::optional<std::string>& adapter,
                                             const std::optional<std::string>& busAddress) {
  return makeBluez(owner, adapter, busAddress);
}
#endif

/// Has the Python platform run the task that it keeps under `key`.
RunLoop::Task taskOf(const std::shared_ptr<Parts>& parts, std::uint64_t key) {
  return [weak = std::weak_ptr(parts), key] {
    const auto there = weak.lock();
    if (!there || !pythonIsThere()) return;
    const py::gil_scoped_acquire lock;
    there->callOwner("_run_task", key);
  };
}

bool runUntil(const PlatformHandle& platform, const std::function<bool()>& done, double limit) {
  auto& parts = platform.get();
  return parts.turnUntil(timeAfter(parts.loop->now(), timeFromSeconds(limit)), done);
}

bool runOneTurn(const PlatformHandle& platform) {
  auto& parts = platform.get();
  parts.checkThread();
  if (parts.loop->isTurning()) {
    throw std::runtime_error(
        "the run loop is being turned already; return from the callback first");
  }
  return parts.call([&] { return parts.loop->runOneTurn(); });
}

int fileDescriptor(const PlatformHandle& platform) {
  const int descriptor = platform.get().loop->fileDescriptor();
  if (descriptor >= 0) return descriptor;
  PyErr_SetString(PyExc_OSError, "the system has no file descriptor left");
  throw py::error_already_set();
}

void enterBackground(const PlatformHandle& platform) {
  auto& parts = platform.get();
  parts.call([&] {
    parts.platform.notificationCenter->postNotificationName_object(
        UIApplicationDidEnterBackgroundNotification);
  });
}

void record(const PlatformHandle& platform, const std::string& path) {
  auto& parts = platform.get();
  parts.checkThread();
  if (parts.recording) throw std::runtime_error("this platform records already");
  const auto recording =
      std::make_shared<bindings::FileRecording>(path, "kestrinblesdk " KESTRIN_VERSION);
  if (!recording->isWhole()) {
    PyErr_SetString(PyExc_OSError, ("'" + path + "' cannot be written").c_str());
    throw py::error_already_set();
  }
  auto recorded = recordedPlatform(parts.platform, recording);
  parts.recording = recording;
  parts.platform = std::move(recorded.platform);
  parts.recordedLoop = std::move(recorded.keep);
}

void hearLog(const PlatformHandle& platform, bool heard) {
  auto& parts = platform.get();
  parts.logIsHeard = heard;
  if (!parts.systemDefault) return;
  setDefaultLogSink(heard ? parts.platform.log : std::make_shared<StandardErrorLogSink>());
}

void release(PlatformHandle& platform) {
  if (!platform.parts) return;
  platform.parts->checkThread();
  if (platform.parts->loop->isTurning()) {
    throw std::runtime_error("a platform is not released from inside a callback");
  }
  platform.parts.reset();
}

using PlatformClass = py::class_<PlatformHandle, std::shared_ptr<PlatformHandle>>;

void defineTurning(PlatformClass& platform) {
  platform
      .def(
          "run", [](const PlatformHandle& it) { it.get().turnUntil(std::nullopt, {}); },
          "Turns the run loop until `stop`; in virtual time also until nothing is pending.")
      .def(
          "run_for", [](const PlatformHandle& it, double seconds) { runUntil(it, {}, seconds); },
          py::arg("seconds"), "Turns the run loop for so long, or until `stop`.")
      .def("run_until", &runUntil, py::arg("done"), py::arg("limit"),
           "Turns the run loop until `done` returns true, asked before each turn. False when "
           "`limit` "
           "seconds have passed before, or `stop` was called.")
      .def(
          "run_one_turn", &runOneTurn,
          "Runs what is due and waits for nothing; returns whether anything ran. For an event loop "
          "that watches `file_descriptor`.")
      .def(
          "stop", [](const PlatformHandle& it) { it.get().stop(); },
          "Ends the `run` operation that is under way, or the next one. From any thread.")
      .def(
          "now",
          [](const PlatformHandle& it) {
            return std::chrono::duration<double>(it.get().loop->now()).count();
          },
          "The run loop's time, in seconds from a beginning of its own. From any thread.")
      .def("file_descriptor", &fileDescriptor,
           "Readable whenever `run_one_turn` has something to do. It is the run loop's: do not "
           "close "
           "it.")
      .def_property_readonly(
          "_is_running", [](const PlatformHandle& it) { return it.get().running.load(); },
          "Whether a `run` operation is under way.")
      .def_property_readonly(
          "is_turning", [](const PlatformHandle& it) { return it.get().loop->isTurning(); },
          "Whether the run loop is being turned, as it is in every callback.");
}

void defineTasks(PlatformClass& platform) {
  platform
      .def(
          "_post",
          [](const PlatformHandle& it, std::uint64_t key) {
            it.get().loop->post(taskOf(it.parts, key));
          },
          py::arg("key"), "Runs the task of that key in a later turn.")
      .def(
          "_arm",
          [](const PlatformHandle& it, double delay, std::uint64_t key) {
            return it.get().loop->arm(timeFromSeconds(delay), taskOf(it.parts, key));
          },
          py::arg("delay"), py::arg("key"), "Runs the task of that key after a delay.")
      .def(
          "_cancel",
          [](const PlatformHandle& it, RunLoop::TimerId timer) { it.get().loop->cancel(timer); },
          py::arg("timer"), "Forgets what was armed.")
      .def("_hear_log", &hearLog, py::arg("heard"),
           "Whether the log's lines are handed to Python.");
}

}  // namespace

void definePlatforms(py::module_& module) {
  PlatformClass platform(module, "PlatformBase",
                         "A radio with its run loop, to which the package's platforms add what "
                         "keeps Python objects.");
  platform.def(py::init([](const PlatformHandle& other) { return other; }), py::arg("made"),
               "What one of the `make` functions has made.");
  defineTurning(platform);
  defineTasks(platform);
  platform
      .def_property_readonly(
          "virtual_time", [](const PlatformHandle& it) { return it.get().virtualTime; },
          "Whether time passes only while somebody waits for it.")
      .def_property_readonly(
          "radio_trouble",
          [](const PlatformHandle& it) { return it.get().platform.radio->stateReason(); },
          "Why the radio is not powered on and what to do about it; empty when it is.")
      .def("_record", &record, py::arg("path"), "Records into a file from now on.")
      .def_property_readonly(
          "is_recording_whole",
          [](const PlatformHandle& it) {
            return it.get().recording != nullptr && it.get().recording->isWhole();
          },
          "Whether everything was written so far; False also without a recording.")
      .def("enter_background", &enterBackground,
           "Tells every manager that the application has left the foreground: each closes its link "
           "on the next turn of the run loop.")
      .def("release", &release,
           "Lets go of the radio. What was asked of the real one is handed over first. Managers "
           "that "
           "are still there keep it.")
      .def_property_readonly(
          "is_released", [](const PlatformHandle& it) { return it.parts == nullptr; },
          "Whether `release` was called.");
  module.def("make_simulated", &makeSimulated, py::arg("owner"), py::arg("options"),
             "A platform with a simulated radio.");
  module.def("make_bluez", &makeBluez, py::arg("owner"), py::arg("adapter"), py::arg("bus_address"),
             "A platform with the real radio.");
  module.def("make_default", &makeDefault, py::arg("owner"),
             "The platform of the process's one manager, with the radio that is installed.");
  module.def("install_simulated", &installSimulated, py::arg("owner"), py::arg("options"),
             "The same, with a simulated radio installed before.");
  module.def("install_bluez", &installBluez, py::arg("owner"), py::arg("adapter"),
             py::arg("bus_address"), "The same, with the real radio installed before.");
}

}  // namespace kestrin::python
