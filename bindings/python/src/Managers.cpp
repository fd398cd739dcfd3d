// Managers and the peripherals they are told of.
#include <pybind11/stl.h>

#include "KestrinBLESDK/KestrinBleMgr.h"
#include "Parts.h"

namespace kestrin::python {
namespace {

/// Tells the Python manager's listeners.
class Listeners final : public KestrinBLEProtocols, public RcpReceiver {
 public:
  Listeners(const std::shared_ptr<Parts>& parts, py::object owner)
      : parts_(parts), owner_(std::move(owner)) {}

  void scanBleStatus(std::int64_t status) noexcept override {
    tell("scanBleStatus", [&] { return py::int_(status); });
  }
  void scanningBleDeive(const std::shared_ptr<CBPeripheral>& peripheral) noexcept override {
    tell("scanningBleDeive", [&] { return py::cast(peripheral); });
  }
  void plugChangedStatus(bool plugged) noexcept override {
    tell("plugChangedStatus", [&] { return py::bool_(plugged); });
  }
  void dispatchRcpFrmReader(const std::optional<NSData>& frame) noexcept override {
    tell("dispatchRcpFrmReader", [&] { return pythonData(frame); });
  }

 private:
  template <class MakeArgument>
  void tell(const char* callback, const MakeArgument& makeArgument) noexcept {
    // Whoever turns the loop holds the parts; a manager without them calls nobody.
    const auto parts = parts_.lock();
    if (!parts || !pythonIsThere()) return;
    const py::gil_scoped_acquire lock;
    py::object culprit;
    try {
      culprit = owner_.get();
      if (!culprit) return;
      const py::object argument = makeArgument();
      for (const auto listener : culprit.attr("_listeners")(callback)) {
        tellOne(*parts, listener, argument);
      }
    } catch (py::error_already_set& error) {
      error.restore();
      parts->takeException(culprit);
    }
  }
  static void tellOne(Parts& parts, py::handle listener, const py::object& argument) noexcept {
    try {
      listener(argument);
    } catch (py::error_already_set& error) {
      error.restore();
      parts.takeException(listener);
    }
  }

  const std::weak_ptr<Parts> parts_;
  const WeakReference owner_;
};

/// What Python holds of a manager.
class ManagerHandle {
 public:
  ManagerHandle(const PlatformHandle& platform, const py::object& owner, bool shared)
      : parts_(platform.parts) {
    platform.get().checkThread();
    listeners_ = std::make_shared<Listeners>(parts_, owner);
    manager_ = shared ? KestrinBleMgr::sharedInstance() : KestrinBleMgr::init(parts_->platform);
    if (!manager_) throw std::bad_alloc();
    manager_->setDelegate(listeners_);
    manager_->setRcpReceiverDelegate(listeners_);
  }
  ~ManagerHandle() { release(); }
  ManagerHandle(const ManagerHandle&) = delete;
  ManagerHandle& operator=(const ManagerHandle&) = delete;

  /// Does `work` with the manager, which outlives it even if a callback releases it.
  template <class Work>
  auto call(const Work& work) const {
    if (!manager_) throwReleased("manager");
    const auto parts = parts_;
    return parts->call([&work, manager = manager_] { return work(*manager); });
  }

  [[nodiscard]] bool isReleased() const { return manager_ == nullptr; }
  void checkThread() const {
    if (parts_) parts_->checkThread();
  }

  /// Closes the link; nobody is told any more.
  void release() noexcept {
    const auto manager = std::exchange(manager_, nullptr);
    const auto parts = std::exchange(parts_, nullptr);
    if (!manager) return;
    const auto close = [manager] {
      manager->setDelegate(nullptr);
      manager->setRcpReceiverDelegate(nullptr);
      manager->close();
    };
    // The garbage collector runs on any thread.
    if (std::this_thread::get_id() != parts->thread) {
      parts->loop->post(close);
    } else {
      withoutLock(close);
    }
  }

