#include "model/Step.h"

#include <string_view>

namespace kestrin::test {
namespace {

constexpr std::array<std::string_view, static_cast<std::size_t>(Op::count)> kNamesOfOps = {
    "scanBLE",
    "stopSacnBLE",
    "connectBLE",
    "close",
    "send",
    "sendPower",
    "writeRawData",
    "readData",
    "setDelegate",
    "setRcpReceiverDelegate",
    "dropDelegate",
    "dropReceiver",
    "dropManager",
    "enterBackground",
    "ask",
    "newDelegate",
    "newReceiver",
    "newManager",
    "react",
    "rename",
    "showServices",
    "showCharacteristics",
    "setProperties",
    "didUpdateState",
    "didDiscoverPeripheral",
    "didConnect",
    "didDisconnect",
    "didDiscoverServices",
    "didDiscoverCharacteristics",
    "didUpdateValue",
    "didUpdateNotificationState",
    "peripheralManagerDidUpdateState",
    "isConnectedBLE",
    "run",
};

}  // namespace

void showValue(const Step& step, std::ostream& out) {
  out << kNamesOfOps[static_cast<std::size_t>(step.op)] << "{manager " << step.manager << ", a "
      << step.a << ", b " << step.b << ", c " << step.c << "}";
  if (step.op == Op::react) {
    out << " which at site " << step.a % kSites << " does ";
    showValue(reactionOf(step), out);
  }
}

void showValue(const Steps& steps, std::ostream& out) {
  out << steps.size() << " steps\n";
  for (const Step& step : steps) {
    out << "  ";
    showValue(step, out);
    out << '\n';
  }
}

}  // namespace kestrin::test
