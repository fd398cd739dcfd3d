// From C++ to Python and back: references that C++ may hold, exceptions that may not cross the
// library, and bytes.
//
// Threads: Python is called only on the thread that a platform belongs to, with its lock taken
// here. Lifetime: C++ owns no object of the application's. It holds weak references to the
// wrappers, and these keep everything else, where the garbage collector sees it.
#pragma once

#include <pybind11/pybind11.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "KestrinBLESDK/platform/CBUUID.h"
#include "KestrinBLESDK/platform/NSData.h"

namespace kestrin::python {

namespace py = pybind11;

/// Whether Python may be called; no longer once the interpreter takes itself apart.
inline bool pythonIsThere() noexcept { return Py_IsInitialized() != 0; }

/// Does `work` without Python's lock, if this thread has it.
template <class Work>
auto withoutLock(const Work& work) {
  if (!pythonIsThere() || PyGILState_Check() == 0) return work();
  const py::gil_scoped_release released;
  return work();
}

/// A `weakref.ref` that may be dropped on any thread and after the interpreter's end.
class WeakReference {
 public:
  explicit WeakReference(py::object reference) : reference_(reference.release().ptr()) {}
  ~WeakReference();
  WeakReference(const WeakReference&) = delete;
  WeakReference& operator=(const WeakReference&) = delete;

  /// The object, null when it is gone. With Python's lock only.
  [[nodiscard]] py::object get() const;

 private:
  PyObject* reference_;
};

/// The exception that ended a callback and may not be swallowed: KeyboardInterrupt or SystemExit.
/// Whatever operation is under way raises it when it is done.
class KeptInterrupt {
 public:
  /// Takes the exception that is set: keeps it, or reports it as one that nobody can catch, which
  /// `culprit` has raised. Returns whether it was kept.
  bool take(py::handle culprit) noexcept;
  /// Raises what was kept.
  void raise();

 private:
  std::optional<py::error_already_set> kept_;
};

/// The bytes of a bytes-like object; `what` says in an error what it was to be.
NSData dataFrom(py::handle bytes, const char* what);
/// An object of the package's own `NSData`.
py::object pythonData(const NSData& data);
py::object pythonData(const std::optional<NSData>& data);
/// The UUID that a text stands for.
CBUUID uuidFrom(const std::string& text);

/// What is raised when something is used that was released.
[[noreturn]] void throwReleased(const char* what);

}  // namespace kestrin::python