 private:
  std::shared_ptr<Parts> parts_;
  std::shared_ptr<Listeners> listeners_;
  std::shared_ptr<KestrinBleMgr> manager_;
};

/// An operation of the manager's that takes bytes; `what` names them.
template <class Result, class Argument>
auto withData(Result (KestrinBleMgr::*operation)(Argument) noexcept, const char* what) {
  return [operation, what](const ManagerHandle& it, const py::object& bytes) {
    const auto data = dataFrom(bytes, what);
    return it.call([&](KestrinBleMgr& manager) { return (manager.*operation)(data); });
  };
}

/// An operation of the manager's without arguments.
template <class Manager, class Result>
auto plainly(Result (Manager::*operation)() noexcept) {
  return [operation](const ManagerHandle& it) {
    return it.call([&](KestrinBleMgr& manager) { return (manager.*operation)(); });
  };
}
template <class Result>
auto plainly(Result (KestrinBleMgr::*operation)() const noexcept) {
  return [operation](const ManagerHandle& it) {
    return it.call([&](const KestrinBleMgr& manager) { return (manager.*operation)(); });
  };
}

void connect(const ManagerHandle& it, const py::object& peripheral) {
  if (!py::isinstance<CBPeripheral>(peripheral)) {
    throw py::type_error(
        std::string("connectBLE takes a CBPeripheral, as a scan finds them, not '") +
        Py_TYPE(peripheral.ptr())->tp_name + "'");
  }
  const auto reader = peripheral.cast<std::shared_ptr<CBPeripheral>>();
  it.call([&](KestrinBleMgr& manager) { manager.connectBLE(reader); });
}

using ManagerClass = py::class_<ManagerHandle>;

void defineLink(ManagerClass& manager) {
  manager
      .def("scanBLE", plainly(&KestrinBleMgr::scanBLE),
           "Calls the scan delegate with 0, drops the connection to the last reader, and scans. "
           "Always "
           "True, also with the radio off: the scan then starts when it is powered on.")
      .def("stopSacnBLE", plainly(&KestrinBleMgr::stopSacnBLE),
           "Calls the scan delegate with 1 and stops the scan.")
      .def("connectBLE", &connect, py::arg("peripheral"),
           "Stops the scan and connects, however long that takes. The receiver hears "
           "`plugChangedStatus(True)` when the link can be used.")
      .def_property_readonly(
          "pripheral", plainly(&KestrinBleMgr::pripheral),
          "The reader that the scan accepted last or that was connected to; None before.")
      .def("open", plainly(&KestrinBleMgr::open),
           "Whether there is a link. A pure query: it opens nothing.")
      .def("isOpened", plainly(&KestrinBleMgr::isOpened), "The same as `open`.")
      .def(
          "close", plainly(&KestrinBleMgr::close),
          "Drops the link or the attempt, stops the scan and calls the receiver's "
          "`plugChangedStatus(False)` at once. `open` stays true until the link is down, which the "
          "receiver hears as a second False.");
}

void defineTraffic(ManagerClass& manager) {
  manager
      .def("send", withData(&KestrinBleMgr::send, "a frame"), py::arg("frame"),
           "Sends one whole frame, CRC included, in slices of 20 bytes; blocks for 0.05 s per full "
           "one, in which other threads run. Returns whether the last slice was handed to the "
           "radio.")
      .def("sendPower", withData(&KestrinBleMgr::sendPower, "a frame"), py::arg("frame"),
           "The same as `send`.")
      .def("writeRawData", withData(&KestrinBleMgr::writeRawData, "a slice"), py::arg("slice"),
           "Writes one slice of at most 20 bytes as it is; False when the reader's transmit "
           "characteristic is not known or cannot be written.")
      .def("readData", withData(&KestrinBleMgr::readData, "what a reader sends"), py::arg("data"),
           "Takes bytes as if the reader had sent them and delivers every whole frame. Always 0.");
}

void definePeripheral(py::module_& module) {
  py::class_<CBPeripheral, std::shared_ptr<CBPeripheral>>(
      module, "CBPeripheral", "A device in range or once in range; one object per device.")
      .def_property_readonly("identifier", &CBPeripheral::identifier,
                             "A text that tells this device from every other of its radio.")
      .def_property_readonly("name", &CBPeripheral::name,
                             "The advertised or cached name; None when none is known.")
      .def("__repr__", [](const CBPeripheral& it) {
        const auto name = it.name();
        return "<CBPeripheral " +
               (name ? py::repr(py::cast(*name)).cast<std::string>() : "without a name") + " " +
               it.identifier() + ">";
      });
}

}  // namespace

void defineManagers(py::module_& module) {
  definePeripheral(module);
  ManagerClass manager(module, "ManagerBase", "A manager, to which the package's adds delegates.");
  manager
      .def(py::init<const PlatformHandle&, const py::object&, bool>(), py::arg("platform"),
           py::arg("owner"), py::arg("shared"),
           "A manager on a platform, or the process's one if `shared`.")
      .def(
          "_release",
          [](ManagerHandle& it) {
            it.checkThread();
            it.release();
          },
          "Closes the link and lets go of the manager.")
      .def_property_readonly("is_released", &ManagerHandle::isReleased,
                             "Whether `release` was called.");
  defineLink(manager);
  defineTraffic(manager);
}

}  // namespace kestrin::python
