// The extension module below the Python package.
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include "KestrinBLESDK/KestrinBLESDK_vers.h"
#include "KestrinBLESDK/RcpFrame.h"
#include "Parts.h"

namespace kestrin::python {
namespace {

std::uint8_t byteFrom(std::int64_t number, const char* what) {
  if (number >= 0 && number <= 0xFF) return static_cast<std::uint8_t>(number);
  throw py::value_error(std::string("a frame's ") + what + " is a number from 0 to 255, not " +
                        std::to_string(number));
}

py::object buildFrame(std::int64_t type, std::int64_t code, const py::object& payload) {
  NSError error;
  const auto data = dataFrom(payload, "a payload");
  const auto frame =
      buildRcpFrame(byteFrom(type, "type"), byteFrom(code, "code"), data.span(), &error);
  if (!frame) throw py::value_error(error.text);
  return pythonData(*frame);
}

/// The fields' names in their order, as `RcpFrameField` has them.
constexpr const char* kFields[] = {"preamble", "type",     "code", "payload_length",
                                   "payload",  "end_mark", "crc"};

py::tuple parseFrame(const py::object& bytes) {
  const auto data = dataFrom(bytes, "a frame");
  RcpFrameError error;
  const auto frame = parseRcpFrame(data.span(), &error);
  if (frame) {
    return py::make_tuple(true, frame->type, frame->code, pythonData(NSData(frame->payload)),
                          pythonData(data));
  }
  return py::make_tuple(false, kFields[static_cast<std::size_t>(error.field)], error.offset,
                        error.incomplete, error.text);
}

}  // namespace
}  // namespace kestrin::python

PYBIND11_MODULE(_core, module) {
  namespace python = kestrin::python;
  namespace py = pybind11;
  module.doc() = "What the package kestrinblesdk is built on; not for applications.";
  python::definePlatforms(module);
  python::defineSimulated(module);
  python::defineVirtualPeripherals(module);
  python::defineManagers(module);
  python::defineReaders(module);
  module.def("build_frame", &python::buildFrame, py::arg("type"), py::arg("code"),
             py::arg("payload"), "A whole frame.");
  module.def(
      "frame_crc",
      [](const py::object& bytes) {
        return kestrin::rcpFrameCrc(python::dataFrom(bytes, "what has a CRC").span());
      },
      py::arg("data"), "The CRC of bytes.");
  module.def(
      "parse_frame", &python::parseFrame, py::arg("data"),
      "Type, code, payload and the whole of a frame, or field, place, whether more bytes may "
      "make one, and why it is none.");
  module.attr("version") = KESTRIN_VERSION;
  module.attr("version_number") = KestrinBLESDKVersionNumber;
#ifdef KESTRIN_HAS_BLUEZ
  module.attr("has_bluez") = true;
#else
  module.attr("has_bluez") = false;
#endif
}
