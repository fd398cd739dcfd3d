// Virtual readers: what to make one do, and what it has seen.
#include <pybind11/stl.h>

#include <tuple>
#include <utility>
#include <vector>

#include "Parts.h"

namespace kestrin::python {
namespace {

using Handle = VirtualPeripheralHandle;
using simulated::VirtualPeripheral;
using HandleClass = py::class_<Handle>;
using ErrorParts = std::optional<std::tuple<std::string, std::int64_t, std::string>>;

std::optional<NSError> errorFrom(const ErrorParts& parts) {
  if (!parts) return std::nullopt;
  return NSError{std::get<0>(*parts), std::get<1>(*parts), std::get<2>(*parts)};
}

/// An operation of the virtual reader's, as it is.
template <class Result, class... Arguments>
auto plainly(Result (VirtualPeripheral::*operation)(Arguments...)) {
  return [operation](const Handle& it, std::decay_t<Arguments>... arguments) {
    return it.parts->call([&] { return ((*it.peripheral).*operation)(std::move(arguments)...); });
  };
}

/// Something that the virtual reader tells of itself.
template <class Result>
auto asked(Result (VirtualPeripheral::*question)() const) {
  return [question](const Handle& it) {
    return it.parts->call([&] { return ((*it.peripheral).*question)(); });
  };
}

/// An operation that takes an error, or none.
auto withError(void (VirtualPeripheral::*operation)(std::optional<NSError>)) {
  return [operation](const Handle& it, const ErrorParts& error) {
    it.parts->call([&] { ((*it.peripheral).*operation)(errorFrom(error)); });
  };
}

/// An operation on the attributes of a UUID that is there or missing.
auto withMissing(void (VirtualPeripheral::*operation)(const CBUUID&, bool)) {
  return [operation](const Handle& it, const std::string& uuid, bool missing) {
    it.parts->call([&] { ((*it.peripheral).*operation)(uuidFrom(uuid), missing); });
  };
}

void defineAir(HandleClass& reader) {
  reader
      .def("simulate_vanishing", plainly(&VirtualPeripheral::simulateVanishing),
           "Leaves the range: it is no longer heard, a link is lost after the supervision timeout, "
           "and an attempt to connect waits for it.")
      .def("simulate_appearing", plainly(&VirtualPeripheral::simulateAppearing),
           "Comes back into range.")
      .def("simulate_name", plainly(&VirtualPeripheral::simulateName), py::arg("name"),
           "Advertises another name from now on, or none.")
      .def("simulate_advertisement", plainly(&VirtualPeripheral::simulateAdvertisement),
           "Is heard once more by every running scan, even if nothing has changed.")
      .def("simulate_nameless_advertisement",
           plainly(&VirtualPeripheral::simulateNamelessAdvertisement),
           "Likewise, with an advertisement that carries no name.")
      .def("simulate_link_loss", plainly(&VirtualPeripheral::simulateLinkLoss),
           "The link is lost at once; the reader stays in range.")
      .def("simulate_connection_never_completing",
           plainly(&VirtualPeripheral::simulateConnectionNeverCompleting), py::arg("never") = true,
           "Whether attempts to connect neither succeed nor fail.")
      .def("simulate_failing_connections", plainly(&VirtualPeripheral::simulateFailingConnections),
           py::arg("attempts"), "The next so many attempts to connect fail.");
}

void defineErrors(HandleClass& reader) {
  reader
      .def("simulate_service_discovery_error",
           withError(&VirtualPeripheral::simulateServiceDiscoveryError), py::arg("error"),
           "Answers service discovery with this error; None: no longer.")
      .def("simulate_characteristic_discovery_error",
           withError(&VirtualPeripheral::simulateCharacteristicDiscoveryError), py::arg("error"),
           "Answers characteristic discovery with this error; None: no longer.")
      .def("simulate_subscription_error", withError(&VirtualPeripheral::simulateSubscriptionError),
           py::arg("error"), "Answers every subscription with this error; None: no longer.")
      .def("simulate_read_error", withError(&VirtualPeripheral::simulateReadError),
           py::arg("error"), "Answers every read with this error; None: no longer.")
      .def("simulate_write_error", withError(&VirtualPeripheral::simulateWriteError),
           py::arg("error"),
           "Refuses every write with this error, so that it is not received; None: no longer. A "
           "manager is not told of refused writes.");
}

void defineAttributes(HandleClass& reader) {
  reader
      .def("simulate_missing_service", withMissing(&VirtualPeripheral::simulateMissingService),
           py::arg("service"), py::arg("missing") = true,
           "Whether the services of that UUID are left out of the links made from now on.")
      .def("simulate_missing_characteristic",
           withMissing(&VirtualPeripheral::simulateMissingCharacteristic),
           py::arg("characteristic"), py::arg("missing") = true,
           "Whether the characteristics of that UUID are left out of the links made from now on.")
      .def(
          "simulate_properties",
          [](const Handle& it, const std::string& uuid, CBCharacteristicProperties properties) {
            it.parts->call([&] { it.peripheral->simulateProperties(uuidFrom(uuid), properties); });
          },
          py::arg("characteristic"), py::arg("properties"),
          "The property mask of the characteristics of that UUID on the links made from now on.")
      .def(
          "simulate_value",
          [](const Handle& it, const std::string& uuid, const py::object& value) {
            const auto data = dataFrom(value, "a value");
            it.parts->call([&] { it.peripheral->simulateValue(uuidFrom(uuid), data); });
          },
          py::arg("characteristic"), py::arg("value"),
          "What a read of the characteristics of that UUID answers from now on.")
      .def(
          "simulate_notification",
          [](const Handle& it, const std::string& uuid, const py::object& value) {
            const auto data = dataFrom(value, "a value");
            return it.parts->call(
                [&] { return it.peripheral->simulateNotification(uuidFrom(uuid), data); });
          },
          py::arg("characteristic"), py::arg("value"),
          "Notifies one value as it stands. Returns whether anybody is subscribed.");
}

/// Has the Python platform answer a command for the reader with that identifier.
std::vector<NSData> answersOf(Parts& parts, const std::string& identifier, const NSData& frame) {
  std::vector<NSData> replies;
  const py::gil_scoped_acquire lock;
  try {
    const auto answers = parts.callOwner("_answer", identifier, pythonData(frame));
    if (!answers) return {};
    for (const auto answer : answers) replies.push_back(dataFrom(answer, "an answer"));
    return replies;
  } catch (py::error_already_set& error) {
    error.restore();
  } catch (const py::type_error& error) {
    error.set_error();
  }
  parts.takeException(py::none());
  return {};
}

void setScript(const Handle& it, bool own) {
  it.parts->call([&] {
    if (!own) {
      it.peripheral->setScript(simulated::defaultReaderScript());
      return;
    }
    it.peripheral->setScript([weak = std::weak_ptr(it.parts),
                              identifier = it.peripheral->identifier()](const NSData& frame) {
      const auto parts = weak.lock();
      if (!parts || !pythonIsThere()) return std::vector<NSData>();
      return answersOf(*parts, identifier, frame);
    });
  });
}

py::list writesOf(const Handle& it) {
  const auto writes = asked(&VirtualPeripheral::writes)(it);
  py::list result;
  for (const auto& write : writes) {
    result.append(
        py::make_tuple(write.characteristic.UUIDString(), pythonData(write.value),
                       write.type == CBCharacteristicWriteType::CBCharacteristicWriteWithResponse,
                       std::chrono::duration<double>(write.at).count()));
  }
  return result;
}

std::vector<std::string> subscriptionsOf(const Handle& it) {
  std::vector<std::string> texts;
  for (const auto& uuid : asked (&VirtualPeripheral::subscriptions)(it)) {
    texts.push_back(uuid.UUIDString());
  }
  return texts;
}

void defineQuestions(HandleClass& reader) {
  reader
      .def_property_readonly("identifier", asked(&VirtualPeripheral::identifier),
                             "The device's address.")
      .def_property_readonly("connected", asked(&VirtualPeripheral::connected),
                             "Whether a link is up, by the device's own account.")
      .def_property_readonly("subscriptions", &subscriptionsOf,
                             "The UUIDs of the characteristics that are subscribed to.")
      .def_property_readonly("refused_writes", asked(&VirtualPeripheral::refusedWrites),
                             "How many writes have been refused.")
      .def_property_readonly("connection_attempts", asked(&VirtualPeripheral::connectionAttempts),
                             "How many attempts to connect have reached the device.")
      .def("_writes", &writesOf, "Every write received so far: UUID, value, with response, time.");
}

}  // namespace

void defineVirtualPeripherals(py::module_& module) {
  HandleClass reader(module, "VirtualPeripheralBase", "A virtual device in range.");
  reader.def(py::init([](const Handle& other) { return other; }), py::arg("made"),
             "What `add_reader` or `add_peripheral` has made.");
  defineAir(reader);
  defineErrors(reader);
  defineAttributes(reader);
  defineQuestions(reader);
  reader
      .def("simulate_silence", plainly(&VirtualPeripheral::simulateSilence),
           py::arg("silent") = true, "Whether the reader gets commands without answering them.")
      .def("_set_script", &setScript, py::arg("own"),
           "Whether Python answers the commands, or the script that every reader has.");
}

}  // namespace kestrin::python
