// The simulated radio: how it is made, and who is in range of it.
#include <pybind11/stl.h>

#include <string>
#include <utility>

#include "Parts.h"
#include "kestrin/simulated/Options.h"

namespace kestrin::python {
namespace {

using simulated::Options;
using simulated::ReaderFamily;

double secondsIn(Time time) { return std::chrono::duration<double>(time).count(); }

using OptionsClass = py::class_<Options>;

/// An option that is a span of time, in seconds.
void defineTime(OptionsClass& options, const char* name, Time Options::*member, const char* text) {
  options.def_property(
      name, [member](const Options& it) { return secondsIn(it.*member); },
      [member](Options& it, double seconds) { it.*member = timeFromSeconds(seconds); }, text);
}

/// An option that is a range of times, as a pair of seconds.
void defineTimes(OptionsClass& options, const char* name, simulated::Range<Time> Options::*member,
                 const char* text) {
  options.def_property(
      name,
      [member](const Options& it) {
        return std::pair(secondsIn((it.*member).min), secondsIn((it.*member).max));
      },
      [member](Options& it, std::pair<double, double> range) {
        it.*member = {timeFromSeconds(range.first), timeFromSeconds(range.second)};
      },
      text);
}

/// An option that is a range of numbers, as a pair.
template <class Number>
void defineNumbers(OptionsClass& options, const char* name,
                   simulated::Range<Number> Options::*member, const char* text) {
  options.def_property(
      name, [member](const Options& it) { return std::pair((it.*member).min, (it.*member).max); },
      [member](Options& it, std::pair<Number, Number> range) {
        it.*member = {range.first, range.second};
      },
      text);
}

void defineOptions(py::module_& module) {
  OptionsClass options(module, "SimulatedOptions", "How a simulated radio and its air behave.");
  options.def(py::init(), "As they are if nothing is said.")
      .def_readwrite("virtual_time", &Options::virtualTime,
                     "Whether time passes only while somebody waits for it.")
      .def_readwrite("seed", &Options::seed, "What everything left to chance is drawn from.")
      .def_property(
          "state", [](const Options& it) { return static_cast<std::int64_t>(it.state); },
          [](Options& it, std::int64_t state) { it.state = static_cast<CBManagerState>(state); },
          "The radio's state to begin with.");
  defineNumbers(options, "piece_size", &Options::pieceSize,
                "Bytes of each notification that a reply is cut into, 1 to 20.");
  defineNumbers(options, "signal_strength", &Options::signalStrength,
                "The signal strength of a sighting, in dBm.");
  defineTimes(options, "latency", &Options::latency,
              "How long a message takes in either direction.");
  defineTimes(options, "connection_delay", &Options::connectionDelay,
              "How long one connection attempt takes.");
  defineTime(options, "advertising_interval", &Options::advertisingInterval,
             "A peripheral that may be heard is heard within this time.");
  defineTime(options, "first_retry_pause", &Options::firstRetryPause,
             "The pause after a first failed attempt; every further one is twice as long.");
  defineTime(options, "longest_retry_pause", &Options::longestRetryPause,
             "No pause between attempts is longer.");
  defineTime(options, "supervision_timeout", &Options::supervisionTimeout,
             "How long after a linked peripheral has vanished its link is found to be lost.");
}

VirtualPeripheralHandle addReader(const PlatformHandle& platform, const std::string& name,
                                  bool isOfQ62TFamily) {
  auto& radio = platform.simulatedRadio();
  return {platform.parts, platform.parts->call([&] {
            return radio.addReader(name,
                                   isOfQ62TFamily ? ReaderFamily::kvrQ62T : ReaderFamily::standard);
          })};
}

VirtualPeripheralHandle addPeripheral(const PlatformHandle& platform,
                                      const std::optional<std::string>& name) {
  auto& radio = platform.simulatedRadio();
  return {platform.parts, platform.parts->call([&] { return radio.addPeripheral(name); })};
}

void simulateState(const PlatformHandle& platform, std::int64_t state) {
  auto& radio = platform.simulatedRadio();
  platform.parts->call([&] { radio.simulateState(static_cast<CBManagerState>(state)); });
}

}  // namespace

void defineSimulated(py::module_& module) {
  defineOptions(module);
  module.def("add_reader", &addReader, py::arg("platform"), py::arg("name"),
             py::arg("is_of_q62t_family"), "A reader in range of a simulated radio.");
  module.def("add_peripheral", &addPeripheral, py::arg("platform"), py::arg("name"),
             "A peripheral in range of a simulated radio that is not a reader.");
  module.def("simulate_state", &simulateState, py::arg("platform"), py::arg("state"),
             "Brings a simulated radio into a state.");
}

}  // namespace kestrin::python
