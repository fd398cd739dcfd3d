#include "StateReason.h"

namespace kestrin::corebluetooth {

std::string stateReason(CBManagerState state) {
  switch (state) {
    case CBManagerState::poweredOn:
      return {};
    case CBManagerState::poweredOff:
      return "Bluetooth is switched off: switch it on in Settings, Bluetooth";
    case CBManagerState::unauthorized:
      return "this application may not use Bluetooth: allow it in Settings, Privacy & Security, "
             "Bluetooth; where that is greyed out, a restriction of the device forbids it";
    case CBManagerState::unsupported:
      return "this device has no Bluetooth Low Energy that applications may use: a simulator has "
             "none, run the application on a device";
    case CBManagerState::resetting:
      return "the system's Bluetooth service restarts: wait, and if that does not end, switch "
             "Bluetooth off and on in Settings, Bluetooth";
    case CBManagerState::unknown:
      break;
  }
  return "the system has not reported the state of Bluetooth yet: wait";
}

}  // namespace kestrin::corebluetooth
