#include "StateReason.h"

namespace kestrin::bluez {
namespace {

std::string reasonWithDaemon(const StateFacts& facts) {
  if (facts.state == CBManagerState::unauthorized) {
    return "permission to use adapter " + facts.adapter +
           " is refused: run as root, or allow this user to use org.bluez in the message bus's "
           "policy (on many systems: 'adduser USER bluetooth', then log in again)";
  }
  if (facts.adapter.empty()) {
    return facts.wantedAdapter ? "there is no Bluetooth adapter " + *facts.wantedAdapter +
                                     ": 'bluetoothctl list' shows those that are there"
                               : std::string(
                                     "there is no Bluetooth adapter: plug one in, or see whether "
                                     "'rfkill list bluetooth' shows one that is blocked");
  }
  return "adapter " + facts.adapter +
         " is powered off: switch it on with 'bluetoothctl power on' (if that is blocked: 'rfkill "
         "unblock bluetooth')";
}

}  // namespace

std::string stateReason(const StateFacts& facts) {
  if (facts.state == CBManagerState::poweredOn) return {};
  switch (facts.availability) {
    case Availability::unknown:
      return "the Bluetooth daemon has not answered yet: ask again in a moment";
    case Availability::noBus:
      return "the system message bus cannot be reached (" + facts.busTrouble +
             "): start it with 'systemctl start dbus'";
    case Availability::noDaemon:
      return "the Bluetooth daemon is not running: install the package bluez and start it with "
             "'systemctl start bluetooth'";
    case Availability::refused:
      return "permission to talk to the Bluetooth daemon is refused: run as root, or allow this "
             "user to use org.bluez in the message bus's policy (on many systems: 'adduser USER "
             "bluetooth', then log in again)";
    case Availability::notAnswering:
      return "the Bluetooth daemon does not answer: restart it with 'systemctl restart bluetooth'";
    case Availability::ready:
      return reasonWithDaemon(facts);
  }
  return {};
}

}  // namespace kestrin::bluez
