#include "Calls.h"

#include <span>
#include <stdexcept>

#include "KestrinBLESDK/platform/NSError.h"

namespace kestrin::python {

WeakReference::~WeakReference() {
  // The interpreter's end takes everything along.
  if (!pythonIsThere()) return;
  const py::gil_scoped_acquire lock;
  Py_DECREF(reference_);
}

py::object WeakReference::get() const {
#if PY_VERSION_HEX >= 0x030D0000  // Python 3.13, which will do without the other function.
  PyObject* object = nullptr;
  if (PyWeakref_GetRef(reference_, &object) < 0) throw py::error_already_set();
  return py::reinterpret_steal<py::object>(object);
#else
  PyObject* const object = PyWeakref_GetObject(reference_);
  if (object == nullptr) throw py::error_already_set();
  if (object == Py_None) return {};
  return py::reinterpret_borrow<py::object>(object);
#endif
}

bool KeptInterrupt::take(py::handle culprit) noexcept {
  if (PyErr_ExceptionMatches(PyExc_KeyboardInterrupt) == 0 &&
      PyErr_ExceptionMatches(PyExc_SystemExit) == 0) {
    PyErr_WriteUnraisable(culprit.ptr());
    return false;
  }
  kept_.emplace();
  return true;
}

void KeptInterrupt::raise() {
  if (!kept_) return;
  py::error_already_set error = *std::exchange(kept_, std::nullopt);
  throw error;
}

NSData dataFrom(py::handle bytes, const char* what) {
  Py_buffer view{};
  if (PyObject_GetBuffer(bytes.ptr(), &view, PyBUF_SIMPLE) != 0) {
    PyErr_Clear();
    throw py::type_error(std::string(what) + " is bytes or a bytes-like object, not '" +
                         Py_TYPE(bytes.ptr())->tp_name + "'");
  }
  auto data = NSData::dataWithBytes_length(view.buf, static_cast<std::size_t>(view.len));
  PyBuffer_Release(&view);
  return data;
}

py::object pythonData(const NSData& data) {
  const auto* const bytes = reinterpret_cast<const char*>(data.bytes());
  return py::module_::import("kestrinblesdk._values")
      .attr("NSData")(py::bytes(bytes == nullptr ? "" : bytes, data.length()));
}

py::object pythonData(const std::optional<NSData>& data) {
  return data ? pythonData(*data) : py::none();
}

CBUUID uuidFrom(const std::string& text) {
  NSError error;
  const auto uuid = CBUUID::UUIDWithString(text, &error);
  if (!uuid) throw py::value_error(error.text);
  return *uuid;
}

void throwReleased(const char* what) {
  throw std::runtime_error(std::string("this ") + what + " has been released");
}

}  // namespace kestrin::python
